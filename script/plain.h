// Plain values: numbers, booleans and chars. Their records go between text
// and the wire without a data area, a TypeCode or a format parse, with the
// same results as putdata and the encoder on the way out, and the decoder
// and getdata on the way back. Nothing here traces: the callers take this
// way only while tracing is off, so that a traced call prints every line.
#ifndef ORBELLE_SCRIPT_PLAIN_H
#define ORBELLE_SCRIPT_PLAIN_H

#include <cstddef>
#include <cstdint>

#include "data/typecode.h"
#include "orbelle/host.h"
#include "script/decimal.h"
#include "trace/host_slots.h"

class CDR;

// Whether records of this type are plain. Inline: every record asks.
inline bool is_plain_type(int32_t type) {
    constexpr uint32_t plain = 1u << tk_short | 1u << tk_ushort | 1u << tk_long | 1u << tk_ulong |
                               1u << tk_enum | 1u << tk_float | 1u << tk_double | 1u << tk_boolean |
                               1u << tk_char;
    return type >= 0 && type < 32 && ((plain >> type) & 1u) != 0;
}

// Reads text (null reads as 0) as putdata does for type and writes the value
// as the encoder does. 0 when the stream can't take it.
int put_plain(CDR &s, int32_t type, const char *text);

// Reads a value of type as the decoder does and writes its text as getdata
// does, somewhere in text (not terminated). The start, with its length in
// *length; null when the stream holds too few bytes.
const char *get_plain(CDR &s, int32_t type, char (&text)[plain_text_size], size_t *length);

// Reads a value of p's plain type as read_plain's callers do and makes its
// text p's strval: the former one goes back through vufree, the new one
// comes from vumalloc (null when the host has no memory). False when the
// stream holds too few bytes.
bool get_plain_text(CDR &s, ScriptParm *p);

// Whether records of this type are read as a 4-byte number.
inline bool is_word_type(int32_t type) {
    return type == tk_long || type == tk_enum || type == tk_ulong;
}

// Makes the decimal text of a number of type (long, enum or unsigned long)
// just read for p its strval, as get_plain_text does, formatted straight
// into the host's block.
inline void set_word_text(ScriptParm *p, int32_t type, uint32_t word) {
    bool negative = type != tk_ulong && static_cast<int32_t>(word) < 0;
    uint32_t magnitude = negative ? 0u - word : word;
    size_t n = decimal_digits(magnitude) + (negative ? 1 : 0);
    if (p->strval != nullptr) vufree(p->strval);
    auto *text = static_cast<char *>(vumalloc(n + 1));
    if (text != nullptr) {
        text[n] = '\0';
        char *first = write_digits(text + n, magnitude);
        if (negative) first[-1] = '-';
    }
    p->strval = text;
}

#endif
