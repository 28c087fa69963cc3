// A value with its type beside it: what a tk_any value is in memory.
#ifndef ORBELLE_ANY_H
#define ORBELLE_ANY_H

#include <cstdint>

#include "data/typecode.h"

// The record of a tk_any value. It has alignment 1 inside other values, so
// one that lies inside a value is read and written with load_any and
// store_any, never through a cast pointer. The record holds one reference
// on type; with ownsValue set it also owns the block at value.
struct Any {
    TypeCode *type;
    void *value;
    uint32_t ownsValue;

    // tc_null, no value, nothing owned (no reference is taken).
    Any();
    // Stores the three and takes a reference on tc.
    Any(TypeCode *tc, void *address, uint32_t owns);
};

Any load_any(const void *at);
void store_any(void *at, const Any &any);

// Destroys the Any at at, in place: with ownsValue, frees what the value
// owns and the value's block (std::free); then releases the type.
void destroy_any(void *at);

// A visitor that releases what a value owns (texts, element blocks, type
// references, anys, object references), not the block the value lies in.
// Arrays are walked like structs, so their elements' texts are freed too.
int freeValue(TypeCode *tc, void *value1, void *value2, void *context, Environment &env);

#endif
