#ifndef TARN_TARN_MESSAGE_H
#define TARN_TARN_MESSAGE_H

#include <plexa_can/CanMessage.h>
#include <tarn/Export.h>

#include <Poco/Mutex.h>

#include <string>
#include <vector>

namespace tarn
{

/// A 24-bit unsigned value in one 32-bit unit: the element of a U24 payload.
struct tarn_u24_t {
    unsigned int value : 24; ///< 0 to 16777215; more is cut to its low 24 bits
};

/// One message of the Tarn protocol, carried in one CAN frame with a 29-bit identifier.
///
/// There are two kinds. A DATA message addresses a register of a device or group and carries up to
/// 6 bytes of typed payload. A CHCP message configures the device named by a 28-bit MAC identifier
/// and carries 6 bytes: a device code, a CHCP identifier and a CHCP command.
///
/// Identifier word (bit 0 is the least significant):
///
///     DATA  28 Type=0 | 27-26 Priority | 25 Addressing | 24 AccessType | 23 Direction
///           | 22 AddressingMode | 21-14 Register | 13-7 TargetAddr | 6-0 SourceAddr
///     CHCP  28 Type=1 | 27-0 ChcpMacID
///
/// The two layouts share their bits, and no accessor but those of ChcpID, ChcpCommand and
/// ChcpDeviceCode asks for the Type: on a CHCP message the DATA getters show bits of the MAC
/// identifier. Bits 29-31 belong to no field; they are kept and handed on as they are.
///
/// Data bytes of the frame: the payload; then one byte with the status (bits 7-4) and the data type
/// (bits 3-0); then, on a DATA message in EXTENDED addressing mode only, the module number.
///
/// Setters return true when they took the value; a refused value changes nothing and is no
/// exception. A range check of an enumeration asks for the upper bound only, so a negative value is
/// taken and masked to the width of its field.
///
/// Threads: every operation but the constructors, the destructor, operator! and one read in
/// GetDataSize() runs under the message's own recursive mutex, so that threads may work on one
/// message at the same time. Copying, assigning and comparing do not lock the *other* message:
/// nobody may change it meanwhile.
///
/// Every operation that locks throws Poco::SystemException, code 0, with the text "cannot lock
/// mutex" (nothing was changed) or "cannot unlock mutex" (the change was made) when the mutex
/// fails. The default constructor locks too. SetModule() and the CHCP setters take the lock once
/// more on their way; where only that fails, SetModule() may have stored the module without the
/// mode, and a CHCP setter may have made a CHCP message without storing its field. None blocks but
/// for that mutex. None logs.
class TARN_API TarnMessage
{
public:
    /// Kind of message.
    enum tTarnMSgType : int {
        TYPE_DATA = 0, ///< reads or writes a register, or answers
        TYPE_CHCP = 1  ///< configures the device of a MAC identifier
    };

    /// Priority on the bus: the lower value wins arbitration among DATA messages.
    enum tTarnMsgPriority : int {
        PRIORITY_SYNC = 0,      ///< goes first
        PRIORITY_EMERGENCY = 1, ///< ahead of CONTROL and DATA
        PRIORITY_CONTROL = 2,   ///< ahead of DATA
        PRIORITY_DATA = 3       ///< goes last; that of a new message
    };

    /// What the target address names.
    enum tTarnAddressing : int {
        ADDRESSING_GROUP = 0, ///< all devices of a group
        ADDRESSING_DEVICE = 1 ///< one device
    };

    /// What is done to the register.
    enum tTarnAccessType : int {
        ACCESS_WRITE = 0, ///< it gets the payload of the request
        ACCESS_READ = 1   ///< its value is the payload of the response
    };

    /// Who speaks: the one who asks, or the one who was asked.
    enum tTarnDirection : int {
        DIRECTION_RESPONSE = 0, ///< an answer, or a report that nobody asked for
        DIRECTION_REQUEST = 1   ///< asks for an answer
    };

