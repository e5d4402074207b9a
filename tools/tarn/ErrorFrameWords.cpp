#include "ErrorFrameWords.h"

#include <array>
#include <cstddef>
#include <linux/can/error.h>
#include <string_view>

namespace tarn::tool
{

namespace
{

/// CAN_ERR_CNT of newer headers: the counters stand in bytes 6 and 7.
constexpr unsigned int COUNTERS_ARE_THERE = 0x200;
constexpr std::size_t TRANSMIT_COUNTER = 6;
constexpr std::size_t RECEIVE_COUNTER = 7;

struct Bit {
    unsigned int mask;
    std::string_view words;
};

constexpr Bit CONTROLLER_BITS[] = {
    {CAN_ERR_CRTL_RX_OVERFLOW, "receive buffer overflow"},
    {CAN_ERR_CRTL_TX_OVERFLOW, "transmit buffer overflow"},
    {CAN_ERR_CRTL_RX_WARNING, "receive error warning"},
    {CAN_ERR_CRTL_TX_WARNING, "transmit error warning"},
    {CAN_ERR_CRTL_RX_PASSIVE, "receive error-passive"},
    {CAN_ERR_CRTL_TX_PASSIVE, "transmit error-passive"},
    {CAN_ERR_CRTL_ACTIVE, "error-active again"},
};

constexpr Bit PROTOCOL_BITS[] = {
    {CAN_ERR_PROT_BIT, "single bit error"},
    {CAN_ERR_PROT_FORM, "form error"},
    {CAN_ERR_PROT_STUFF, "stuff error"},
    {CAN_ERR_PROT_BIT0, "dominant bit could not be sent"},
    {CAN_ERR_PROT_BIT1, "recessive bit could not be sent"},
    {CAN_ERR_PROT_OVERLOAD, "overload"},
    {CAN_ERR_PROT_ACTIVE, "active error announcement"},
    {CAN_ERR_PROT_TX, "while sending"},
};

constexpr Bit LOCATIONS[] = {
    {CAN_ERR_PROT_LOC_SOF, "start of frame"},
    {CAN_ERR_PROT_LOC_ID28_21, "identifier bits 28 to 21"},
    {CAN_ERR_PROT_LOC_ID20_18, "identifier bits 20 to 18"},
    {CAN_ERR_PROT_LOC_SRTR, "substitute remote request bit"},
    {CAN_ERR_PROT_LOC_IDE, "identifier extension bit"},
    {CAN_ERR_PROT_LOC_ID17_13, "identifier bits 17 to 13"},
    {CAN_ERR_PROT_LOC_ID12_05, "identifier bits 12 to 5"},
    {CAN_ERR_PROT_LOC_ID04_00, "identifier bits 4 to 0"},
    {CAN_ERR_PROT_LOC_RTR, "remote request bit"},
    {CAN_ERR_PROT_LOC_RES1, "reserved bit 1"},
    {CAN_ERR_PROT_LOC_RES0, "reserved bit 0"},
    {CAN_ERR_PROT_LOC_DLC, "length code"},
    {CAN_ERR_PROT_LOC_DATA, "data"},
    {CAN_ERR_PROT_LOC_CRC_SEQ, "checksum"},
    {CAN_ERR_PROT_LOC_CRC_DEL, "checksum delimiter"},
    {CAN_ERR_PROT_LOC_ACK, "acknowledge slot"},
    {CAN_ERR_PROT_LOC_ACK_DEL, "acknowledge delimiter"},
    {CAN_ERR_PROT_LOC_EOF, "end of frame"},
    {CAN_ERR_PROT_LOC_INTERM, "intermission"},
};

constexpr Bit TRANSCEIVER_STATES[] = {
    {CAN_ERR_TRX_CANH_NO_WIRE, "CANH: no wire"},
    {CAN_ERR_TRX_CANH_SHORT_TO_BAT, "CANH: short to battery"},
    {CAN_ERR_TRX_CANH_SHORT_TO_VCC, "CANH: short to supply"},
    {CAN_ERR_TRX_CANH_SHORT_TO_GND, "CANH: short to ground"},
    {CAN_ERR_TRX_CANL_NO_WIRE, "CANL: no wire"},
    {CAN_ERR_TRX_CANL_SHORT_TO_BAT, "CANL: short to battery"},
    {CAN_ERR_TRX_CANL_SHORT_TO_VCC, "CANL: short to supply"},
    {CAN_ERR_TRX_CANL_SHORT_TO_GND, "CANL: short to ground"},
    {CAN_ERR_TRX_CANL_SHORT_TO_CANH, "CANL: short to CANH"},
};

template <std::size_t COUNT>
std::string WordsOfBits(unsigned int bits, const Bit (&table)[COUNT])
{
    std::string words;
    for (const Bit& bit : table) {
        if ((bits & bit.mask) != 0)
            words.append(words.empty() ? ": " : ", ").append(bit.words);
    }
    return words;
}

template <std::size_t COUNT>
std::string_view WordOfValue(unsigned int value, const Bit (&table)[COUNT])
{
    for (const Bit& entry : table) {
        if (entry.mask == value)
            return entry.words;
    }
    return {};
}

/// The data bytes of an error frame; those that it lacks are 0.
using Bytes = std::array<unsigned int, CanMessage::MAX_DATA_SIZE>;

Bytes BytesOf(const CanMessage& frame)
{
    Bytes bytes = {};
    for (std::size_t at = 0; at < frame.GetDataSize(); ++at)
        bytes[at] = frame.GetBytes()[at];
    return bytes;
}

std::string Protocol(const Bytes& bytes)
{
    std::string words = "protocol" + WordsOfBits(bytes[2], PROTOCOL_BITS);
    const std::string_view location = WordOfValue(bytes[3], LOCATIONS);
    return location.empty() ? words : words.append(", at the ").append(location);
}

std::string Transceiver(const Bytes& bytes)
{
    const std::string_view state = WordOfValue(bytes[4], TRANSCEIVER_STATES);
    return state.empty() ? "transceiver" : "transceiver: " + std::string(state);
}

std::string LostArbitration(const Bytes& bytes)
{
    const std::string bit = bytes[0] == CAN_ERR_LOSTARB_UNSPEC ? "" : std::to_string(bytes[0]);
    return bit.empty() ? "arbitration lost" : "arbitration lost at bit " + bit;
}

class Description
{
public:
    explicit Description(unsigned int classes) : mClasses(classes) {}

