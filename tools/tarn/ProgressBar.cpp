#include "ProgressBar.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace tarn::tool
{

namespace
{

constexpr std::size_t BAR_WIDTH = 20;
constexpr const char* CLEAR_LINE = "\r\x1b[K";

std::string WithOneDecimal(double value)
{
    std::array<char, 32> text = {};
    std::snprintf(text.data(), text.size(), "%.1f", value);
    return text.data();
}

std::string MinutesAndSeconds(double seconds)
{
    const auto whole = static_cast<unsigned long>(seconds);
    return std::to_string(whole / 60) + (whole % 60 < 10 ? ":0" : ":") + std::to_string(whole % 60);
}

} // namespace

std::string RenderProgress(std::uint64_t done, std::uint64_t total, double seconds,
                           ProgressBar::Unit unit)
{
    const auto work = static_cast<double>(done);
    const double rate = seconds > 0 ? work / seconds : 0;
    const std::string rateText = WithOneDecimal(rate / unit.size) + ' ' + unit.name + "/s";
    if (total == 0 || rate <= 0)
        return WithOneDecimal(work / unit.size) + ' ' + unit.name + "  " + rateText;
    const double share = std::min(1.0, work / static_cast<double>(total));
    const auto filled = static_cast<std::size_t>(share * static_cast<double>(BAR_WIDTH));
    const std::string percent = std::to_string(static_cast<int>(share * 100));
    return '[' + std::string(filled, '#') + std::string(BAR_WIDTH - filled, '-') + "] " +
           std::string(3 - percent.size(), ' ') + percent + " %  " + rateText + "  " +
           MinutesAndSeconds(static_cast<double>(total) * (1 - share) / rate) + " left";
}

void ProgressBar::Update(std::uint64_t done, std::uint64_t total, double seconds)
{
    if (mTerminal == nullptr || seconds < mNextDrawing)
        return;
    mNextDrawing = seconds + PERIOD;
    mVisible = true;
    std::fputs((CLEAR_LINE + RenderProgress(done, total, seconds, mUnit)).c_str(), mTerminal);
    std::fflush(mTerminal);
}

void ProgressBar::Clear()
{
    if (!mVisible)
        return;
    mVisible = false;
    std::fputs(CLEAR_LINE, mTerminal);
    std::fflush(mTerminal);
}

std::uintmax_t TotalSize(const std::vector<std::string>& files)
{
    std::uintmax_t total = 0;
    for (const std::string& file : files) {
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(file, error);
        if (error)
            return 0;
        total += size;
    }
    return total;
}

} // namespace tarn::tool
