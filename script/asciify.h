// The byte notation of script text: printable characters stand for
// themselves, other bytes are lower-case hexadecimal pairs between
// backquotes, as in "ab`01`". Every string value crosses between the wire
// and a script through these two functions.
#ifndef ORBELLE_ASCIIFY_H
#define ORBELLE_ASCIIFY_H

#include <cstddef>

// The text of n bytes, NUL-terminated, from std::malloc; the caller frees
// it. A null block or a negative n gives the empty text. Null only when
// memory runs out.
char *asciify(const void *bytes, long n);

// The bytes that text stands for, from std::malloc, with a NUL behind the
// last one; *count (when not null) gets the number of bytes without that NUL,
// zeros included. Never fails on any text: a character that is not a hex
// digit inside backquotes is traced and converted all the same, and a pair
// cut short by the end of the text is dropped. Null only when memory runs out
// (or text is null).
unsigned char *un_asciify(const char *text, size_t *count);

#endif
