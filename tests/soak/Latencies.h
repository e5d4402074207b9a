#ifndef TESTS_SOAK_LATENCIES_H
#define TESTS_SOAK_LATENCIES_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>

namespace tarn::soak
{

/// The steady clock in nanoseconds, which frames carry as their 8 bytes.
inline long long Nanoseconds()
{
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

/// How long frames were under way, in classes of 5 %, from 100 ns to minutes.
class Latencies : public iCanMessageHandler
{
public:
    ~Latencies() noexcept override {}

    void DispatchResponse(CanMessage& frame) override
    {
        if (frame.GetDataSize() != sizeof(long long))
            return;
        long long sent = 0;
        std::memcpy(&sent, frame.GetBytes(), sizeof sent);
        ++mClasses[ClassOf(Nanoseconds() - sent)];
    }

    void Reset()
    {
        for (auto& count : mClasses)
            count = 0;
    }

    /// In microseconds; so many of 1 are no later.
    double Percentile(double part) const
    {
        unsigned long long all = 0;
        for (const auto& count : mClasses)
            all += count;
        unsigned long long seen = 0;
        for (std::size_t i = 0; i < CLASSES; ++i) {
            seen += mClasses[i];
            if (seen > 0 && static_cast<double>(seen) >= part * static_cast<double>(all))
                return FIRST * std::pow(STEP, static_cast<double>(i + 1)) / 1000;
        }
        return 0;
    }

private:
    static constexpr std::size_t CLASSES = 420;
    static constexpr double FIRST = 100;
    static constexpr double STEP = 1.05;

    static std::size_t ClassOf(long long nanoseconds)
    {
        const double times = static_cast<double>(std::max(nanoseconds, 100ll)) / FIRST;
        const double number = std::log(times) / std::log(STEP);
        return std::min(CLASSES - 1, static_cast<std::size_t>(number));
    }

    std::array<std::atomic<unsigned long long>, CLASSES> mClasses = {};
};

} // namespace tarn::soak

#endif
