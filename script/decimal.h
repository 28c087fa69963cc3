// The two ways script texts are read as 32-bit decimal integers. Both take
// white space, one optional sign and the digits up to the first other
// character; a text without digits reads as 0. They differ past the 32-bit
// range only.
#ifndef ORBELLE_DECIMAL_H
#define ORBELLE_DECIMAL_H

#include <cctype>
#include <cstdint>

// Wraps modulo 2^32, as every value text and script length is read. Null
// reads as 0. Inline: a record of a long sequence costs one of these.
inline int32_t decimal_wrapping(const char *text) {
    if (text == nullptr) return 0;
    const char *p = text;
    // A digit is never white space, and most texts begin with one.
    if (*p < '0' || *p > '9')
        while (std::isspace(static_cast<unsigned char>(*p))) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    uint32_t value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) value = value * 10u + static_cast<uint32_t>(*p - '0');
    if (negative) value = 0u - value;
    return static_cast<int32_t>(value);
}

// Saturates at the 32-bit range, as the sequence lengths of a script's plist
// are read while a parameter list is collected. text must not be null.
int32_t decimal_saturating(const char *text);

#endif
