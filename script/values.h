// Conversions between the text a script holds in a ScriptParm and the typed
// data area that the encoder and decoder work on. A data area lives only
// while one value is converted; the decoded object reference is the one
// thing that outlives it (it stays in ptr for the caller).
#ifndef ORBELLE_SCRIPT_VALUES_H
#define ORBELLE_SCRIPT_VALUES_H

#include <cstddef>
#include <cstdint>

#include "orbelle/host.h"

class Environment;
class TypeCode;

// A new data area (std::malloc) for the record's type, or null for a type
// that scripts can't convert; error_text then holds the catalogue message.
// The areas of strings and object references start out null.
void *newdataptr(const ScriptParm *parm);

// Room for the data area of every convertible type, kept by the caller (on
// its stack) so that converting the records of a long list allocates nothing
// per record. The area never leaves the library.
union DataArea {
    double number;
    void *pointer;
    unsigned char bytes[8];
};

// As newdataptr, with place as the area: nothing is allocated, place is
// cleared and returned (null, with the same report, for a type that scripts
// can't convert). Goes back through deletedataptr(parm, place).
void *newdataptr(const ScriptParm *parm, DataArea &place);

// Converts strval into area for in and inout records. A bad reference text
// in an object reference record leaves its exception in env.
void putdata(ScriptParm *parm, void *area, Environment &env);

// Converts the area into a new strval (from vumalloc; the former one goes
// back through vufree). For an object reference the area is released and
// ptr takes the reference, which the caller owns from then on.
void getdata(ScriptParm *parm, void *area, Environment &env);
// As getdata on an area in place: an object reference still moves to ptr,
// but place itself is not released.
void getdata(ScriptParm *parm, DataArea &place, Environment &env);

// Releases the area at ptr, with the string or object reference it holds.
// ptr itself is left as it was; callers set it to null.
void deletedataptr(ScriptParm *parm);
// As deletedataptr where ptr is place (or null): the string or reference
// that place holds is released, place itself stays.
void deletedataptr(ScriptParm *parm, DataArea &place);

// Replaces strval by a vumalloc copy of text (length n, no terminator
// needed), giving the former one back through vufree.
void replace_strval(ScriptParm *parm, const char *text, size_t n);

// The standard TypeCode for a record's type (an enum travels as a long),
// borrowed; null for a type outside the convertible set.
TypeCode *get_typecodeptr(int32_t type);

#endif
