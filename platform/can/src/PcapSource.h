#ifndef PLEXA_CAN_SRC_PCAP_SOURCE_H
#define PLEXA_CAN_SRC_PCAP_SOURCE_H

#include "iLogSource.h"

#include <plexa_can/CandumpLine.h>

#include <pcap/pcap.h>

#include <exception>
#include <memory>
#include <string>

namespace tarn
{

class LineReader;

/// The packets of a pcap or pcapng file.
class PcapSource : public iLogSource
{
public:
    /// True when the input begins as a pcap or pcapng file does.
    static bool Recognizes(LineReader& input);

    /// @throws CanException when the file header is damaged or of a link type without CAN frames
    explicit PcapSource(LineReader& input);

    bool Next(CandumpLine& entry) override;
    std::uint64_t GetNumber() const override { return mNumber; }
    std::string GetText() const override;

private:
    struct Close {
        void operator()(pcap_t* file) const { pcap_close(file); }
    };

    static ssize_t ReadFrom(void* source, char* bytes, std::size_t size) noexcept;
    void Open();
    void RequireCan() const;
    [[noreturn]] void Fail(const std::string& reason) const;

    LineReader& mInput;
    const unsigned int mTimeDecimals;
    std::exception_ptr mReadFailure; ///< may not pass through the library
    std::unique_ptr<pcap_t, Close> mFile;
    std::uint64_t mNumber = 0;
    const unsigned char* mBytes = nullptr; ///< of the last packet
    std::size_t mSize = 0;
    CandumpLine::tKind mKind = CandumpLine::KIND_COMMENT;
    CanMessage mFrame;
};

} // namespace tarn

#endif
