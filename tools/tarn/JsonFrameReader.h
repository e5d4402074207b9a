#ifndef TARN_TOOLS_JSON_FRAME_READER_H
#define TARN_TOOLS_JSON_FRAME_READER_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/LineReader.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarn::tool
{

/// Reads the frames of JSON objects, one a line. An object that is no message is told on standard
/// error and skipped.
class JsonFrameReader
{
public:
    /// Takes a frame; returns false when no more are wanted.
    using Use = std::function<bool(CanMessage&)>;

    /// @param verb begins every remark: "tarn encode"
    explicit JsonFrameReader(std::string verb) : mVerb(std::move(verb)) {}

    /// Reads one file after another; - or none is standard input. Ends early on a stop signal.
    /// @param pause called before input is waited for
    /// @throws CanException for a file that cannot be read
    void ReadAll(const std::vector<std::string>& files, const Use& use,
                 const std::function<void()>& pause);

    std::uint64_t CountRefusals() const { return mRefusals; }

private:
    bool ReadFile(const std::string& file, const Use& use, const std::function<void()>& pause);
    bool ReadLine(const InputLine& line, const std::string& file, const Use& use);
    void Refuse(const std::string& text);

    std::string mVerb;
    std::uint64_t mRefusals = 0;
};

} // namespace tarn::tool

#endif
