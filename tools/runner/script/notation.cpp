#include "tools/runner/script/notation.h"

namespace runner {
namespace {

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

std::string decode_notation(const std::string &text, std::string *problem) {
    std::string bytes;
    bytes.reserve(text.size());
    bool hex = false;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '`') {
            hex = !hex;
            continue;
        }
        if (!hex) {
            bytes += c;
            continue;
        }
        if (i + 1 >= text.size()) {  // the library drops half a pair at the end
            if (problem && problem->empty())
                *problem = "half a hex pair at the end of the byte notation";
            break;
        }
        int high = hex_value(c), low = hex_value(text[i + 1]);
        if ((high < 0 || low < 0) && problem && problem->empty())
            *problem = "'" + std::string(1, high < 0 ? c : text[i + 1]) +
                       "' between backquotes is not a hex digit (write a backquote as `60`)";
        // As the library reads a stray character: by its code.
        auto digit = [](char d) {
            auto u = static_cast<unsigned char>(d);
            return u <= '9' ? u - 0x30u : u <= 'F' ? u - 0x37u : u - 0x57u;
        };
        bytes += static_cast<char>((digit(c) * 16 + digit(text[i + 1])) & 0xFF);
        ++i;
    }
    return bytes;
}

std::string quoted(const std::string &bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out = "'";
    for (char c : bytes) {
        auto u = static_cast<unsigned char>(c);
        switch (c) {
            case '\'':
                out += "\\'";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (u < 0x20 || u >= 0x7F) {
                    out += "\\x";
                    out += digits[u >> 4];
                    out += digits[u & 15];
                } else {
                    out += c;
                }
        }
    }
    return out + "'";
}

}  // namespace runner
