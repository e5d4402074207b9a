#ifndef TARN_TOOLS_MONITOR_ROW_H
#define TARN_TOOLS_MONITOR_ROW_H

#include "LastMinute.h"
#include "MessageFields.h"
#include "MessageNames.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <deque>
#include <limits>
#include <optional>
#include <string>

namespace tarn::tool
{

/// Tells the messages of a row from those of all others, and orders rows by source, target,
/// register and module; rows of CHCP messages come last, by MAC identifier.
using MonitorRowKey = std::uint64_t;

MonitorRowKey KeyOf(const MessageFields& fields);

/// The messages that go from one source to one target about one register of one module, requests
/// and responses, READ and WRITE apart; or the CHCP messages about one MAC identifier. Times count
/// from the beginning of the listening.
class MonitorRow
{
public:
    /// Changes that are kept.
    static constexpr std::size_t MOST_CHANGES = 100;
    /// How long a change is new.
    static constexpr Duration NEW = std::chrono::seconds(1);

    struct Second {
        std::uint32_t count = 0;
        /// The last value of a message that has one number; NaN for none.
        double number = std::numeric_limits<double>::quiet_NaN();
    };

    /// @param names may be null, otherwise they outlive this object
    MonitorRow(const MessageFields& fields, const Installation* names);

    /// Takes the next message of this row, which was read from the frame.
    void Take(const CanMessage& frame, const MessageFields& fields, Duration now);

    MonitorRowKey GetKey() const { return mKey; }

    /// "5 -> g1.3", "pump -> all actuators", "0ABCDEF pump": who tells whom.
    const std::string& GetAddresses() const { return mAddresses; }
    /// "16 (0x10)", "speed"; empty for CHCP.
    const std::string& GetRegister() const { return mRegister; }
    /// "R req", "W rsp", "CHCP".
    const std::string& GetKind() const { return mKind; }

    /// The last message.
    const CanMessage& GetFrame() const { return mFrame; }
    const MessageFields& GetFields() const { return mFields; }

    std::uint64_t GetCount() const { return mCount; }
    Duration GetFirst() const { return mFirst; }
    Duration GetAge(Duration now) const { return now - mLast; }

    /// Messages a second, over the last five whole seconds of this row; of a shorter time while
    /// there is no more, nothing within the first second.
    std::optional<double> GetRate(Duration now) const;

    /// The second that is so many seconds ago; 0 is the one that is running.
    Second GetSecond(Duration now, std::int64_t ago) const;

    /// True when the message has one number, which the last minute then shows; else its rate.
    bool HasNumber() const;

    bool IsStatusNew(Duration now) const { return now - mStatusChanged < NEW; }
    bool IsValueNew(std::size_t at, Duration now) const { return now - mValueChanged[at] < NEW; }

    /// Messages that differ from the one before, the newest first; the first of all is the oldest.
    const std::deque<CanMessage>& GetChanges() const { return mChanges; }

private:
    void NoteChanges(const MessageFields& fields, Duration now);
    double NumberIn(const MessageFields& fields) const;

    const Installation* mNames;
    MonitorRowKey mKey;
    std::string mAddresses;
    std::string mRegister;
    std::string mKind;
    CanMessage mFrame;
    MessageFields mFields;
    std::uint64_t mCount = 0;
    Duration mFirst = Duration::zero();
    Duration mLast = Duration::zero();
    Duration mStatusChanged = Duration::zero();
    /// A payload without values, and CHCP fields, count as one value.
    std::array<Duration, 6> mValueChanged = {};
    LastMinute<Second> mMinute;
    std::deque<CanMessage> mChanges;
};

} // namespace tarn::tool

#endif
