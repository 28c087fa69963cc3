#include "tools/runner/event_reader.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>

namespace runner {
namespace {

class Reader {
public:
    explicit Reader(std::string_view text) : s_(text) {}

    void blanks() {
        while (i_ < s_.size() && (s_[i_] == ' ' || s_[i_] == '\t' || s_[i_] == '\r')) ++i_;
    }
    bool take(char c) {
        blanks();
        if (i_ >= s_.size() || s_[i_] != c) return false;
        ++i_;
        return true;
    }
    bool at_end() {
        blanks();
        return i_ == s_.size();
    }
    char peek() {
        blanks();
        return i_ < s_.size() ? s_[i_] : '\0';
    }

    // A key: a string without escapes (a key with one is no key of ours,
    // and is read and passed over).
    bool key(std::string_view &out) {
        if (!take('"')) return false;
        size_t start = i_;
        while (i_ < s_.size() && s_[i_] != '"' && s_[i_] != '\\' &&
               static_cast<unsigned char>(s_[i_]) >= 0x20)
            ++i_;
        if (i_ < s_.size() && s_[i_] == '"') {
            out = s_.substr(start, i_++ - start);
            return true;
        }
        i_ = start - 1;
        thread_local std::string escaped;
        out = "\\";  // matches none of ours
        return string(escaped);
    }

    bool string(std::string &out) {
        out.clear();
        if (!take('"')) return false;
        while (i_ < s_.size()) {
            // The run of plain characters, in one append.
            size_t plain = i_;
            while (plain < s_.size() && s_[plain] != '"' && s_[plain] != '\\' &&
                   static_cast<unsigned char>(s_[plain]) >= 0x20)
                ++plain;
            out.append(s_.data() + i_, plain - i_);
            i_ = plain;
            if (i_ == s_.size()) return false;
            char c = s_[i_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < 0x20) return false;
            if (c != '\\') {
                out += c;
                continue;
            }
            if (i_ >= s_.size()) return false;
            char e = s_[i_++];
            switch (e) {
                case '"':
                case '\\':
                case '/':
                    out += e;
                    break;
                case 'b':
                    out += '\b';
                    break;
                case 'f':
                    out += '\f';
                    break;
                case 'n':
                    out += '\n';
                    break;
                case 'r':
                    out += '\r';
                    break;
                case 't':
                    out += '\t';
                    break;
                case 'u': {
                    unsigned cp = 0;
                    if (!hex4(cp)) return false;
                    if (cp >= 0xD800 && cp < 0xDC00 && s_.substr(i_, 2) == "\\u") {
                        i_ += 2;
                        unsigned low = 0;
                        if (!hex4(low) || low < 0xDC00 || low > 0xDFFF) return false;
                        cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
                    } else if (cp >= 0xD800 && cp < 0xE000) {
                        cp = 0xFFFD;  // a lone surrogate
                    }
                    utf8(cp, out);
                    break;
                }
                default:
                    return false;
            }
        }
        return false;
    }

    // A number as text, checked against JSON's grammar loosely
    // (from_chars decides what it is worth).
    bool number(double &out) {
        blanks();
        size_t start = i_;
        while (i_ < s_.size() && is_number_char(s_[i_])) ++i_;
        if (i_ == start || i_ - start > 40) return false;
        const char *first = s_.data() + start, *last = s_.data() + i_;
        if (*first == '+') return false;  // strtod's, not JSON's
        if (fixed_point(first, last, out)) return true;
        auto [end, error] = std::from_chars(first, last, out);
        return error == std::errc() && end == last;
    }

