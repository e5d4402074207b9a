#ifndef PLEXA_CAN_SRC_LINK_MONITOR_H
#define PLEXA_CAN_SRC_LINK_MONITOR_H

#include "CanSystem.h"

#include <plexa_can/SocketCanDispatcher.h>

#include <optional>
#include <string>

namespace tarn
{

/// Tells when network interfaces come, go or change (rtnetlink(7)), and what is the matter with one
/// of them. What netlink announces is taken as a hint to look, not for its content: so a lost or
/// merged message does no harm.
class LinkMonitor
{
public:
    struct Link {
        unsigned int index = 0; ///< 0: there is no such interface
        bool up = false;
        std::optional<tCanBusState> controller; ///< where there is one, and it runs
    };

    /// @throws CanException when the system offers no netlink
    explicit LinkMonitor(iCanSystem& system);
    ~LinkMonitor();
    LinkMonitor(const LinkMonitor&) = delete;
    LinkMonitor& operator=(const LinkMonitor&) = delete;

    /// Readable when something has changed.
    int Descriptor() const { return mDescriptor; }

    /// Takes note of the changes so far.
    void Drain();

    Link Look(const std::string& interface) const;

private:
    std::optional<tCanBusState> AskForController(unsigned int interfaceIndex) const;

    iCanSystem& mSystem;
    int mDescriptor = -1;
};

} // namespace tarn

#endif
