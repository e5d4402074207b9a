#ifndef TARN_TOOLS_REGISTER_MAP_H
#define TARN_TOOLS_REGISTER_MAP_H

#include <tarn/TarnMessage.h>

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

namespace tarn::tool
{

/// A payload and how it is to be read.
struct RegisterValue {
    TarnMessage::tTarnDataType dataType = TarnMessage::DATATYPE_NOT_A_TYPE;
    std::vector<unsigned char> bytes; ///< 0 to 6, as they travel

    /// The payload of a message; nothing when it has more than 6 bytes.
    static std::optional<RegisterValue> Of(const TarnMessage& message);

    /// Values of the type that goes with the element, as TarnMessage::SetData() has it:
    /// From<unsigned short>({1, 2}) is U16, From<double>({1.5}) FLOAT, From<float>({1.5F}) the
    /// finest S16F that holds it.
    /// @throws std::invalid_argument for values that no message carries
    template <typename Element>
    static RegisterValue From(std::vector<Element> values);

    /// Makes this the payload of a message that has none.
    void PutInto(TarnMessage& message) const;

private:
    static RegisterValue Made(bool taken, const TarnMessage& message);
};

/// The registers of a device and of its modules: typed values with access rights. Any thread may
/// call any operation at any time.
class RegisterMap
{
public:
    enum tAccess : int { READ_ONLY, WRITE_ONLY, READ_WRITE };

    struct Place {
        unsigned char module = 0; ///< 0: the device itself
        unsigned char reg = 0;

        bool operator<(const Place& other) const
        {
            return module != other.module ? module < other.module : reg < other.reg;
        }
    };

    /// Why an access was refused: the status that a device reports; nothing when it was done.
    using Refusal = std::optional<TarnMessage::tTarnRStatus>;

    /// Adds a register, or replaces it. The value says type and size for good.
    /// @throws std::invalid_argument for a value of more than 6 bytes
    void Add(Place place, tAccess access, RegisterValue value);

    /// Adds a register whose value moves: each time it is read, next() says the value, always of
    /// the same type and size. A value that is written to it stays.
    /// @param next is called with the map locked, so one call after another; must not throw
    void AddMoving(Place place, tAccess access, std::function<RegisterValue()> next);

    /// @return STATUS_RESOURCE_NOT_EXISTING, or STATUS_ACCESS_NOT_GRANTED for a write-only register
    Refusal Read(Place place, RegisterValue& value) const;

    /// The value from inside the device, where access rights do not count.
    /// @return nothing for a register that is not there
    std::optional<RegisterValue> Get(Place place) const;

    /// A value fits when type and number of bytes are those of the register; the S16F formats count
    /// as one type, and the register takes over the format.
    /// @return STATUS_RESOURCE_NOT_EXISTING, STATUS_ACCESS_NOT_GRANTED for a read-only register,
    ///     STATUS_FRAME_FAILURE for a value that does not fit
    Refusal Write(Place place, const RegisterValue& value);

    /// Changes a value from inside the device, where access rights do not count.
    /// @return false for a register that is not there and for a value that does not fit
    bool Set(Place place, const RegisterValue& value);

private:
    struct Register {
        tAccess access = READ_ONLY;
        RegisterValue value;
        std::function<RegisterValue()> next; ///< empty for a value that stays

        RegisterValue Now() const { return next ? next() : value; }
    };

    static bool Fits(const RegisterValue& value, const RegisterValue& present);

    mutable std::mutex mMutex;
    std::map<Place, Register> mRegisters;
};

template <typename Element>
RegisterValue RegisterValue::From(std::vector<Element> values)
{
    TarnMessage message;
    const bool taken = message.SetData(values);
    return Made(taken, message);
}

} // namespace tarn::tool

#endif
