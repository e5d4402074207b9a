#include "Fakes.h"
#include "Path.h"

#include <cstdio>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

// The two text forms, and the same texts through a string stream.

namespace
{

using std::setfill;
using std::setw;
using tarn::TarnMessage;

TarnMessage Message()
{
    TarnMessage message;
    message.SetSourceAddr(bench::SOURCE);
    message.SetTargetAddr(bench::TARGET);
    std::vector<unsigned short> values = {0x1234, 0x5678, 0x9abc};
    message.SetData(values);
    return message;
}

struct Short {
    TarnMessage message = Message();

    std::string operator()() const
    {
        std::string text = message.ToStringShort();
        benchmark::DoNotOptimize(text);
        return text;
    }
};

struct Long {
    TarnMessage message = Message();

    std::string operator()() const
    {
        std::string text = message.ToString();
        benchmark::DoNotOptimize(text);
        return text;
    }
};

/// What stands before the values of either form.
struct Labels {
    const char* type;
    const char* priority;
    const char* addressing;
    const char* accessType;
    const char* direction;
    const char* addressingMode;
    const char* reg;
    const char* targetAddr;
    const char* sourceAddr;
    const char* module;
    const char* status;
    const char* dataType;
    const char* data;
    const char* rawHeader;
    const char* rawData;
};

constexpr Labels SHORT = {"Type: ",       ",Priority: ",       ",Addressing: ", ",AccessType: ",
                          ",Direction: ", ",AddressingMode: ", ",Register:",    ",TargetAddr:",
                          ",SourceAddr:", ",Module:",          ",Status: ",     ",DataType: ",
                          ",Data(",       ",Raw-Header : ",    ",Raw-Data("};
constexpr Labels LONG = {"Type:            ",
                         "\nPriority:        ",
                         "\nAddressing:      ",
                         "\nAccessType:      ",
                         "\nDirection:       ",
                         "\nAddressingMode:  ",
                         "\nRegister:        ",
                         "\nTargetAddr:      ",
                         "\nSourceAddr:      ",
                         "\nModule:          ",
                         "\nStatus:          ",
                         "\nDataType:        ",
                         "\nData(",
                         "\nRaw-Header : ",
                         "\nRaw-Data("};

/// The words of Message() are literals here: looking them up is not what a stream takes long for.
std::string Streamed(const Labels& labels)
{
    static const std::vector<unsigned short> values = {0x1234, 0x5678, 0x9abc};
    static const std::vector<unsigned char> bytes = {0x34, 0x12, 0x78, 0x56, 0xbc, 0x9a};
    std::ostringstream out;
    out << labels.type << "DATA" << labels.priority << "DATA" << labels.addressing << "DEVICE"
        << labels.accessType << "READ" << labels.direction << "REQUEST" << labels.addressingMode
        << "STANDARD";
    out << std::dec << labels.reg << setw(2) << setfill('0') << 0 << labels.targetAddr << setw(2)
        << unsigned{bench::TARGET} << labels.sourceAddr << setw(2) << unsigned{bench::SOURCE}
        << labels.module << setw(2) << 0;
    out << labels.status << "POWERUP" << labels.dataType << "U16" << labels.data << values.size()
        << ") : ";
    for (const unsigned short value : values)
        out << " 0x" << std::hex << setw(4) << value << " - ";
    out << labels.rawHeader << std::hex << 0xf800485u << labels.rawData << std::dec << bytes.size()
        << ") : ";
    for (const unsigned char byte : bytes) {
        out << " - 0x" << std::hex << setw(2) << unsigned{byte} << std::dec << '(';
        if (byte >= 0x20 && byte < 0x7f)
            out << static_cast<char>(byte);
        out << ')';
    }
    return out.str();
}

struct StreamedShort {
    StreamedShort()
    {
        if (Streamed(SHORT) != Short()())
            std::abort();
    }

    void operator()() const { benchmark::DoNotOptimize(Streamed(SHORT)); }
};

struct StreamedLong {
    StreamedLong()
    {
        if (Streamed(LONG) != Long()())
            std::abort();
    }

    void operator()() const { benchmark::DoNotOptimize(Streamed(LONG)); }
};

/// The short text by one call of snprintf().
struct Printed {
    void operator()() const
    {
        char text[512];
        benchmark::DoNotOptimize(std::snprintf(
            text, sizeof text,
            "Type: %s,Priority: %s,Addressing: %s,AccessType: %s,Direction: %s,AddressingMode: %s,"
            "Register:%02u,TargetAddr:%02u,SourceAddr:%02u,Module:%02u,Status: %s,DataType: %s,"
            "Data(%u) :  0x%04x -  0x%04x -  0x%04x - ,Raw-Header : %x,Raw-Data(%u) : "
            " - 0x%02x(%c) - 0x%02x() - 0x%02x(%c) - 0x%02x(%c) - 0x%02x() - 0x%02x()",
            "DATA", "DATA", "DEVICE", "READ", "REQUEST", "STANDARD", 0u, 9u, 5u, 0u, "POWERUP",
            "U16", 3u, 0x1234u, 0x5678u, 0x9abcu, 0xf800485u, 6u, 0x34u, '4', 0x12u, 0x78u, 'x',
            0x56u, 'V', 0xbcu, 0x9au));
        benchmark::DoNotOptimize(text);
    }
};

const bool added = bench::AddPath<Short>("text/short") && bench::AddPath<Long>("text/long") &&
                   bench::AddPath<StreamedShort>("reference/ostringstream_short") &&
                   bench::AddPath<StreamedLong>("reference/ostringstream_long") &&
                   bench::AddPath<Printed>("reference/snprintf_short");

} // namespace
