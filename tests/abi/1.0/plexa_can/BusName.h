#ifndef PLEXA_CAN_BUS_NAME_H
#define PLEXA_CAN_BUS_NAME_H

#include <plexa_can/Export.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace tarn
{

/// The name of a bus in its parts:
///
///     SCHEME:ADDRESS
///     SCHEME:ADDRESS?key=value&key=value
///
/// Scheme and keys are of the characters a to z. Neither the address nor a value is empty; a '?'
/// cannot stand in an address nor an '&' in a value. No key comes twice.
struct BusName {
    /// Most characters of a name.
    static constexpr std::size_t MAX_SIZE = 8192;

    std::string scheme;  ///< the kind of bus: "socketcan"
    std::string address; ///< which one of that kind: "can0"
    /// Key and value, in the order of the name.
    std::vector<std::pair<std::string, std::string>> options;
};

/// Takes a name apart. What schemes, keys and values mean is not looked at.
/// @throws CanException when the text is no name; the message says where and what to write
PLEXA_CAN_API BusName ParseBusName(const std::string& text);

} // namespace tarn

#endif
