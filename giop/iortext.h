// The two text forms of an object reference: "IOR:" and hexadecimal CDR, and
// "iiop:1.0//host:port/key" with backslash escapes in the key.
#ifndef ORBELLE_GIOP_IORTEXT_H
#define ORBELLE_GIOP_IORTEXT_H

#include <cstddef>

#include "giop/objref.h"

// Value of a hexadecimal digit of either case; 0 for any other character.
int hex_digit_value(char c);

// Parse the text behind "IOR:" / "iiop:". Result a new handle, or null: with
// env set on failure; "iiop:" text that is empty is the nil reference and
// leaves env untouched.
objref *parse_ior_text(const char *text, Environment &env);
objref *parse_iiop_text(const char *text, Environment &env);

// Appends the key to out (capacity bytes in all, NUL included) in its
// escaped form; returns the length of the whole text, which exceeds
// capacity - 1 when it did not fit (out is then cut).
size_t escape_key(const octet_seq &key, char *out, size_t used, size_t capacity);

// The reference as text in either form, in a new block that free() releases;
// null with env set on failure.
char *ior_text_of(const objref *obj, Environment &env);
char *iiop_text_of(const objref *obj, Environment &env);

#endif
