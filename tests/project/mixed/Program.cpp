#include "Exchange.h"

#include <tarn/TarnMessage.h>

#include <cstdio>
#include <cstring>
#include <memory>

namespace
{

int Fail(const char* what, const Exchange& from, const Exchange& to)
{
    std::printf("%s: from C++ %ld to C++ %ld\n", what, from.standard, to.standard);
    return 1;
}

/// A message made by one part of the program is read by the other.
int HandOver(const Exchange& from, const Exchange& to)
{
    std::vector<tarn::tarn_u24_t> values(2);
    values[0].value = 0x123456;
    values[1].value = 0xFFFFFF;
    const std::unique_ptr<tarn::TarnMessage> message(from.make(200, values));
    if (std::memcmp(from.sizes, to.sizes, sizeof from.sizes) != 0)
        return Fail("types differ in size", from, to);
    if (!message || !to.check(*message, 200, 0x123456))
        return Fail("a message was not read", from, to);
    if (to.check(*message, 201, 0x123456))
        return Fail("a wrong register was not noticed", from, to);
    if (!to.catches(*message))
        return Fail("the text thrown by the library was not caught", from, to);
    return 0;
}

} // namespace

int main()
{
#define PART(standard) Exchange##standard(),
    const std::vector<Exchange> parts = {PARTS};
    int failures = 0;
    for (const Exchange& from : parts)
        for (const Exchange& to : parts)
            failures += HandOver(from, to);
    for (const Exchange& part : parts)
        std::printf("C++ %ld\n", part.standard);
    if (parts.size() == 2 && parts[0].standard == parts[1].standard)
        failures += Fail("both parts are of one standard", parts[0], parts[1]);
    return failures;
}
