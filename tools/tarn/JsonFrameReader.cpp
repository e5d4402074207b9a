#include "JsonFrameReader.h"

#include "Failure.h"
#include "JsonFrame.h"
#include "StopSignal.h"

#include <cstdio>
#include <optional>
#include <string_view>

namespace tarn::tool
{

namespace
{

/// Of every run so many objects are shown that are no message.
constexpr std::uint64_t SHOWN_REFUSALS = 10;

bool IsBlank(std::string_view text)
{
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

} // namespace

void JsonFrameReader::ReadAll(const std::vector<std::string>& files, const Use& use,
                              const std::function<void()>& pause)
{
    for (const std::string& file : files.empty() ? std::vector<std::string>{"-"} : files) {
        if (!ReadFile(file, use, pause))
            return;
    }
}

bool JsonFrameReader::ReadFile(const std::string& file, const Use& use,
                               const std::function<void()>& pause)
{
    LineReader reader(file, [&pause](int descriptor, std::uint64_t) {
        if (!HasInput(descriptor))
            pause();
        return WaitForInput(descriptor);
    });
    InputLine line;
    while (reader.Next(line)) {
        if (!ReadLine(line, reader.GetName(), use))
            return false;
    }
    return CaughtStopSignal() == 0;
}

bool JsonFrameReader::ReadLine(const InputLine& line, const std::string& file, const Use& use)
{
    const std::string_view text(line.text, line.size);
    if (IsBlank(text))
        return true;
    std::optional<CanMessage> frame;
    try {
        frame = ReadJsonFrame(text);
    } catch (const Failure& failure) {
        Refuse(file + ':' + std::to_string(line.number) + ": " + failure.what());
    }
    return !frame || use(*frame);
}

void JsonFrameReader::Refuse(const std::string& text)
{
    if (++mRefusals <= SHOWN_REFUSALS)
        std::fprintf(stderr, "%s: %s\n", mVerb.c_str(), text.c_str());
    if (mRefusals == SHOWN_REFUSALS)
        std::fprintf(stderr, "%s: further objects that are no message are skipped\n",
                     mVerb.c_str());
}

} // namespace tarn::tool
