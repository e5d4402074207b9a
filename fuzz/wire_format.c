#include "wire_format.h"

#include <math.h>
#include <string.h>

static unsigned Bits(uint32_t word, unsigned lowest, unsigned width)
{
    return (unsigned)(word / ((uint32_t)1 << lowest) % ((uint32_t)1 << width));
}

/* The identifier. */

unsigned WireSource(uint32_t identifier)
{
    return Bits(identifier, 0, 7);
}

unsigned WireTarget(uint32_t identifier)
{
    return Bits(identifier, 7, 7);
}

unsigned WireRegister(uint32_t identifier)
{
    return Bits(identifier, 14, 8);
}

unsigned WireMode(uint32_t identifier)
{
    return Bits(identifier, 22, 1);
}

unsigned WireDirection(uint32_t identifier)
{
    return Bits(identifier, 23, 1);
}

unsigned WireAccess(uint32_t identifier)
{
    return Bits(identifier, 24, 1);
}

unsigned WireAddressing(uint32_t identifier)
{
    return Bits(identifier, 25, 1);
}

unsigned WirePriority(uint32_t identifier)
{
    return Bits(identifier, 26, 2);
}

unsigned WireIsChcp(uint32_t identifier)
{
    return Bits(identifier, 28, 1);
}

uint32_t WireMac(uint32_t identifier)
{
    return Bits(identifier, 0, 28);
}

/* CHCP messages. */

static int HasChcpFields(const struct WireMessage* message)
{
    return WireIsChcp(message->identifier) && message->size == 6;
}

static uint64_t Number(const unsigned char* bytes, unsigned count)
{
    uint64_t number = 0;
    while (count-- > 0)
        number = number * 256 + bytes[count];
    return number;
}

uint32_t WireDeviceCode(const struct WireMessage* message)
{
    return HasChcpFields(message) ? (uint32_t)Number(message->payload, 4) : 0;
}

unsigned WireChcpId(const struct WireMessage* message)
{
    return HasChcpFields(message) ? message->payload[4] % 128u : 0;
}

unsigned WireChcpCommand(const struct WireMessage* message)
{
    return HasChcpFields(message) && message->payload[5] < 6 ? message->payload[5] : 6;
}

/* Frames. */

static unsigned HasModuleByte(uint32_t identifier)
{
    return !WireIsChcp(identifier) && WireMode(identifier) == 1;
}

struct WireMessage WireRead(uint32_t flags, uint32_t identifier, const unsigned char* data,
                            unsigned size)
{
    struct WireMessage message;
    unsigned trailer = 1 + HasModuleByte(identifier);
    memset(&message, 0, sizeof message);
    if (Bits(flags, 0, 1) == 0 || Bits(flags, 2, 1) == 1)
        return message;
    if (WireIsChcp(identifier) ? size != 7 : size < trailer) {
        message.valid = WireIsChcp(identifier) != 0;
        return message;
    }
    message.valid = 1;
    message.identifier = identifier;
    message.size = size - trailer;
    memcpy(message.payload, data, message.size);
    message.status = data[message.size] / 16u;
    message.type = data[message.size] % 16u;
    if (trailer == 2)
        message.module = data[size - 1];
    return message;
}

int WireWrite(const struct WireMessage* message, unsigned char data[WIRE_FRAME_BYTES])
{
    unsigned size = message->size;
    if (size > WIRE_PAYLOAD_BYTES)
        return -1;
    if (WireIsChcp(message->identifier) && size != 6)
        return -1;
    memcpy(data, message->payload, size);
    data[size++] = (unsigned char)(message->status * 16 + message->type);
    if (HasModuleByte(message->identifier))
        data[size++] = (unsigned char)message->module;
    return (int)size;
}

/* Values. */

unsigned WireValueBytes(unsigned type)
{
    static const unsigned BYTES[16] = {2, 2, 2, 2, 2, 2, 2, 2, 1, 2, 3, 4, 6, 4, 0, 0};
    return type < 16 ? BYTES[type] : 0;
}

unsigned WireMostValues(unsigned type)
{
    unsigned bytes = WireValueBytes(type);
    return bytes == 0 ? 0 : WIRE_PAYLOAD_BYTES / bytes;
}

unsigned WireValues(const struct WireMessage* message)
{
    unsigned bytes = WireValueBytes(message->type);
    if (bytes == 0 || message->size % bytes != 0 ||
        message->size / bytes > WireMostValues(message->type))
        return 0;
    return message->size / bytes;
}

uint64_t WireWhole(const struct WireMessage* message, unsigned n)
{
    unsigned bytes = WireValueBytes(message->type);
    return Number(message->payload + n * bytes, bytes);
}

double WireFixed(const struct WireMessage* message, unsigned n)
{
    int step = (int)WireWhole(message, n);
    if (step >= 32768)
        step -= 65536;
    return ldexp(step, (int)(2 * message->type) - 13);
}

