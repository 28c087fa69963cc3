#include "script/asciify.h"

#include <cstdlib>
#include <cstring>

#include "trace/trace.h"

namespace {
// The first area is the byte count plus this much; it also serves as the
// smallest growth step.
constexpr size_t area_slack = 8096;

bool is_special(unsigned char c) {
    return c < 0x20 || c >= 0x7F || c == '`' || c == '"' || c == '\\';
}

// Control characters a script writes as they are when no hex run is open.
bool stands_plain(unsigned char c) {
    return c == '\n' || c == '\r' || c == '\t' || c == '"' || c == '\b' || c == '\f';
}

// A growing text. It doubles instead of adding fixed steps, so a long
// value is copied a logarithmic number of times; the text is the same.
class Text {
public:
    explicit Text(size_t first) : size_(first), data_(static_cast<char *>(std::malloc(first))) {}
    ~Text() { std::free(data_); }
    bool ok() const { return data_ != nullptr; }
    // Room for n more characters.
    bool reserve(size_t n) {
        if (size_ - pos_ >= n) return true;
        size_t grown = size_ + (size_ > area_slack ? size_ : area_slack);
        if (grown - pos_ < n) grown = pos_ + n;
        char *moved = static_cast<char *>(std::realloc(data_, grown));
        if (moved == nullptr) return false;
        data_ = moved;
        size_ = grown;
        return true;
    }
    void put(char c) { data_[pos_++] = c; }
    // n characters, for which reserve(n) has made room.
    void put(const void *from, size_t n) {
        std::memcpy(data_ + pos_, from, n);
        pos_ += n;
    }
    char *release() {
        char *text = data_;
        data_ = nullptr;
        return text;
    }

private:
    size_t size_;
    size_t pos_ = 0;
    char *data_;
};

const char hex_digits[] = "0123456789abcdef";

unsigned digit_value(char c, size_t position) {
    auto u = static_cast<unsigned char>(c);
    bool is_hex = (u >= '0' && u <= '9') || (u >= 'a' && u <= 'f') || (u >= 'A' && u <= 'F');
    if (!is_hex) TRACE("un_asciify: expected hex digit at character %zu: '%c'", position, c);
    if (u <= '9') return u - 0x30u;
    if (u <= 'F') return u - 0x37u;
    return u - 0x57u;
}
}  // namespace

char *asciify(const void *bytes, long n) {
    if (bytes == nullptr || n < 0) n = 0;
    const auto *b = static_cast<const unsigned char *>(bytes);
    auto count = static_cast<size_t>(n);
    Text out(count + area_slack);
    if (!out.ok()) return nullptr;
    bool hex = false;
    for (size_t i = 0; i < count; ++i) {
        // At most a backquote and two digits per byte.
        if (!out.reserve(3)) return nullptr;
        unsigned char c = b[i];
        bool special = is_special(c);
        if (!special) {
            if (i != 0 && !hex) {
                // The plain bytes up to the next special one go as they are,
                // in one copy.
                size_t end = i + 1;
                while (end < count && !is_special(b[end])) ++end;
                if (!out.reserve(end - i)) return nullptr;
                out.put(b + i, end - i);
                i = end - 1;
                continue;
            }
            if (i + 1 < count && is_special(b[i + 1])) {
                special = true;  // joins the run that the next byte needs
            } else {
                if (hex) {
                    out.put('`');
                    hex = false;
                }
                out.put(static_cast<char>(c));
                continue;
            }
        }
        if (!hex) {
            if (stands_plain(c)) {
                out.put(static_cast<char>(c));
                continue;
            }
            out.put('`');
            hex = true;
        }
        out.put(hex_digits[c >> 4]);
        out.put(hex_digits[c & 0x0F]);
    }
    if (!out.reserve(2)) return nullptr;
    if (hex) out.put('`');
    out.put('\0');
    return out.release();
}

unsigned char *un_asciify(const char *text, size_t *count) {
    if (count != nullptr) *count = 0;
    if (text == nullptr) return nullptr;
    size_t length = std::strlen(text);
    auto *out = static_cast<unsigned char *>(std::malloc(length + 1));
    if (out == nullptr) return nullptr;
    size_t made = 0;
    bool hex = false;
    for (size_t i = 0; i < length; ++i) {
        char c = text[i];
        if (c == '`') {
            hex = !hex;
        } else if (!hex) {
            // Plain characters up to the next backquote stand for themselves.
            const void *quote = std::memchr(text + i, '`', length - i);
            size_t end = quote != nullptr
                             ? static_cast<size_t>(static_cast<const char *>(quote) - text)
                             : length;
            std::memcpy(out + made, text + i, end - i);
            made += end - i;
            i = end - 1;
        } else {
            if (i + 1 >= length) break;  // half a pair at the end: dropped
            unsigned high = digit_value(c, i);
            unsigned low = digit_value(text[i + 1], i + 1);
            out[made++] = static_cast<unsigned char>(high * 16 + low);
            ++i;
        }
    }
    out[made] = 0;
    if (count != nullptr) *count = made;
    return out;
}
