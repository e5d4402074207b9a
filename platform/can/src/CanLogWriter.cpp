#include "LogSafely.h"
#include "SocketCanPacket.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogWriter.h>

#include <Poco/Error.h>
#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>

namespace tarn
{

namespace
{

constexpr unsigned long long NANOSECONDS = 1000000000u;
constexpr unsigned int DECIMALS = 6;
constexpr unsigned int MAX_DECIMALS = 9;

bool IsPcapName(const std::string& path)
{
    const std::string ending = ".pcap";
    return path.size() >= ending.size() &&
           path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

void RequireInterfaceName(const std::string& name)
{
    const bool printable = std::all_of(name.begin(), name.end(), [](char character) {
        return character > ' ' && character <= '~';
    });
    if (name.empty() || name.size() >= CandumpLine::INTERFACE_SIZE || !printable)
        throw CanException("'" + name +
                           "' is no interface name for a log; give 1 to 15 printable characters "
                           "without blanks");
}

/// The fraction of a second in so many digits, with its point.
std::string Fraction(unsigned long long nanoseconds, unsigned int decimals)
{
    if (decimals == 0)
        return {};
    const std::string digits = std::to_string(NANOSECONDS + nanoseconds % NANOSECONDS);
    return '.' + digits.substr(1, decimals);
}

std::string Seconds(unsigned long long nanoseconds)
{
    constexpr std::size_t WIDTH = 10;
    const std::string digits = std::to_string(nanoseconds / NANOSECONDS);
    return std::string(WIDTH - std::min(WIDTH, digits.size()), '0') + digits;
}

const char* DirectionMark(CandumpLine::tDirection direction)
{
    if (direction == CandumpLine::DIRECTION_UNKNOWN)
        return "";
    return direction == CandumpLine::DIRECTION_RECEIVED ? " R" : " T";
}

struct CloseStream {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

using Stream = std::unique_ptr<std::FILE, CloseStream>;

Stream Created(const std::string& path)
{
    Stream stream(std::fopen(path.c_str(), "we"));
    if (stream == nullptr)
        throw CanException(path + ": cannot create: " + Poco::Error::getMessage(errno) +
                               "; give a path in a folder that can be written",
                           errno);
    return stream;
}

struct ClosePcap {
    void operator()(pcap_t* file) const { pcap_close(file); }
};

} // namespace

class CanLogWriter::Impl
{
public:
    Impl(const std::string& path, const Options& options)
        : mPath(path),
          mOptions(options),
          mForm(IsPcapName(path) ? CAN_LOG_PCAP : CAN_LOG_CANDUMP)
    {
        RequireInterfaceName(options.interfaceName);
        mStream = Created(path);
        if (mForm == CAN_LOG_PCAP)
            BeginPcap();
    }

    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Write(const CandumpLine& entry)
    {
        if (entry.kind != CandumpLine::KIND_FRAME)
            throw CanException(mPath + ": takes classical CAN frames only");
        RequireUsable();
        if (mForm == CAN_LOG_PCAP)
            WritePacket(entry.frame);
        else
            WriteLine(entry);
        RequireWritten(std::ferror(mStream.get()) == 0);
        ++mFrames;
        if (mOptions.flush == FLUSH_EVERY_FRAME)
            Flush();
    }

    void Flush()
    {
        RequireUsable();
        RequireWritten(std::fflush(mStream.get()) == 0);
    }

    void Close()
    {
        if (mStream == nullptr)
            return;
        Flush();
        RequireWritten(std::fclose(mStream.release()) == 0);
    }

    tCanLogForm GetForm() const { return mForm; }
    unsigned long long GetFrames() const { return mFrames; }

private:
    /// Writes the file header. What pcap_dump() takes is the stream itself; pcap_dump_fopen() has
    /// closed it when it fails.
    void BeginPcap()
    {
        mPcap.reset(pcap_open_dead_with_tstamp_precision(DLT_CAN_SOCKETCAN, SOCKET_CAN_PACKET_SIZE,
                                                         PCAP_TSTAMP_PRECISION_NANO));
        if (mPcap == nullptr)
            throw CanException(mPath + ": cannot begin a pcap file: out of memory");
        std::FILE* const stream = mStream.release();
        mDumper = pcap_dump_fopen(mPcap.get(), stream);
        if (mDumper == nullptr)
            throw CanException(mPath + ": cannot begin a pcap file: " + pcap_geterr(mPcap.get()));
        mStream.reset(stream);
    }

    void WritePacket(const CanMessage& frame)
    {
        if (frame.GetTimeStamp() / NANOSECONDS > UINT32_MAX)
            throw CanException(mPath +
                               ": a pcap file has no time stamps after the year 2106; write "
                               "to a file of another name, which becomes a candump log");
        unsigned char bytes[SOCKET_CAN_PACKET_SIZE];
        RenderSocketCanPacket(frame, bytes);
        pcap_pkthdr header = {};
        header.caplen = header.len = sizeof bytes;
        header.ts.tv_sec = static_cast<time_t>(frame.GetTimeStamp() / NANOSECONDS);
        header.ts.tv_usec = static_cast<suseconds_t>(frame.GetTimeStamp() % NANOSECONDS);
        pcap_dump(reinterpret_cast<unsigned char*>(mDumper), &header, bytes);
    }

    void WriteLine(const CandumpLine& entry)
    {
        const unsigned long long time = entry.frame.GetTimeStamp();
        const bool timed = entry.timeForm != CandumpLine::TIME_NONE;
        const unsigned int decimals = timed ? std::min(entry.timeDecimals, MAX_DECIMALS) : DECIMALS;
        const bool named = entry.interfaceName[0] != '\0';
        const std::string line = '(' + Seconds(time) + Fraction(time, decimals) + ") " +
                                 (named ? entry.interfaceName : mOptions.interfaceName.c_str()) +
                                 ' ' + entry.frame.ToString() + DirectionMark(entry.direction) +
                                 '\n';
        std::fwrite(line.data(), 1, line.size(), mStream.get());
    }

    void RequireUsable() const
    {
        if (mStream == nullptr)
            throw CanException(mPath + ": the log is closed; open another");
        if (mError != 0)
            throw Failure();
    }

    void RequireWritten(bool written)
    {
        if (written)
            return;
        mError = errno != 0 ? errno : EIO;
        throw Failure();
    }

    CanException Failure() const
    {
        return CanException(mPath + ": cannot write: " + Poco::Error::getMessage(mError) +
                                "; the log is incomplete, make room and begin another",
                            mError);
    }

    const std::string mPath;
    const Options mOptions;
    const tCanLogForm mForm;
    Stream mStream;
    std::unique_ptr<pcap_t, ClosePcap> mPcap;
    pcap_dumper_t* mDumper = nullptr;
    unsigned long long mFrames = 0;
    int mError = 0;
};

CanLogWriter::CanLogWriter(const std::string& path, const Options& options)
    : mImpl(std::make_unique<Impl>(path, options))
{
}

CanLogWriter::CanLogWriter(const std::string& path) : CanLogWriter(path, Options()) {}

CanLogWriter::~CanLogWriter()
{
    try {
        mImpl->Close();
    } catch (const CanException& failure) {
        LogSafely("CanLogWriter", Poco::Message::PRIO_ERROR, failure.message());
    }
}

void CanLogWriter::Write(const CanMessage& frame)
{
    CandumpLine entry;
    entry.kind = CandumpLine::KIND_FRAME;
    entry.frame = frame;
    mImpl->Write(entry);
}

void CanLogWriter::Write(const CandumpLine& entry)
{
    mImpl->Write(entry);
}

void CanLogWriter::Flush()
{
    mImpl->Flush();
}

void CanLogWriter::Close()
{
    mImpl->Close();
}

tCanLogForm CanLogWriter::GetForm() const
{
    return mImpl->GetForm();
}

unsigned long long CanLogWriter::GetFrames() const
{
    return mImpl->GetFrames();
}

} // namespace tarn
