#ifndef FUZZ_WIRE_FORMAT_ORACLE_H
#define FUZZ_WIRE_FORMAT_ORACLE_H

#include <stdint.h>
#include <string.h>

/* The wire format of a Tarn frame a second time, in plain C and without a line of the library, so
 * that the two can be held against each other. */

struct WireMessage {
    int valid;
    uint32_t identifier;
    unsigned status;
    unsigned type;
    unsigned module;
    unsigned size;
    unsigned char payload[8];
};

#define WIRE_CHCP 0x10000000u
#define WIRE_EXTENDED_MODE 0x00400000u
#define WIRE_HAS_MODULE(id) (((id) & (WIRE_CHCP | WIRE_EXTENDED_MODE)) == WIRE_EXTENDED_MODE)

static inline struct WireMessage WireRead(uint32_t flags, uint32_t identifier,
                                          const unsigned char* data, unsigned size)
{
    struct WireMessage message;
    unsigned trailer = WIRE_HAS_MODULE(identifier) ? 2 : 1;
    memset(&message, 0, sizeof message);
    if ((flags & 5u) != 1u)
        return message;
    if ((identifier & WIRE_CHCP) != 0 && size != 7) {
        message.valid = 1;
        return message;
    }
    if (size < trailer)
        return message;
    message.valid = 1;
    message.identifier = identifier;
    message.size = size - trailer;
    memcpy(message.payload, data, message.size);
    message.status = data[message.size] / 16;
    message.type = data[message.size] % 16;
    if (trailer == 2)
        message.module = data[size - 1];
    return message;
}

/* The number of bytes written to data, or -1 where the message fits no frame. */
static inline int WireWrite(const struct WireMessage* message, unsigned char data[8])
{
    unsigned size = message->size;
    if (size > 6 || ((message->identifier & WIRE_CHCP) != 0 && size != 6))
        return -1;
    memcpy(data, message->payload, size);
    data[size++] = (unsigned char)(message->status * 16 + message->type);
    if (WIRE_HAS_MODULE(message->identifier))
        data[size++] = (unsigned char)message->module;
    return (int)size;
}

/* Bytes of one value of a data type; 0 where the type is none. */
static inline unsigned WireValueBytes(unsigned type)
{
    static const unsigned bytes[16] = {2, 2, 2, 2, 2, 2, 2, 2, 1, 2, 3, 4, 6, 4, 0, 0};
    return bytes[type % 16];
}

/* The number of values that the payload holds; 0 where it is not a whole number of them or fits no
 * frame. */
static inline unsigned WireValues(const struct WireMessage* message)
{
    unsigned bytes = WireValueBytes(message->type);
    if (bytes == 0 || message->size == 0 || message->size > 6 || message->size % bytes != 0)
        return 0;
    return message->size / bytes;
}

#endif
