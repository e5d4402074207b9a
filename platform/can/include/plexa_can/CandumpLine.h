#ifndef PLEXA_CAN_CANDUMP_LINE_H
#define PLEXA_CAN_CANDUMP_LINE_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/Export.h>

#include <cstddef>

namespace tarn
{

/// What one line of a candump log says. Filled by ParseCandumpLine().
struct CandumpLine {
    /// What a line is.
    enum tKind : int {
        KIND_COMMENT,  ///< blank, "# ...", or the explanation that candump -e puts below a frame
        KIND_FRAME,    ///< a classical CAN frame of any sort, in frame
        KIND_FD_FRAME, ///< a CAN FD frame, which frame cannot hold
        KIND_MALFORMED ///< anything else; reason and column say why
    };

    /// How a line tells the time.
    enum tTimeForm : int {
        TIME_NONE,     ///< not at all
        TIME_ABSOLUTE, ///< seconds since 1970: (1609779922.655421)
        TIME_DATE,     ///< date and time of day: (2021-01-04 17:05:22.655421)
        TIME_RELATIVE  ///< seconds since another frame: (000.000123)
    };

    /// What the machine that wrote the log did with the frame.
    enum tDirection : int {
        DIRECTION_UNKNOWN,  ///< the line does not say
        DIRECTION_RECEIVED, ///< "R", or "RX"
        DIRECTION_SENT      ///< "T", or "TX"
    };

    /// Room for the name of a network interface, its final 0 included.
    static constexpr std::size_t INTERFACE_SIZE = 16;

    tKind kind = KIND_MALFORMED;              ///< decides which of the members count
    tTimeForm timeForm = TIME_NONE;           ///< what the time stamp of frame counts from
    tDirection direction = DIRECTION_UNKNOWN; ///< received or sent
    /// Digits that the time stamp has behind the point, 0 to 9.
    unsigned int timeDecimals = 0;
    /// Empty where the line names none.
    char interfaceName[INTERFACE_SIZE] = {};
    /// For KIND_FRAME: identifier, flags and data. For KIND_FRAME and KIND_FD_FRAME the time stamp
    /// too: nanoseconds since 1970 (a date is taken for UTC), or since that other frame.
    CanMessage frame;
    /// For KIND_MALFORMED: what was wrong, as a text that lives as long as the program.
    const char* reason = "";
    /// For KIND_MALFORMED: where in the line, counted from 1.
    std::size_t column = 0;
};

/// Reads one line, without its newline, in any of the forms that can-utils write and read:
///
///     (1609779922.655421) can0 0F800001#20           candump -L and -l; also with " R" or " T"
///       can0  0F800001   [1]  20                     candump, also with -t, -x, -a and -e
///     0F800001#20                                    what cansend takes
///
/// 8 digits make an extended identifier, 3 a standard one. "#R" and "remote request" are remote
/// requests; an identifier with bit 0x20000000 is an error frame, as is "ERRORFRAME". "##" and a
/// length of two digits are CAN FD.
///
/// Overwrites all of line. Never throws, allocates nothing, takes any bytes; a carriage return at
/// the end is ignored. The time it takes grows with size and nothing else.
/// @returns true unless the line is malformed.
PLEXA_CAN_API bool ParseCandumpLine(const char* text, std::size_t size, CandumpLine& line);

} // namespace tarn

#endif
