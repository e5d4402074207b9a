#ifndef PLEXA_CAN_SRC_SHOWN_TEXT_H
#define PLEXA_CAN_SRC_SHOWN_TEXT_H

#include <string>

namespace tarn
{

/// A text of others in a message: fit for a terminal, and no longer than a line.
std::string ShownText(const std::string& text);

/// A control character of ASCII.
bool IsControl(char character);

} // namespace tarn

#endif