    /// Whether a DATA message names a module of the device.
    enum tTarnAddressingMode : int {
        ADDRESSING_MODE_STANDARD = 0, ///< it does not
        ADDRESSING_MODE_EXTENDED = 1  ///< a module number follows the status byte of the frame
    };

    /// The status nibble as a device reports it, and the word for it in texts.
    enum tTarnRStatus : int {
        STATUS_UNKNOWN = 0,                      ///< UNKNOWN
        STATUS_OFFLINE = 1,                      ///< OFFLINE
        STATUS_POWERUP = 2,                      ///< POWERUP
        STATUS_STANDBY = 3,                      ///< STANDBY
        STATUS_STARTUP = 4,                      ///< STARTUP
        STATUS_OPERATING = 5,                    ///< OPERATING
        STATUS_OPERATING_WITH_WARNING = 6,       ///< OPERATING WITH WARNING
        STATUS_OPERATING_WITH_FAILURE = 7,       ///< OPERATING WITH FAILURE
        STATUS_STOPPED_BY_HW_FAILURE = 8,        ///< STOPPED BY HW-FAILURE
        STATUS_STOPPED_BY_EXTERNAL = 9,          ///< STOPPED BY EXTERNAL
        STATUS_STOPPED_BY_INTERNAL = 10,         ///< STOPPED BY INTERNAL
        STATUS_RESOURCE_NOT_EXISTING = 11,       ///< RESOURCE NOT EXISTING
        STATUS_RESOURCE_EXCLUSIVE_RESERVED = 12, ///< RESOURCE EXCLUSIVE RESERVED
        STATUS_RESOURCE_OVERLOADED = 13,         ///< RESOURCE OVERLOADED
        STATUS_FRAME_FAILURE = 14,               ///< FRAME-FAILURE
        STATUS_ACCESS_NOT_GRANTED = 15           ///< ACCESS NOT GRANTED
    };

    /// The same nibble as it is written to a device, 0 to 15. Its values have no names.
    enum tTarnWStatus : int {};

    /// How the payload bytes are to be read; multi-byte values have their least significant byte
    /// first. In S16Ft a signed 16-bit step r stands for the value r * 4^t / 8192.
    enum tTarnDataType : int {
        DATATYPE_S16F0 = 0,      ///< 1 to 3 values, -4 to 3.9998779296875, step 2^-13
        DATATYPE_S16F1 = 1,      ///< 1 to 3 values, -16 to 15.99951171875, step 2^-11
        DATATYPE_S16F2 = 2,      ///< 1 to 3 values, -64 to 63.998046875, step 2^-9
        DATATYPE_S16F3 = 3,      ///< 1 to 3 values, -256 to 255.9921875, step 2^-7
        DATATYPE_S16F4 = 4,      ///< 1 to 3 values, -1024 to 1023.96875, step 2^-5
        DATATYPE_S16F5 = 5,      ///< 1 to 3 values, -4096 to 4095.875, step 2^-3
        DATATYPE_S16F6 = 6,      ///< 1 to 3 values, -16384 to 16383.5, step 0.5
        DATATYPE_S16F7 = 7,      ///< 1 to 3 values, -65536 to 65534, step 2
        DATATYPE_U8 = 8,         ///< 1 to 6 unsigned values of 8 bits
        DATATYPE_U16 = 9,        ///< 1 to 3 unsigned values of 16 bits
        DATATYPE_U24 = 10,       ///< 1 or 2 unsigned values of 24 bits
        DATATYPE_U32 = 11,       ///< 1 unsigned value of 32 bits
        DATATYPE_U48 = 12,       ///< 1 unsigned value of 48 bits
        DATATYPE_FLOAT = 13,     ///< 1 value in IEEE 754 binary32
        DATATYPE_NOT_A_TYPE = 15 ///< no type: every GetData() refuses it
    };

