// The words the recorder writes into scripts: names of objects and
// variables, values as one word, and which values may be ids a client
// hands back.
#ifndef ORBELLE_RECORDER_WORDS_H
#define ORBELLE_RECORDER_WORDS_H

#include <cctype>
#include <string>

#include "orbelle/kinds.h"
#include "tools/recorder/body_decoder.h"

namespace recorder {

// "IDL:Banking/Account:1.0" -> "account".
inline std::string base_name(const std::string &repoid) {
    size_t colon = repoid.rfind(':');
    size_t start = repoid.find_last_of("/:", colon == std::string::npos ? 0 : colon - 1);
    std::string name =
        repoid.substr(start == std::string::npos ? 0 : start + 1,
                      colon == std::string::npos ? std::string::npos : colon - start - 1);
    std::string out;
    for (char c : name)
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '_')
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out.empty() ? "obj" : out;
}

// A variable name from a flat name and the call it came from.
inline std::string variable_for(const std::string &flat, size_t call) {
    std::string out;
    for (char c : flat)
        if (std::isalnum(static_cast<unsigned char>(c)))
            out += c;
        else if (!out.empty() && out.back() != '_')
            out += '_';
    while (!out.empty() && out.back() == '_') out.pop_back();
    return (out.empty() ? "value" : out) + "_" + std::to_string(call + 1);
}

// Values that look like ids a client hands back: strings of four
// characters or more, whole numbers of three digits or more. Smaller ones
// (flags, counts, enum values) match by chance.
inline bool may_be_id(const FlatValue &v) {
    if (v.length) return false;
    switch (v.type) {
        case tk_string:
            return v.text.size() >= 4;
        case tk_long:
        case tk_ulong:
        case tk_short:
        case tk_ushort: {
            size_t digits = v.text.size() - (v.text[0] == '-' ? 1 : 0);
            return digits >= 3;
        }
        default:
            return false;
    }
}

// A value as one word of a script line: quoted when it holds blanks,
// quotes, backslashes or a '#', or is empty.
inline std::string script_word(const std::string &text) {
    bool plain = !text.empty();
    for (char c : text)
        if (std::isspace(static_cast<unsigned char>(c)) || c == '"' || c == '\\' || c == '#')
            plain = false;
    if (plain) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

}  // namespace recorder

#endif
