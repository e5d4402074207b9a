#ifndef TARN_TOOLS_PROGRESS_BAR_H
#define TARN_TOOLS_PROGRESS_BAR_H

#include <cstdint>
#include <cstdio>
#include <string>

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

    /// @param terminal where to draw; null for nowhere
    explicit ProgressBar(std::FILE* terminal) : mTerminal(terminal) {}

    /// Says how far the work is, seconds after it began.
    void Update(std::uint64_t done, std::uint64_t total, double seconds);

    /// Takes the bar away.
    void Clear();

private:
    std::FILE* mTerminal;
    double mNextDrawing = DELAY;
    bool mVisible = false;
};

/// The text of the bar.
std::string RenderProgress(std::uint64_t done, std::uint64_t total, double seconds);

} // namespace tarn::tool

#endif
