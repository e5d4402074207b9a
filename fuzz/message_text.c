#include "message_text.h"

#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

static void Add(char text[MESSAGE_TEXT_ROOM], const char* format, ...)
{
    size_t used = strlen(text);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text + used, MESSAGE_TEXT_ROOM - used, format, arguments);
    va_end(arguments);
}

static const char* const TYPES[] = {"DATA", "CHCP"};
static const char* const PRIORITIES[] = {"SYNC", "EMRGENCY", "CONTROL", "DATA"};
static const char* const ADDRESSINGS[] = {"GROUP", "DEVICE"};
static const char* const ACCESSES[] = {"WRITE", "READ"};
static const char* const DIRECTIONS[] = {"RESPONSE", "REQUEST"};
static const char* const MODES[] = {"STANDARD", "EXTENDED"};
static const char* const STATES[] = {"UNKNOWN",
                                     "OFFLINE",
                                     "POWERUP",
                                     "STANDBY",
                                     "STARTUP",
                                     "OPERATING",
                                     "OPERATING WITH WARNING",
                                     "OPERATING WITH FAILURE",
                                     "STOPPED BY HW-FAILURE",
                                     "STOPPED BY EXTERNAL",
                                     "STOPPED BY INTERNAL",
                                     "RESOURCE NOT EXISTING",
                                     "RESOURCE EXCLUSIVE RESERVED",
                                     "RESOURCE OVERLOADED",
                                     "FRAME-FAILURE",
                                     "ACCESS NOT GRANTED"};
static const char* const DATA_TYPES[] = {"S16F0", "S16F1", "S16F2",   "S16F3",     "S16F4", "S16F5",
                                         "S16F6", "S16F7", "U8",      "U16",       "U24",   "U32",
                                         "U48",   "FLOAT", "INVALID", "NOT A TYPE"};

/* How the two forms differ ahead of the payload. */
struct Form {
    const char* word;   /* label and word */
    const char* number; /* label and number */
};

static void AddWord(const struct Form* form, char* text, const char* label, const char* word)
{
    Add(text, form->word, label, word);
}

static void AddNumber(const struct Form* form, char* text, const char* label, unsigned number)
{
    Add(text, form->number, label, number);
}

static void AddFields(const struct Form* form, const struct WireMessage* message, char* text)
{
    uint32_t id = message->identifier;
    AddWord(form, text, "Type:", TYPES[WireIsChcp(id)]);
    AddWord(form, text, "Priority:", PRIORITIES[WirePriority(id)]);
    AddWord(form, text, "Addressing:", ADDRESSINGS[WireAddressing(id)]);
    AddWord(form, text, "AccessType:", ACCESSES[WireAccess(id)]);
    AddWord(form, text, "Direction:", DIRECTIONS[WireDirection(id)]);
    AddWord(form, text, "AddressingMode:", MODES[WireMode(id)]);
    AddNumber(form, text, "Register:", WireRegister(id));
    AddNumber(form, text, "TargetAddr:", WireTarget(id));
    AddNumber(form, text, "SourceAddr:", WireSource(id));
    AddNumber(form, text, "Module:", message->module);
    AddWord(form, text, "Status:", STATES[message->status]);
    AddWord(form, text, "DataType:", DATA_TYPES[message->type]);
}

static void AddValues(const struct WireMessage* message, char* text)
{
    unsigned count = WireValues(message);
    unsigned n;
    Add(text, "Data(%u) : ", count);
    for (n = 0; n < count; ++n) {
        if (message->type < WIRE_U8)
            Add(text, "%g - ", WireFixed(message, n));
        else if (message->type == WIRE_FLOAT)
            Add(text, "%g - ", WireSingle(message));
        else
            Add(text, " 0x%0*" PRIx64 " - ", (int)(2 * WireValueBytes(message->type)),
                WireWhole(message, n));
    }
}

static void AddBytes(const struct WireMessage* message, char* text)
{
    unsigned n;
    Add(text, "Raw-Data(%u) : ", message->size);
    for (n = 0; n < message->size; ++n) {
        unsigned byte = message->payload[n];
        Add(text, " - 0x%02x(", byte);
        if (byte >= ' ' && byte <= '~')
            Add(text, "%c", (int)byte);
        Add(text, ")");
    }
}

static void AddRest(const struct WireMessage* message, char* text, const char* before,
                    const char* after)
{
    if (message->type <= WIRE_FLOAT) {
        Add(text, "%s", before);
        AddValues(message, text);
        Add(text, "%s", after);
    }
    Add(text, "%sRaw-Header : %" PRIx32 "%s%s", before, message->identifier, after, before);
    AddBytes(message, text);
}

void WireText(const struct WireMessage* message, char text[MESSAGE_TEXT_ROOM])
{
    static const struct Form FORM = {"%-17s%s\n", "%-17s%02u\n"};
    text[0] = '\0';
    AddFields(&FORM, message, text);
    AddRest(message, text, "", "\n");
}

void WireTextShort(const struct WireMessage* message, char text[MESSAGE_TEXT_ROOM])
{
    static const struct Form FORM = {",%s %s", ",%s%02u"};
    text[0] = '\0';
    AddFields(&FORM, message, text);
    AddRest(message, text, ",", "");
    if (!WireIsChcp(message->identifier))
        memmove(text, text + 1, strlen(text)); /* a DATA message begins without a comma */
}
