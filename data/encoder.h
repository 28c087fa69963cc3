// Writes one value, lying in memory as its TypeCode lays it out, to a CDR
// stream. Strings are script text and go out through un_asciify.
#ifndef ORBELLE_ENCODER_H
#define ORBELLE_ENCODER_H

#include "data/typecode.h"

// A valueVisitor: tc the value's type, data its address, data2 unused (0),
// stream the CDR to write to. 1, or 0 with env set (MARSHAL for a stream
// that can't grow, a string over its bound or a kind it can't write;
// BAD_PARAM for a sequence over its bound). What was written before a
// failure stays in the stream.
int encoder(TypeCode *tc, void *data, void *data2, void *stream, Environment &env);

#endif