    bool word(const char *w) {
        blanks();
        size_t n = std::strlen(w);
        if (s_.substr(i_, n) != w) return false;
        i_ += n;
        return true;
    }

private:
    // What the writer writes: digits with up to 15 of them, a point and
    // decimals at most; their value is the quotient of two numbers that a
    // double holds exactly, rounded once, as from_chars would round it.
    static bool fixed_point(const char *first, const char *last, double &out) {
        static const double tens[] = {1,   1e1, 1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                      1e8, 1e9, 1e10, 1e11, 1e12, 1e13, 1e14, 1e15};
        bool negative = *first == '-';
        const char *p = first + negative;
        int64_t mantissa = 0;
        int digits = 0, decimals = -1;
        for (; p != last; ++p) {
            if (*p == '.' && decimals < 0) {
                decimals = 0;
                continue;
            }
            if (*p < '0' || *p > '9' || ++digits > 15) return false;
            mantissa = mantissa * 10 + (*p - '0');
            if (decimals >= 0) ++decimals;
        }
        if (digits == 0 || decimals == 0) return false;
        out = static_cast<double>(mantissa) / tens[decimals < 0 ? 0 : decimals];
        if (negative) out = -out;
        return true;
    }
    static bool is_number_char(char c) {
        return (c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
    }
    bool hex4(unsigned &cp) {
        if (i_ + 4 > s_.size()) return false;
        cp = 0;
        for (int k = 0; k < 4; ++k) {
            char c = s_[i_++];
            int d = c >= '0' && c <= '9'   ? c - '0'
                    : c >= 'a' && c <= 'f' ? c - 'a' + 10
                    : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                           : -1;
            if (d < 0) return false;
            cp = cp * 16 + static_cast<unsigned>(d);
        }
        return true;
    }
    static void utf8(unsigned cp, std::string &out) {
        if (cp < 0x80) {
            out += static_cast<char>(cp);
        } else if (cp < 0x800) {
            out += static_cast<char>(0xC0 | (cp >> 6));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            out += static_cast<char>(0xE0 | (cp >> 12));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (cp >> 18));
            out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (cp & 0x3F));
        }
    }

    std::string_view s_;
    size_t i_ = 0;
};

const char *known_kind(std::string_view kind) {
    static const char *const kinds[] = {"call", "check", "transaction", "iteration"};
    for (const char *k : kinds)
        if (kind == k) return k;
    return "other";
}

// Whole numbers that fit an int, as the writer writes them.
bool to_int(double v, int &out) {
    if (!(v >= -2147483648.0 && v <= 2147483647.0) || v != static_cast<double>(static_cast<int>(v)))
        return false;
    out = static_cast<int>(v);
    return true;
}

// The layout the runner's own writer gives a line, read in one pass: its
// keys in their order, numbers as it writes them, texts without escapes.
// False on the first difference, and the general reader takes the line.
class OwnLine {
public:
    explicit OwnLine(std::string_view s) : s_(s) {}

    bool read(Event &e) {
        e.wait_ms = -1;
        e.has_status = false;
        e.status = e.index = 0;
        e.error.clear();
        int64_t vu = 0, iter = 0, line = 0;
        std::string_view kind, name, script;
        if (!lit("{\"t\": ") || !integer(e.t) || !lit(", \"vu\": ") || !integer(vu) ||
            !lit(", \"iter\": ") || !integer(iter) || !lit(", \"kind\": ") || !text(kind) ||
            !lit(", \"name\": ") || !text(name) || !lit(", \"script\": ") || !text(script) ||
            !lit(", \"line\": ") || !integer(line) || !lit(", \"ms\": ") || !decimal(e.ms))
            return false;
        if (lit(", \"wait\": ") && !decimal(e.wait_ms)) return false;
        if (lit(", \"ok\": true}")) {
            e.ok = true;
        } else if (lit(", \"ok\": false")) {
            e.ok = false;
            int64_t status = 0, index = 0;
            if (lit(", \"status\": ")) {
                if (!integer(status) || !lit(", \"index\": ") || !integer(index)) return false;
                e.has_status = true;
            }
            std::string_view error;
            if (!lit(", \"error\": ") || !text(error) || !lit("}")) return false;
            if (!fits(status) || !fits(index)) return false;
            e.status = static_cast<int>(status);
            e.index = static_cast<int>(index);
            e.error.assign(error);
        } else {
            return false;
        }
        if (i_ != s_.size() || !fits(vu) || !fits(iter) || !fits(line)) return false;
        e.vu = static_cast<int>(vu);
        e.iter = static_cast<int>(iter);
        e.line = static_cast<int>(line);
        e.kind = known_kind(kind);
        e.name.assign(name);
        e.script.assign(script);
        return true;
    }

private:
    static bool fits(int64_t v) { return v >= INT32_MIN && v <= INT32_MAX; }
    bool lit(std::string_view what) {
        if (s_.compare(i_, what.size(), what) != 0) return false;
        i_ += what.size();
        return true;
    }
    bool integer(int64_t &out) {
        auto [end, error] = std::from_chars(s_.data() + i_, s_.data() + s_.size(), out);
        if (error != std::errc() || end == s_.data() + i_) return false;
        i_ = static_cast<size_t>(end - s_.data());
        return true;
    }
    // Digits, a point and three decimals.
    bool decimal(double &out) {
        int64_t whole = 0;
        if (i_ < s_.size() && s_[i_] == '-') return false;
        if (!integer(whole) || whole > 999999999999 || !lit(".") || i_ + 3 > s_.size())
            return false;
        int frac = 0;
        for (int k = 0; k < 3; ++k) {
            char c = s_[i_++];
            if (c < '0' || c > '9') return false;
            frac = frac * 10 + (c - '0');
        }
        out = static_cast<double>(whole * 1000 + frac) / 1000;
        return true;
    }
    bool text(std::string_view &out) {
        if (!lit("\"")) return false;
        size_t start = i_;
        while (i_ < s_.size() && s_[i_] != '"') {
            unsigned char c = static_cast<unsigned char>(s_[i_]);
            if (c == '\\' || c < 0x20) return false;
            ++i_;
        }
        if (i_ == s_.size()) return false;
        out = s_.substr(start, i_++ - start);
        return true;
    }

