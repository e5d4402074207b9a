#ifndef PLEXA_CAN_CAN_LOG_READER_H
#define PLEXA_CAN_CAN_LOG_READER_H

#include <plexa_can/CandumpLine.h>
#include <plexa_can/Export.h>
#include <plexa_can/LineReader.h>

#include <cstdint>
#include <memory>
#include <string>

namespace tarn
{

class iLogSource;

/// The forms of a log file.
enum tCanLogForm : int {
    CAN_LOG_CANDUMP, ///< lines of text, as ParseCandumpLine() reads them
    CAN_LOG_PCAP     ///< packets of pcap or pcapng
};

/// Reads the frames of a log one by one, in memory that does not grow with the log. The form is
/// told by the content. For one thread at a time.
///
/// Of pcap, link type CAN_SOCKETCAN (227) is read, and LINUX_SLL (113, a capture on all
/// interfaces). It names no interface; LINUX_SLL alone tells the direction. Time stamps are exact
/// to the nanosecond.
class PLEXA_CAN_API CanLogReader
{
public:
    /// What Next() has returned so far, by kind.
    struct Counters {
        unsigned long long frames;    ///< classical CAN frames of every sort
        unsigned long long fdFrames;  ///< CAN FD frames
        unsigned long long comments;  ///< blank lines and remarks; packets of other protocols
        unsigned long long malformed; ///< damaged lines and packets
    };

    /// Opens the log and reads its beginning.
    /// @param path "-" is standard input
    /// @param beforeRead see LineReader
    /// @throws CanException when the file cannot be opened or read, is damaged at its beginning, or
    ///     is a pcap file of another link type; the message names file, reason and remedy
    explicit CanLogReader(const std::string& path, LineReader::BeforeRead beforeRead = {});
    ~CanLogReader();
    CanLogReader(const CanLogReader&) = delete;
    CanLogReader& operator=(const CanLogReader&) = delete;

    /// The next entry of any kind: a line, or a packet of pcap as candump would write it.
    /// @return false at the end
    /// @throws CanException when the file cannot be read on: reading fails, or a pcap file is
    ///     damaged. All whole entries ahead of the damage were returned before.
    bool Next(CandumpLine& entry);

    /// The next classical CAN frame; everything else on the way to it is only counted.
    /// @return false at the end
    /// @throws CanException as Next() does
    bool NextFrame(CandumpLine& entry);

    /// Up to the last entry that was returned, or counted on the way to it.
    const Counters& GetCounters() const { return mCounters; }
    /// The form that the content showed.
    tCanLogForm GetForm() const { return mForm; }
    /// How messages name the file.
    const std::string& GetName() const { return mInput.GetName(); }
    /// The line or packet of the last entry, counted from 1.
    std::uint64_t GetNumber() const;
    /// The last entry to show to people: the line itself, a frame of pcap as candump writes it, or
    /// the bytes of a damaged packet.
    std::string GetText() const;
    /// Bytes taken from the file, in blocks: more than the entries so far, up to its size.
    std::uint64_t GetBytesRead() const { return mInput.GetBytesRead(); }

private:
    LineReader mInput;
    tCanLogForm mForm;
    std::unique_ptr<iLogSource> mSource;
    Counters mCounters = {};
};

} // namespace tarn

#endif
