#ifndef PLEXA_CAN_CAN_EXCEPTION_H
#define PLEXA_CAN_CAN_EXCEPTION_H

#include <plexa_can/Export.h>

#include <Poco/Exception.h>

#include <string>

namespace tarn
{

/// What the CAN layer throws. message() is the text handed in, code() the number: the error number
/// of the operating system where there is one, else 0.
class PLEXA_CAN_API CanException : public Poco::Exception
{
public:
    /// @param text what went wrong, and what to do; becomes message()
    /// @param code the error number, or 0; becomes code()
    explicit CanException(std::string const& text, int code = 0);
    CanException(const CanException& other) = default;            ///< text and code too
    CanException& operator=(const CanException& other) = default; ///< text and code too
    ~CanException() noexcept override;

    const char* name() const noexcept override;      ///< "CAN exception", ahead of message()
    const char* className() const noexcept override; ///< the type, as the compiler encodes it
    Poco::Exception* clone() const override;         ///< a copy, which the caller owns
    void rethrow() const override;                   ///< throws a copy of this very type
};

} // namespace tarn

#endif