    std::string_view s_;
    size_t i_ = 0;
};

}  // namespace

// Any flat object, its keys in any order, as a person or another program
// may write it.
bool read_any_event(std::string_view line, Event &event) {
    Reader r(line);
    // Everything back to its default; the texts keep their buffers.
    event.t = 0;
    event.vu = 1;
    event.iter = 1;
    event.kind = "call";
    event.name.clear();
    event.script.clear();
    event.line = 0;
    event.ms = 0;
    event.wait_ms = -1;
    event.ok = true;
    event.has_status = false;
    event.status = event.index = 0;
    event.error.clear();
    bool has_kind = false, has_name = false;
    if (!r.take('{')) return false;
    if (r.take('}')) return false;
    thread_local std::string text;
    std::string_view key;
    do {
        if (!r.key(key) || !r.take(':')) return false;
        char c = r.peek();
        if (c == '"') {
            if (!r.string(text)) return false;
            if (key == "kind") {
                event.kind = known_kind(text);
                has_kind = true;
            } else if (key == "name") {
                event.name.swap(text);
                has_name = true;
            } else if (key == "script") {
                event.script.swap(text);
            } else if (key == "error") {
                event.error.swap(text);
            }
        } else if (c == 't' || c == 'f') {
            bool v = c == 't';
            if (!r.word(v ? "true" : "false")) return false;
            if (key == "ok") event.ok = v;
        } else if (c == 'n') {
            if (!r.word("null")) return false;
        } else {
            double v = 0;
            if (!r.number(v)) return false;
            bool fits = true;
            if (key == "t") {
                fits = v >= -9.2e18 && v <= 9.2e18;
                if (fits) event.t = static_cast<int64_t>(v);
            } else if (key == "ms") {
                event.ms = v;
            } else if (key == "wait") {
                event.wait_ms = v >= 0 && v <= 1e12 ? v : -1;
            } else if (key == "vu") {
                fits = to_int(v, event.vu);
            } else if (key == "iter") {
                fits = to_int(v, event.iter);
            } else if (key == "line") {
                fits = to_int(v, event.line);
            } else if (key == "status") {
                fits = to_int(v, event.status);
                event.has_status = true;
            } else if (key == "index") {
                fits = to_int(v, event.index);
            }
            if (!fits) return false;
        }
    } while (r.take(','));
    return r.take('}') && r.at_end() && has_kind && has_name;
}

bool read_event(std::string_view line, Event &event) {
    if (OwnLine(line).read(event)) return true;
    return read_any_event(line, event);
}

}  // namespace runner