    /// Commands of CHCP messages; what they mean is a matter of the devices.
    enum tTarnChcpCommand : int {
        CHCP_COMMAND_0 = 0,   ///< the device's command 0
        CHCP_COMMAND_1 = 1,   ///< the device's command 1
        CHCP_COMMAND_2 = 2,   ///< the device's command 2
        CHCP_COMMAND_3 = 3,   ///< the device's command 3
        CHCP_COMMAND_4 = 4,   ///< the device's command 4
        CHCP_COMMAND_5 = 5,   ///< the device's command 5
        CHCP_COMMAND_NONE = 6 ///< what the getter returns for "no valid command"; never stored
    };

    /// Device code of a CHCP message. Only its low 32 bits travel.
    enum tTarnDeviceCode : unsigned long long {};

    /// Largest magnitude for which SetData(std::vector<float>&) chooses S16F0, S16F1, ... S16F7.
    static const float S16F0_MAX; ///< 3.9
    static const float S16F1_MAX; ///< 15.9
    static const float S16F2_MAX; ///< 63.9
    static const float S16F3_MAX; ///< 255.9
    static const float S16F4_MAX; ///< 1023.9
    static const float S16F5_MAX; ///< 4095.9
    static const float S16F6_MAX; ///< 16383.9
    static const float S16F7_MAX; ///< 65534.0

    /// @name Object
    /// @{

    /// A valid DATA request without payload: priority DATA, addressing DEVICE, READ, STANDARD mode,
    /// register 0, target 0, source 1, module 0, status 2, data type S16F0. Its identifier word is
    /// 0x0F800001.
    TarnMessage();

    /// A copy, validity included; RawMessageRef() of the copy has a frame of its own.
    TarnMessage(const TarnMessage& other);

    /// Reads a received frame. Never throws on bad input: a frame that is no Tarn message gives an
    /// invalid one (see operator!) whose fields are all 0. Not Tarn are: an error frame, a frame
    /// without the 29-bit flag, a DATA frame too short for its trailing bytes (1, or 2 in EXTENDED
    /// mode). A CHCP frame of other than 7 bytes gives a *valid* DATA message with all fields 0 and
    /// no payload. No upper limit applies: a DATA frame of 8 bytes in STANDARD mode gives 7 payload
    /// bytes, which every GetData() refuses and which cannot be framed again.
    ///
    /// Converts implicitly. The frame is only read; it may go when the constructor has returned.
    TarnMessage(CanMessage& frame); // NOLINT(google-explicit-constructor): client code relies on it

    /// Releases the message's own members; no other thread may be using it.
    virtual ~TarnMessage();

    /// Copies identifier word, status, data type, module and payload. *Not* the validity: an
    /// invalid message stays invalid. Returns nothing, so assignments do not chain.
    void operator=(const TarnMessage& other);

    /// True when identifier word, status, data type, payload and module are equal. Validity and the
    /// frame of RawMessageRef() take no part.
    bool operator==(const TarnMessage& other) const;
    /// The opposite of operator==().
    bool operator!=(TarnMessage& other) const;

    /// True when the message was read from a frame that is no Tarn message. Takes no lock; validity
    /// never changes during the life of a message.
    bool operator!() const;

    /// The frame to send, with the 29-bit flag set. Not an error: module 0 in EXTENDED mode, which
    /// sends a module byte of 0.
    /// @throws std::string "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_DATA :
    ///     mData.size() > 6!" for a DATA message of more than 6 payload bytes, "... : TYPE_CHCP :
    ///     mData.size() != 6!" for a CHCP message of other than 6. The message is unchanged.
    CanMessage RawMessage() const;

    /// The same frame, kept inside the message. The reference lives as long as the message; the
    /// next call on the same message overwrites the frame. Throws what RawMessage() throws, and the
    /// frame is as before then.
    CanMessage& RawMessageRef();

    /// @}
    /// @name Header fields
    /// @{

    /// DATA or CHCP: bit 28 of the identifier word.
    tTarnMSgType GetType() const;
    /// Refuses more than 1. Setting TYPE_CHCP replaces a payload that has not exactly 6 bytes by 6
    /// zero bytes; setting TYPE_DATA keeps the payload.
    bool SetType(tTarnMSgType type);

