#include "MonitorRow.h"

#include "iMessagePrinter.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr std::int64_t RATE_SECONDS = 5;

/// Puts fields behind each other, the one that counts most first.
class KeyBuilder
{
public:
    KeyBuilder& Add(unsigned int value, unsigned int bits)
    {
        mKey = (mKey << bits) | value;
        return *this;
    }

    MonitorRowKey GetKey() const { return mKey; }

private:
    MonitorRowKey mKey = 0;
};

bool IsExtended(const MessageFields& fields)
{
    return fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED;
}

std::string InNumbers(const MessageFields& fields)
{
    static thread_local OutputBuffer out(-1);
    out.PutDecimal(fields.source);
    out.Put(" -> ");
    PutTarget(fields, out);
    return out.TakeText();
}

std::string NameOr(std::string_view name, unsigned int number)
{
    return name.empty() ? std::to_string(number) : std::string(name);
}

std::string TargetOf(const MessageFields& fields, const MessageNames& names)
{
    if (names.target.empty() && fields.addressing == TarnMessage::ADDRESSING_GROUP)
        return 'g' + std::to_string(fields.target);
    return NameOr(names.target, fields.target);
}

/// "pump.drive -> controller": the module stands with the device whose register this is.
std::string InNames(const MessageFields& fields, const MessageNames& names)
{
    const std::string module =
        IsExtended(fields) ? '.' + NameOr(names.module, fields.module) : std::string();
    const bool isResponse = fields.direction == TarnMessage::DIRECTION_RESPONSE;
    return NameOr(names.source, fields.source) + (isResponse ? module : "") + " -> " +
           TargetOf(fields, names) + (isResponse ? "" : module);
}

std::string RegisterOf(const MessageFields& fields, const MessageNames& names)
{
    if (!names.reg.empty())
        return std::string(names.reg);
    static thread_local OutputBuffer out(-1);
    out.PutDecimal(fields.reg);
    out.Put(" (0x");
    out.PutHex(fields.reg, 2);
    out.Put(')');
    return out.TakeText();
}

std::string KindOf(const MessageFields& fields)
{
    const std::string access = fields.accessType == TarnMessage::ACCESS_READ ? "R" : "W";
    return access + (fields.direction == TarnMessage::DIRECTION_REQUEST ? " req" : " rsp");
}

std::string MacOf(const MessageFields& fields, const MessageNames& names)
{
    static thread_local OutputBuffer out(-1);
    out.PutHex(fields.mac, 7);
    if (!names.mac.empty()) {
        out.Put(' ');
        out.Put(names.mac);
    }
    return out.TakeText();
}

bool AreSame(float one, float other)
{
    return one == other || (std::isnan(one) && std::isnan(other));
}

bool IsSameValue(const PayloadValues& one, const PayloadValues& other, std::size_t at)
{
    if (one.kind == PayloadValues::WHOLE)
        return one.whole[at] == other.whole[at];
    return AreSame(one.real[at], other.real[at]);
}

bool AreSameBytes(const MessageFields& one, const MessageFields& other)
{
    return std::equal(one.payload.begin(), one.payload.begin() + one.payloadSize,
                      other.payload.begin(), other.payload.begin() + other.payloadSize);
}

bool HaveSameForm(const MessageFields& one, const MessageFields& other)
{
    return one.values.kind == other.values.kind && one.values.count == other.values.count;
}

} // namespace

MonitorRowKey KeyOf(const MessageFields& fields)
{
    constexpr unsigned int MAC_BITS = 28;
    KeyBuilder key;
    key.Add(fields.type, 1);
    if (fields.IsChcp())
        return key.Add(fields.mac, 63 - MAC_BITS).Add(0, MAC_BITS).GetKey();
    key.Add(fields.source, 7).Add(fields.addressing ^ 1, 1).Add(fields.target, 7);
    key.Add(fields.reg, 8).Add(fields.addressingMode, 1);
    key.Add(IsExtended(fields) ? fields.module : 0, 8);
    key.Add(fields.accessType, 1).Add(fields.direction ^ 1, 1);
    const bool isNoChcp = fields.oddity == MessageFields::ODDITY_CHCP_LENGTH;
    return key.Add(isNoChcp ? 1 : 0, 63 - 34).GetKey();
}

MonitorRow::MonitorRow(const MessageFields& fields, const Installation* names)
    : mNames(names),
      mKey(KeyOf(fields))
{
    const MessageNames known = NamesOf(mNames, fields);
    if (fields.IsChcp()) {
        mAddresses = MacOf(fields, known);
        mKind = "CHCP";
        return;
    }
    mAddresses = mNames == nullptr ? InNumbers(fields) : InNames(fields, known);
    mRegister = RegisterOf(fields, known);
    mKind = KindOf(fields);
}

void MonitorRow::Take(const CanMessage& frame, const MessageFields& fields, Duration now)
{
    if (mCount == 0)
        mFirst = now;
    NoteChanges(fields, now);
    const bool isChange = mCount == 0 || fields.status != mFields.status ||
                          fields.dataType != mFields.dataType || !AreSameBytes(fields, mFields);
    mFrame = frame;
    mFields = fields;
    mLast = now;
    ++mCount;
    Second& second = mMinute.Open(LastMinute<Second>::NumberOf(now - mFirst));
    ++second.count;
    second.number = NumberIn(fields);
    if (!isChange)
        return;
    mChanges.push_front(frame);
    if (mChanges.size() > MOST_CHANGES)
        mChanges.pop_back();
}

void MonitorRow::NoteChanges(const MessageFields& fields, Duration now)
{
    if (mCount == 0 || fields.status != mFields.status)
        mStatusChanged = now;
    if (mCount == 0 || !HaveSameForm(fields, mFields))
        return mValueChanged.fill(now);
    if (fields.values.kind == PayloadValues::NONE && !AreSameBytes(fields, mFields))
        mValueChanged[0] = now;
    for (std::size_t at = 0; at < fields.values.count; ++at) {
        if (!IsSameValue(fields.values, mFields.values, at))
            mValueChanged[at] = now;
    }
}

double MonitorRow::NumberIn(const MessageFields& fields) const
{
    if (fields.values.kind == PayloadValues::NONE || fields.values.count != 1)
        return std::numeric_limits<double>::quiet_NaN();
    const double number = fields.values.kind == PayloadValues::WHOLE
                              ? static_cast<double>(fields.values.whole[0])
                              : static_cast<double>(fields.values.real[0]);
    const InstalledRegister* const entry = NamesOf(mNames, fields).values;
    return entry == nullptr ? number : entry->values.front().Shown(number);
}

bool MonitorRow::HasNumber() const
{
    return mFields.values.kind != PayloadValues::NONE && mFields.values.count == 1;
}

std::optional<double> MonitorRow::GetRate(Duration now) const
{
    const std::int64_t running = LastMinute<Second>::NumberOf(now - mFirst);
    const std::int64_t whole = std::min(running, RATE_SECONDS);
    if (whole == 0)
        return std::nullopt;
    double count = 0;
    for (std::int64_t second = running - whole; second < running; ++second)
        count += mMinute.At(second).count;
    return count / static_cast<double>(whole);
}

MonitorRow::Second MonitorRow::GetSecond(Duration now, std::int64_t ago) const
{
    return mMinute.At(LastMinute<Second>::NumberOf(now - mFirst) - ago);
}

} // namespace tarn::tool
