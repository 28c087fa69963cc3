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
    bool negative = false;
    // Most texts begin with a digit: only the others are looked at for
    // white space and a sign.
    if (static_cast<unsigned char>(*p) - uint32_t{'0'} >= 10) {
        while (std::isspace(static_cast<unsigned char>(*p))) ++p;
        if (*p == '+' || *p == '-') negative = *p++ == '-';
    }
    uint32_t value = 0;
    // Two digits a step; one unsigned comparison tells a digit, and the
    // second is looked at only behind a first.
    for (;;) {
        uint32_t d0 = static_cast<unsigned char>(p[0]) - uint32_t{'0'};
        if (d0 >= 10) break;
        uint32_t d1 = static_cast<unsigned char>(p[1]) - uint32_t{'0'};
        if (d1 >= 10) {
            value = value * 10u + d0;
            break;
        }
        value = value * 100u + d0 * 10u + d1;
        p += 2;
    }
    return static_cast<int32_t>(negative ? 0u - value : value);
}

// Saturates at the 32-bit range, as the sequence lengths of a script's plist
// are read while a parameter list is collected. text must not be null.
int32_t decimal_saturating(const char *text);

#endif