    /// Bits 26-27.
    tTarnMsgPriority GetPriority() const;
    bool SetPriority(tTarnMsgPriority priority); ///< refuses more than 3

    /// Bit 25: whether the target is a device or a group.
    tTarnAddressing GetAddressing() const;
    bool SetAddressing(tTarnAddressing addressing); ///< refuses more than 1

    /// Bit 24: whether the register is read or written.
    tTarnAccessType GetAccessType() const;
    bool SetAccessType(tTarnAccessType accessType); ///< refuses more than 1

    /// Bit 23: whether this is a request or a response.
    tTarnDirection GetDirection() const;
    bool SetDirection(tTarnDirection direction); ///< refuses more than 1

    /// Bit 22: whether a DATA frame has a module byte.
    tTarnAddressingMode GetAddressingMode() const;
    /// Refuses more than 1. Leaves the module number alone.
    bool SetAddressingMode(tTarnAddressingMode mode);

    /// Bits 14-21: 0 to 255.
    unsigned char GetRegister() const;
    bool SetRegister(unsigned char reg); ///< 0 to 255; never refuses

    /// Bits 7-13: whom the message is for, 0 to 127.
    unsigned char GetTargetAddr() const;
    bool SetTargetAddr(unsigned char address); ///< 0 to 127; refuses more

    /// Bits 0-6: whom the message is from, 0 to 127.
    unsigned char GetSourceAddr() const;
    bool SetSourceAddr(unsigned char address); ///< 0 to 127; refuses more

    /// The module of the device, 0 to 255. It travels in EXTENDED mode alone.
    unsigned char GetModule() const;
    /// 0 to 255; never refuses. Also sets the addressing mode: EXTENDED for a module other than 0,
    /// STANDARD for module 0.
    bool SetModule(unsigned char module);

    /// The high half of the byte behind the payload.
    tTarnRStatus GetRStatus() const;
    /// Refuses more than 16. 16 is taken and stored as 0.
    bool SetRStatus(tTarnRStatus status);

    /// The same nibble as GetRStatus().
    tTarnWStatus GetWStatus() const;
    bool SetWStatus(tTarnWStatus status); ///< as SetRStatus()

    /// The whole identifier word, bits 29-31 included.
    unsigned int GetFullHeader() const;
    /// Stores the word as it is; never refuses. Does not touch the payload, also when the word
    /// turns the message into a CHCP message.
    bool SetFullHeader(unsigned int header);

    /// @}
    /// @name CHCP fields
    /// @{

    /// Bits 0-27 of the identifier word, whatever the type.
    unsigned int GetChcpMacID() const;
    /// Keeps the low 28 bits of the value; never refuses. Does not change the type.
    bool SetChcpMacID(unsigned int mac);

    /// 0 to 127; 0 on a DATA message and on a payload that has not exactly 6 bytes.
    unsigned char GetChcpID() const;
    /// Makes the message a CHCP message (see SetType) and stores 0 to 127. More is refused at once,
    /// without locking.
    bool SetChcpID(unsigned char id);

    /// CHCP_COMMAND_NONE on a DATA message, on a payload that has not exactly 6 bytes, and for a
    /// command byte above 5.
    tTarnChcpCommand GetChcpCommand() const;
    /// Makes the message a CHCP message (see SetType) and stores the low 8 bits of the command.
    /// More than 5 is refused at once, without locking.
    bool SetChcpCommand(tTarnChcpCommand command);

    /// 0 on a DATA message and on a payload that has not exactly 6 bytes.
    tTarnDeviceCode GetChcpDeviceCode() const;
    /// Makes the message a CHCP message (see SetType) and stores the low 32 bits; never refuses.
    bool SetChcpDeviceCode(tTarnDeviceCode code);

