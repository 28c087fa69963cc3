#include "script/plain.h"

#include <cstring>

#include "data/cdr.h"
#include "data/typecode.h"
#include "orbelle/host.h"
#include "script/decimal.h"
#include "script/values.h"
#include "trace/host_slots.h"

namespace {
// Reads a value of T's width into a T.
template <typename T>
bool get_value(CDR &s, T *value) {
    switch (sizeof(T)) {
        case 1:
            return s.get_byte(value) != 0;
        case 2:
            return s.get_short(value) != 0;
        case 4:
            return s.get_long(value) != 0;
        default:
            return s.get_longlong(value) != 0;
    }
}

// Reads a T and writes it in decimal just before end; the start, or null.
template <typename T>
char *get_decimal(CDR &s, char *end) {
    T value{};
    return get_value(s, &value) ? format_decimal(end, value) : nullptr;
}
}  // namespace

int put_plain(CDR &s, int32_t type, const char *text) {
    switch (type) {
        case tk_short:
        case tk_ushort:
            return s.put_short(static_cast<uint16_t>(decimal_wrapping(text)));
        case tk_long:
        case tk_ulong:
        case tk_enum:
            return s.put_long(static_cast<uint32_t>(decimal_wrapping(text)));
        case tk_float: {
            float value = static_cast<float>(float_reading(text));
            uint32_t bits;
            std::memcpy(&bits, &value, sizeof bits);
            return s.put_long(bits);
        }
        case tk_double: {
            double value = float_reading(text);
            return s.put_longlong(&value);
        }
        case tk_boolean:
            return s.put_byte(text != nullptr && std::strcmp(text, "1") == 0 ? 1 : 0);
        case tk_char:
            return s.put_byte(text != nullptr ? static_cast<uint8_t>(text[0]) : 0);
        default:
            return 0;
    }
}

const char *get_plain(CDR &s, int32_t type, char (&text)[plain_text_size], size_t *length) {
    char *end = text + plain_text_size;
    char *first = nullptr;
    switch (type) {
        case tk_short:
            first = get_decimal<int16_t>(s, end);
            break;
        case tk_ushort:
            first = get_decimal<uint16_t>(s, end);
            break;
        case tk_long:
        case tk_enum:
            first = get_decimal<int32_t>(s, end);
            break;
        case tk_ulong:
            first = get_decimal<uint32_t>(s, end);
            break;
        case tk_float:
        case tk_double: {
            double value = 0;
            float narrow = 0;
            bool ok = type == tk_float ? get_value(s, &narrow) : get_value(s, &value);
            if (!ok) return nullptr;
            *length = format_fixed(text, type == tk_float ? static_cast<double>(narrow) : value);
            return text;
        }
        case tk_boolean: {
            // Only a byte of exactly 1 is true.
            uint8_t b = 0;
            if (!get_value(s, &b)) return nullptr;
            first = end - 1;
            *first = b == 1 ? '1' : '0';
            break;
        }
        case tk_char: {
            // As "%c" writes it into a text: a zero byte leaves it empty.
            char c = 0;
            if (!get_value(s, &c)) return nullptr;
            first = end;
            if (c != '\0') *--first = c;
            break;
        }
        default:
            break;
    }
    if (first == nullptr) return nullptr;
    *length = static_cast<size_t>(end - first);
    return first;
}

bool get_plain_text(CDR &s, ScriptParm *p) {
    int32_t type = p->type;
    if (is_word_type(type)) {
        uint32_t word = 0;
        if (s.get_long(&word) == 0) return false;
        set_word_text(p, type, word);
        return true;
    }
    char text[plain_text_size];
    size_t length = 0;
    const char *value = get_plain(s, type, text, &length);
    if (value == nullptr) return false;
    replace_strval(p, value, length);
    return true;
}
