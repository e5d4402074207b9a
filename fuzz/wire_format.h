#ifndef FUZZ_WIRE_FORMAT_H
#define FUZZ_WIRE_FORMAT_H

#include <stdint.h>

/* The wire format of Tarn as docs/wire-format.md tells it, in plain C99 and without a line of the
 * library, so that the two can be held against each other. */

#ifdef __cplusplus
extern "C" {
#endif

enum { WIRE_FRAME_BYTES = 8, WIRE_PAYLOAD_BYTES = 6 };

enum WireType {
    WIRE_U8 = 8,
    WIRE_U16 = 9,
    WIRE_U24 = 10,
    WIRE_U32 = 11,
    WIRE_U48 = 12,
    WIRE_FLOAT = 13
};

struct WireMessage {
    int valid;
    uint32_t identifier;
    unsigned status;
    unsigned type; /* of the payload */
    unsigned module;
    unsigned size; /* of the payload; more than 6 bytes fit no frame */
    unsigned char payload[WIRE_FRAME_BYTES];
};

/* The fields of the identifier. */
unsigned WireSource(uint32_t identifier);
unsigned WireTarget(uint32_t identifier);
unsigned WireRegister(uint32_t identifier);
unsigned WireMode(uint32_t identifier);
unsigned WireDirection(uint32_t identifier);
unsigned WireAccess(uint32_t identifier);
unsigned WireAddressing(uint32_t identifier);
unsigned WirePriority(uint32_t identifier);
unsigned WireIsChcp(uint32_t identifier);
uint32_t WireMac(uint32_t identifier);

/* The fields of a CHCP payload; 0, 0 and 6 where there is none. */
uint32_t WireDeviceCode(const struct WireMessage* message);
unsigned WireChcpId(const struct WireMessage* message);
unsigned WireChcpCommand(const struct WireMessage* message);

/* Reads a frame; flags: bit 0 29-bit identifier, bit 2 error frame. */
struct WireMessage WireRead(uint32_t flags, uint32_t identifier, const unsigned char* data,
                            unsigned size);

/* The number of bytes written to data, or -1 where the message fits no frame. */
int WireWrite(const struct WireMessage* message, unsigned char data[WIRE_FRAME_BYTES]);

/* Bytes of one value of a data type; 0 where the type is none. */
unsigned WireValueBytes(unsigned type);

/* Most values of a data type in a frame. */
unsigned WireMostValues(unsigned type);

/* The number of values that the payload holds; 0 where it is not a whole number of them or fits no
 * frame. */
unsigned WireValues(const struct WireMessage* message);

/* The nth value: an unsigned number, a fixed-point number, a binary32. */
uint64_t WireWhole(const struct WireMessage* message, unsigned n);
double WireFixed(const struct WireMessage* message, unsigned n);
double WireSingle(const struct WireMessage* message);

/* Replaces payload and type. The values must be as many as a frame takes. */
void WirePutWhole(struct WireMessage* message, unsigned type, const uint64_t* values,
                  unsigned count);
void WirePutFixed(struct WireMessage* message, unsigned type, const float* values, unsigned count);
void WirePutSingle(struct WireMessage* message, double value);

/* The format of fixed-point values that the library chooses, or -1. */
int WireChooseFixed(const float* values, unsigned count);

#ifdef __cplusplus
}
#endif

#endif
