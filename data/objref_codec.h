// Object references belong to the transport layer, which registers their
// wire form here at start-up; the encoder, decoder and freeValue reach
// kind tk_objref only through these hooks. Until they are registered an
// object reference fails with MARSHAL (and freeValue leaves it alone).
#ifndef ORBELLE_OBJREF_CODEC_H
#define ORBELLE_OBJREF_CODEC_H

#include "data/cdr.h"
#include "data/environment.h"

class TypeCode;

// Writes the reference (the pointer value held in a tk_objref slot; may be
// null for the nil reference) to stream. 1, or 0 with env set.
using objref_encode_fn = int (*)(TypeCode *tc, void *objref, CDR &stream, Environment &env);
// Reads a reference from stream into *objref (null for the nil reference).
// 1, or 0 with env set; *objref is left null on failure.
using objref_decode_fn = int (*)(TypeCode *tc, void **objref, CDR &stream, Environment &env);
// Gives up a reference that a decoded value held. Accepts null.
using objref_release_fn = void (*)(void *objref);

struct ObjrefCodec {
    objref_encode_fn encode;
    objref_decode_fn decode;
    objref_release_fn release;
};

// Registers the hooks; a codec of nulls removes them.
void set_objref_codec(const ObjrefCodec &codec);
const ObjrefCodec &objref_codec();

#endif
