// The two ways script texts are read as 32-bit decimal integers. Both take
// white space, one optional sign and the digits up to the first other
// character; a text without digits reads as 0. They differ past the 32-bit
// range only.
#ifndef ORBELLE_DECIMAL_H
#define ORBELLE_DECIMAL_H

#include <cstdint>

// Wraps modulo 2^32, as every value text and script length is read. Null
// reads as 0.
int32_t decimal_wrapping(const char *text);

// Saturates at the 32-bit range, as the sequence lengths of a script's plist
// are read while a parameter list is collected. text must not be null.
int32_t decimal_saturating(const char *text);

#endif