    void Add(unsigned int errorClass, const std::string& words)
    {
        if ((mClasses & errorClass) != 0)
            mText.append(mText.empty() ? "" : "; ").append(words);
    }

    std::string Text() const { return mText.empty() ? "of an unknown kind" : mText; }

private:
    unsigned int mClasses;
    std::string mText;
};

} // namespace

std::string DescribeErrorFrame(const CanMessage& frame)
{
    const Bytes bytes = BytesOf(frame);
    Description description(frame.GetHeader());
    description.Add(CAN_ERR_BUSOFF, "bus-off");
    description.Add(CAN_ERR_RESTARTED, "restarted after bus-off");
    description.Add(CAN_ERR_CRTL, "controller" + WordsOfBits(bytes[1], CONTROLLER_BITS));
    description.Add(CAN_ERR_PROT, Protocol(bytes));
    description.Add(CAN_ERR_ACK, "nobody acknowledged");
    description.Add(CAN_ERR_TX_TIMEOUT, "transmit time-out");
    description.Add(CAN_ERR_LOSTARB, LostArbitration(bytes));
    description.Add(CAN_ERR_TRX, Transceiver(bytes));
    description.Add(CAN_ERR_BUSERROR, "bus error");
    if (const auto counters = ErrorCountersOf(frame))
        description.Add(COUNTERS_ARE_THERE, "counters: transmit " +
                                                std::to_string(counters->transmit) + ", receive " +
                                                std::to_string(counters->receive));
    return description.Text();
}

std::optional<ErrorCounters> ErrorCountersOf(const CanMessage& frame)
{
    if (!frame.HasError() || (frame.GetHeader() & COUNTERS_ARE_THERE) == 0)
        return std::nullopt;
    const Bytes bytes = BytesOf(frame);
    return ErrorCounters{bytes[TRANSMIT_COUNTER], bytes[RECEIVE_COUNTER]};
}

} // namespace tarn::tool
