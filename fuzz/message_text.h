#ifndef FUZZ_MESSAGE_TEXT_H
#define FUZZ_MESSAGE_TEXT_H

#include "wire_format.h"

/* The two text forms of a message, in plain C99 and without a line of the library. */

#ifdef __cplusplus
extern "C" {
#endif

enum { MESSAGE_TEXT_ROOM = 1024 };

/* One item a line. */
void WireText(const struct WireMessage* message, char text[MESSAGE_TEXT_ROOM]);

/* All items on one line. */
void WireTextShort(const struct WireMessage* message, char text[MESSAGE_TEXT_ROOM]);

#ifdef __cplusplus
}
#endif

#endif
