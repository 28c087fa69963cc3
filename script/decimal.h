// Number texts as scripts hold them: the two ways texts are read as 32-bit
// decimal integers, floating-point texts, and numbers written as "%d" and
// "%f" write them. Both integer readings take white space, one optional sign
// and the digits up to the first other character; a text without digits
// reads as 0. They differ past the 32-bit range only.
#ifndef ORBELLE_DECIMAL_H
#define ORBELLE_DECIMAL_H

#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

// Reads a floating-point number in decimal notation with optional exponent
// after leading white space; the rest is ignored, no number reads as 0.
double float_reading(const char *text);

// Room for the text of any plain value: "%f" of the largest double is 309
// digits, a sign, a point and six decimals.
constexpr size_t plain_text_size = 320;

// The two digits of every number below 100, so that numbers are written
// two digits per division.
struct DigitPairs {
    char text[200];
    constexpr DigitPairs() : text() {
        for (int i = 0; i < 100; ++i) {
            text[2 * i] = static_cast<char>('0' + i / 10);
            text[2 * i + 1] = static_cast<char>('0' + i % 10);
        }
    }
};
inline constexpr DigitPairs digit_pairs;

// Writes the digits of magnitude, ending just before end; the first.
inline char *write_digits(char *end, uint32_t magnitude) {
    char *first = end;
    while (magnitude >= 100) {
        first -= 2;
        std::memcpy(first, digit_pairs.text + 2 * (magnitude % 100), 2);
        magnitude /= 100;
    }
    if (magnitude >= 10) {
        first -= 2;
        std::memcpy(first, digit_pairs.text + 2 * magnitude, 2);
    } else {
        *--first = static_cast<char>('0' + magnitude);
    }
    return first;
}

// Writes value in decimal as "%d" would, ending just before end (no
// terminator); the start. The magnitude must fit 32 bits. Inline, as what
// follows: a record of a long sequence costs one of each.
inline char *format_decimal(char *end, int64_t value) {
    char *first = write_digits(end, static_cast<uint32_t>(value < 0 ? -value : value));
    if (value < 0) *--first = '-';
    return first;
}

// The digits of m in decimal, without a loop: the bit length gives the
// count within one, and one comparison settles it.
inline unsigned decimal_digits(uint32_t m) {
    static constexpr uint32_t powers[] = {1,      10,      100,      1000,      10000,
                                          100000, 1000000, 10000000, 100000000, 1000000000};
    auto bits = static_cast<unsigned>(32 - __builtin_clz(m | 1u));
    unsigned t = bits * 1233u >> 12;  // 1233 / 4096 is just above log10(2)
    // m | 1 makes 0 one digit; it changes no comparison with an even power.
    return t + ((m | 1u) >= powers[t] ? 1u : 0u);
}

// Writes value as "%f" would into text, terminated; the length.
size_t format_fixed(char (&text)[plain_text_size], double value);

#endif
