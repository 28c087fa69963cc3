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

class CDR;

// Room for the text of any plain value: "%f" of the largest double is 309
// digits, a sign, a point and six decimals.
constexpr size_t plain_text_size = 320;

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

// Writes value in decimal as "%d" would, ending just before end (no
// terminator); the start. The magnitude must fit 32 bits.
char *format_decimal(char *end, int64_t value);

// Writes value as "%f" would into text, terminated; the length.
size_t format_fixed(char (&text)[plain_text_size], double value);

#endif
