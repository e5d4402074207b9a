#ifndef FUZZ_SOCKET_CAND_ELEMENTS_H
#define FUZZ_SOCKET_CAND_ELEMENTS_H

#include <plexa_can/SocketCandText.h>

#include <string>
#include <vector>

/// The elements of a text that is read in one piece.
inline std::vector<tarn::SocketCandElement> Elements(const std::string& text)
{
    std::vector<tarn::SocketCandElement> elements;
    tarn::SocketCandReader reader;
    tarn::SocketCandElement element;
    const char* at = text.data();
    while (reader.Next(at, text.data() + text.size(), element))
        elements.push_back(element);
    return elements;
}

#endif