/* Sign, exponent and fraction of a binary32 one by one, as IEEE 754 has them. */
double WireSingle(const struct WireMessage* message)
{
    uint32_t bits = (uint32_t)Number(message->payload, 4);
    int exponent = (int)Bits(bits, 23, 8);
    uint32_t fraction = Bits(bits, 0, 23);
    double magnitude;
    if (exponent == 255)
        magnitude = fraction == 0 ? (double)INFINITY : (double)NAN;
    else if (exponent == 0)
        magnitude = ldexp(fraction, -149);
    else
        magnitude = ldexp((double)fraction + 8388608.0, exponent - 150);
    return copysign(magnitude, Bits(bits, 31, 1) == 1 ? -1.0 : 1.0);
}

static void PutNumber(struct WireMessage* message, uint64_t number, unsigned bytes)
{
    for (; bytes > 0; --bytes) {
        message->payload[message->size++] = (unsigned char)(number % 256);
        number /= 256;
    }
}

void WirePutWhole(struct WireMessage* message, unsigned type, const uint64_t* values,
                  unsigned count)
{
    unsigned i;
    message->type = type;
    message->size = 0;
    for (i = 0; i < count; ++i)
        PutNumber(message, values[i], WireValueBytes(type));
}

/* numerator * 2^exponent to the nearest whole number, half up; at most most. */
static uint64_t Rounded(uint64_t numerator, int exponent, uint64_t most)
{
    uint64_t number;
    if (numerator == 0 || exponent < -62)
        return 0;
    if (exponent > 32)
        return most;
    if (exponent >= 0)
        number = numerator << exponent;
    else
        number = (numerator + ((uint64_t)1 << (-exponent - 1))) >> -exponent;
    return number > most ? most : number;
}

/* The low 16 bits of the step that stands for a value. */
static unsigned Step(float value, unsigned format)
{
    uint32_t bits;
    int exponent;
    uint64_t fraction;
    uint64_t magnitude;
    memcpy(&bits, &value, sizeof bits);
    exponent = (int)Bits(bits, 23, 8);
    fraction = Bits(bits, 0, 23);
    if (exponent == 255 && fraction != 0)
        return 0;
    if (exponent == 0)
        exponent = 1;
    else
        fraction += 8388608;
    magnitude = Rounded(fraction, exponent - 150 + 13 - 2 * (int)format, 4294967295u);
    if (Bits(bits, 31, 1) == 1)
        magnitude = 4294967296u - magnitude;
    return (unsigned)(magnitude % 65536);
}

void WirePutFixed(struct WireMessage* message, unsigned type, const float* values, unsigned count)
{
    unsigned i;
    message->type = type;
    message->size = 0;
    for (i = 0; i < count; ++i)
        PutNumber(message, Step(values[i], type), 2);
}

/* The nearest binary32 of a binary64, ties to the even one; any NaN for a NaN. */
static uint32_t Narrowed(double value)
{
    uint64_t bits;
    uint64_t fraction;
    uint64_t rest;
    uint64_t half;
    uint64_t number;
    uint32_t sign;
    int exponent;
    int dropped = 29; /* bits of the fraction */
    memcpy(&bits, &value, sizeof bits);
    sign = (uint32_t)(bits >> 63) << 31;
    exponent = (int)(bits >> 52) % 2048 - 1023 + 127;
    fraction = bits % ((uint64_t)1 << 52);
    if (exponent == 1024 + 127)
        return sign | (fraction == 0 ? 0x7F800000u : 0x7FC00000u);
    if (exponent >= 255)
        return sign | 0x7F800000u;
    if (exponent <= 0) { /* binary32 has it without a leading 1, or as 0 */
        fraction += (uint64_t)1 << 52;
        dropped += 1 - exponent;
        exponent = 0;
        if (dropped > 60)
            return sign;
    }
    number = ((uint64_t)exponent << 23) + (fraction >> dropped);
    rest = fraction % ((uint64_t)1 << dropped);
    half = (uint64_t)1 << (dropped - 1);
    if (rest > half || (rest == half && number % 2 == 1))
        ++number; /* a carry makes the next exponent, and infinity of the largest number */
    return sign | (uint32_t)number;
}

void WirePutSingle(struct WireMessage* message, double value)
{
    message->type = WIRE_FLOAT;
    message->size = 0;
    PutNumber(message, Narrowed(value), 4);
}

int WireChooseFixed(const float* values, unsigned count)
{
    static const float LIMITS[8] = {3.9f,    15.9f,   63.9f,    255.9f,
                                    1023.9f, 4095.9f, 16383.9f, 65534.0f};
    float largest = 0;
    int format;
    unsigned i;
    if (count == 0 || count > WireMostValues(0) || isnan(values[0]))
        return -1;
    for (i = 0; i < count; ++i)
        largest = fmaxf(largest, fabsf(values[i])); /* which leaves NaN out */
    for (format = 0; format < 8; ++format) {
        if (largest <= LIMITS[format])
            return format;
    }
    return -1;
}
