#ifndef TARN_TOOLS_PROGRESS_BAR_H
#define TARN_TOOLS_PROGRESS_BAR_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tarn::tool
{

/// "[#########-----------]  45 %  12.3 MB/s  0:07 left", drawn over itself once work takes long.
/// Where the total is not known (0), what was done stands for bar and time left.
class ProgressBar
{
public:
    /// Seconds of work before the bar appears.
    static constexpr double DELAY = 5.0;
    /// Seconds between two drawings.
    static constexpr double PERIOD = 0.2;

    /// What work is counted in.
    struct Unit {
        double size;
        const char* name;
    };
    static constexpr Unit MEGABYTES = {1e6, "MB"};

    /// @param terminal where to draw; null for nowhere
    explicit ProgressBar(std::FILE* terminal, Unit unit = MEGABYTES)
        : mTerminal(terminal),
          mUnit(unit)
    {
    }

    /// Says how far the work is, seconds after it began.
    void Update(std::uint64_t done, std::uint64_t total, double seconds);

    /// Takes the bar away.
    void Clear();

private:
    std::FILE* mTerminal;
    Unit mUnit;
    double mNextDrawing = DELAY;
    bool mVisible = false;
};

/// The bytes of all files; 0 when not all are regular ones.
std::uintmax_t TotalSize(const std::vector<std::string>& files);

/// The text of the bar.
std::string RenderProgress(std::uint64_t done, std::uint64_t total, double seconds,
                           ProgressBar::Unit unit = ProgressBar::MEGABYTES);

} // namespace tarn::tool

#endif
