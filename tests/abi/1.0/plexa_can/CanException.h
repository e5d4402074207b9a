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
    explicit CanException(std::string const& text, int code = 0);
    CanException(const CanException& other) = default;
    CanException& operator=(const CanException& other) = default;
    ~CanException() noexcept override;

    const char* name() const noexcept override;
    const char* className() const noexcept override;
    Poco::Exception* clone() const override;
    void rethrow() const override;
};

} // namespace tarn

#endif
