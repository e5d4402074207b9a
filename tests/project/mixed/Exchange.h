#ifndef TESTS_PROJECT_MIXED_EXCHANGE_H
#define TESTS_PROJECT_MIXED_EXCHANGE_H

#include <cstddef>
#include <vector>

namespace tarn
{
class TarnMessage;
struct tarn_u24_t;
} // namespace tarn

/// What one translation unit, compiled by its own standard, does with the library's types.
struct Exchange {
    long standard;        ///< __cplusplus
    std::size_t sizes[6]; ///< of the public types
    tarn::TarnMessage* (*make)(unsigned char reg, std::vector<tarn::tarn_u24_t>& values);
    bool (*check)(tarn::TarnMessage& message, unsigned char reg, unsigned int first);
    bool (*catches)(tarn::TarnMessage& message);
};

Exchange Exchange14();
Exchange Exchange20();

#endif
