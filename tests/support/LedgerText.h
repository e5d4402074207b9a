#ifndef TARN_TESTS_SUPPORT_LEDGER_TEXT_H
#define TARN_TESTS_SUPPORT_LEDGER_TEXT_H

#include <plexa_can/iCanBus.h>

#include <string>
#include <utility>

namespace tarn::test
{

/// The figures that are not 0, as "received 3, delivered 3".
inline std::string LedgerText(const CanBusCounters& counters)
{
    const std::pair<const char*, unsigned long long> figures[] = {
        {"received", counters.received},
        {"delivered", counters.delivered},
        {"unheard", counters.unheard},
        {"filtered", counters.filtered},
        {"errorFrames", counters.errorFrames},
        {"droppedByKernel", counters.droppedByKernel},
        {"lost", counters.lost},
        {"duplicated", counters.duplicated},
        {"handlerExceptions", counters.handlerExceptions},
        {"sent", counters.sent},
        {"sendRetries", counters.sendRetries},
        {"sendFailures", counters.sendFailures},
        {"unconfirmed", counters.unconfirmed},
        {"disconnections", counters.disconnections}};
    std::string text;
    for (const auto& figure : figures) {
        if (figure.second != 0)
            text += (text.empty() ? "" : ", ") + std::string(figure.first) + ' ' +
                    std::to_string(figure.second);
    }
    return text;
}

} // namespace tarn::test

#endif
