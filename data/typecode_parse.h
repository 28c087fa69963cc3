// The parser behind TypeCode, shared by the files of the TypeCode unit (typecode.cpp:
// the object and its questions; typecode_walk.cpp: walks over values). It
// reads an encapsulation where it lies to answer size, alignment and layout
// questions. Nothing outside the TypeCode unit uses it.
#ifndef ORBELLE_TYPECODE_PARSE_H
#define ORBELLE_TYPECODE_PARSE_H

#include <cstdint>

#include "data/typecode.h"

namespace tcparse {

// The region that indirections of one parse may point into, and the parse's
// nesting and work so far.
struct Parse {
    const unsigned char *lo;
    const unsigned char *hi;
    uint32_t depth;
    uint32_t steps;
};

// A parse over the whole region the stream's indirections may reach.
Parse parse_over(const CDR &s);
// Raises BAD_TYPECODE; 0.
int bad_typecode(Environment &env);
uint64_t align_up(uint64_t value, uint32_t alignment);
// Kinds whose values have a fixed row in the value table.
bool has_row_size(int32_t kind);
bool has_encapsulation(int32_t kind);
// Opens the encapsulation of tc for reading; false when it has none.
bool open_body(const TypeCode &tc, CDR &s);
// Skips count counted strings (ids and names).
bool skip_strings(CDR &s, int count);
// Reads a union label in the width of the discriminator's kind.
bool read_label(int32_t disc_kind, CDR &s, uint32_t *label);
// value + offset, or null for a null value.
unsigned char *step(void *value, uint64_t offset);
// Moves s over one TypeCode (following an indirection) and gives the size
// and alignment of its values; a non-null target is filled to refer to its
// bytes. false on a malformed TypeCode or a limit passed.
bool nested(Parse &p, TypeCode *target, CDR &s, uint32_t &size, uint32_t &align, Environment &env);
// The rule of the body of a compound kind (struct, except, union, array,
// alias), s standing inside the encapsulation: size and alignment of values.
bool run_rule(Parse &p, int32_t kind, CDR &s, uint32_t &size, uint32_t &align, Environment &env);
// The rule of a union's body (s after the kind and length): its size and
// alignment, and disc_part, the offset of the member behind the discriminator.
bool union_rule(Parse &p, CDR &s, uint32_t &size_out, uint32_t &align_out, uint32_t &disc_part,
                Environment &env);

}  // namespace tcparse

#endif
