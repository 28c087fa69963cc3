// Reads one value from a CDR stream into memory as its TypeCode lays it
// out, allocating (std::malloc) whatever lies behind pointers. Strings are
// turned into script text by asciify.
#ifndef ORBELLE_DECODER_H
#define ORBELLE_DECODER_H

#include "data/typecode.h"

// A valueVisitor: tc the value's type, data storage of valueSize bytes,
// data2 unused, stream the CDR to read (swap set). 1, or 0 with env set
// (MARSHAL when the stream ends early or holds a count it could not back).
// Everything reached through pointers belongs to the caller, also after a
// failure: blocks the decoder allocates are zeroed first, so freeValue can
// always release a value that failed half-way.
int decoder(TypeCode *tc, void *data, void *data2, void *stream, Environment &env);

#endif
