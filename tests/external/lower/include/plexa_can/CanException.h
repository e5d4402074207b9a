#ifndef LOWER_PLEXA_CAN_CAN_EXCEPTION_H
#define LOWER_PLEXA_CAN_CAN_EXCEPTION_H

#include <Poco/Exception.h>

#include <string>

namespace tarn
{

class CanException : public Poco::Exception
{
public:
    CanException(std::string const& text, int code) : Poco::Exception(text, code) {}
};

} // namespace tarn

#endif
