#ifndef PLEXA_CAN_CAN_LOG_WRITER_H
#define PLEXA_CAN_CAN_LOG_WRITER_H

#include <plexa_can/CanLogReader.h>
#include <plexa_can/CandumpLine.h>
#include <plexa_can/Export.h>

#include <memory>
#include <string>

namespace tarn
{

/// Writes a log: pcap (link type CAN_SOCKETCAN, nanoseconds) when the name of the file ends in
/// ".pcap", else lines as candump -l writes them. For one thread at a time.
///
/// A frame is never lost in silence: the call that could not hand it to the system throws, and so
/// does every later one, since the file may end amid a frame. Close() is the last chance to learn
/// of it; the destructor closes too, and can only log a failure (to the logger "CanLogWriter").
class PLEXA_CAN_API CanLogWriter
{
public:
    /// When frames are handed to the system.
    enum tFlush : int {
        FLUSH_WHEN_FULL,  ///< in large blocks; the last one at Flush() or Close()
        FLUSH_EVERY_FRAME ///< so that a frame is in the file when Write() has returned
    };

    /// How a log is written.
    struct Options {
        /// For frames that name no interface: 1 to 15 printable characters.
        std::string interfaceName = "can0";
        tFlush flush = FLUSH_WHEN_FULL; ///< in blocks, or each at once
    };

    /// Makes the file, or empties the one that is there.
    /// @throws CanException when it cannot, or the options are refused
    CanLogWriter(const std::string& path, const Options& options);
    /// The same with the options as they are by default.
    explicit CanLogWriter(const std::string& path);
    /// Closes; a failure is only logged.
    ~CanLogWriter();
    CanLogWriter(const CanLogWriter&) = delete;
    CanLogWriter& operator=(const CanLogWriter&) = delete;

    /// Appends a frame. In the text form time stamps have six decimals; what is below a microsecond
    /// is cut off.
    /// @throws CanException when the system does not take it, or after Close()
    void Write(const CanMessage& frame);

    /// Appends the frame of an entry of another log, in the text form with its interface,
    /// direction and decimals. Pcap keeps none of these three.
    /// @throws CanException as above, and for an entry that is no classical CAN frame
    void Write(const CandumpLine& entry);

    /// Hands everything over to the system.
    /// @throws CanException when it does not take it
    void Flush();

    /// Flush(), then no more. A second call does nothing.
    /// @throws CanException as Flush()
    void Close();

    /// The form that the name of the file chose.
    tCanLogForm GetForm() const;
    /// Frames that Write() took.
    unsigned long long GetFrames() const;

private:
    class Impl;

    std::unique_ptr<Impl> mImpl;
};

} // namespace tarn

#endif
