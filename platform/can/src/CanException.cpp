#include <plexa_can/CanException.h>

#include <typeinfo>

namespace tarn
{

CanException::CanException(std::string const& text, int code) : Poco::Exception(text, code) {}

CanException::~CanException() noexcept = default;

const char* CanException::name() const noexcept
{
    return "CAN exception";
}

const char* CanException::className() const noexcept
{
    return typeid(*this).name();
}

Poco::Exception* CanException::clone() const
{
    return new CanException(*this);
}

void CanException::rethrow() const
{
    throw *this;
}

} // namespace tarn