    /// @}
    /// @name Payload
    /// SetData() replaces payload and data type, or returns false and changes neither. GetData()
    /// overwrites the caller's vector with the values, or returns false and leaves it alone. The
    /// overload decides how the bytes are read and must fit the data type of the message: the U16
    /// getter refuses a U32 payload.
    ///
    /// A getter also refuses an empty payload, one of more than 6 bytes, and one that is no whole
    /// number of values.
    /// @{

    /// The low half of the byte behind the payload, as it came: 14 and 15 are no types.
    tTarnDataType GetDataType() const;
    /// Refuses more than 15. Only relabels the payload: the same bytes are then read as that type.
    bool SetDataType(tTarnDataType type);

    /// Number of values in the payload by its data type: bytes / 2, 1, 2, 3, 4, 6 for S16F, U8,
    /// U16, U24, U32, U48, rounded down; 0 for a type that is none. For FLOAT it is bytes / 6,
    /// which is 0 for the 4 bytes of a float.
    ///
    /// The number of bytes is read without the lock: call this only while no other thread changes
    /// the payload.
    unsigned int GetDataSize() const;

    bool SetData(std::vector<unsigned char>& values);       ///< U8: 1 to 6 values
    bool GetData(std::vector<unsigned char>& values) const; ///< U8 alone

    bool SetData(std::vector<unsigned short>& values);       ///< U16: 1 to 3 values
    bool GetData(std::vector<unsigned short>& values) const; ///< U16 alone

    bool SetData(std::vector<tarn_u24_t>& values);       ///< U24: 1 or 2 values
    bool GetData(std::vector<tarn_u24_t>& values) const; ///< U24 alone

    bool SetData(std::vector<unsigned int>& values);       ///< U32: 1 value
    bool GetData(std::vector<unsigned int>& values) const; ///< U32 alone

    /// U48: 1 value; bits 48-63 are dropped.
    bool SetData(std::vector<unsigned long long>& values);
    bool GetData(std::vector<unsigned long long>& values) const; ///< U48 alone

    /// FLOAT: 1 value, rounded to the nearest IEEE 754 binary32; beyond its range it becomes
    /// infinite.
    bool SetData(std::vector<double>& values);
    bool GetData(std::vector<double>& values) const; ///< FLOAT alone

    /// S16F: 1 to 3 values in the given format, DATATYPE_S16F0 to DATATYPE_S16F7; any other is
    /// refused. A value is rounded to the nearest step, half away from zero. There is no range
    /// check: a magnitude of more than 32767 steps wraps around. NaN becomes 0; from 2^32 steps on,
    /// infinity included, a positive value becomes step -1 and a negative one step 1.
    bool SetData(std::vector<float>& values, tTarnDataType type);

    /// S16F: 1 to 3 values in the finest format whose limit (S16F0_MAX to S16F7_MAX) holds the
    /// largest magnitude. Refuses a magnitude above 65534 and a NaN as the first value; a NaN
    /// further back becomes 0. Values above 16383.75 and up to 16383.9 choose S16F6 and read back
    /// as -16384.
    bool SetData(std::vector<float>& values);

    /// Reads S16F, exactly, and FLOAT. A FLOAT payload is *appended* to the caller's vector; only
    /// an S16F payload replaces what the vector held.
    bool GetData(std::vector<float>& values) const;

    /// @}
    /// @name Text
    /// Every header field by name, status, data type, the payload decoded by its type and in raw
    /// bytes. The same on every machine: locales have no part in it. A payload that does not fit
    /// its type shows as "Data(0) : ".
    /// @{

    /// One line for each item, without a newline after the last.
    std::string ToString() const;

    /// One line, the items separated by commas. On a CHCP message it begins with a comma.
    std::string ToStringShort() const;

    /// @}

private:
    bool Parse(unsigned int header);
    void Frame(CanMessage& frame) const;

    bool mValid;
    unsigned int mHeader;
    unsigned char mStatus;
    unsigned char mDataType;
    unsigned char mModule;
    std::vector<unsigned char> mData;
    CanMessage mRawMessage;
    mutable Poco::Mutex mMutex;
};

} // namespace tarn

#endif
