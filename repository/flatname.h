// Flat names: how one value inside a parameter is named in a script's
// records, built while a type is walked and read back when a reply is
// handed over. The grammar, in one place:
//   param.member      a struct member
//   param:member      a union member (the discriminator takes no separator)
//   param[3]          an element of a sequence or array; "[]" without state
//   param^length      the length record of a sequence
//   param^discriminator   the discriminator of a union
//   ^operation        the result; ^operation.member and so on inside it
#ifndef ORBELLE_FLATNAME_H
#define ORBELLE_FLATNAME_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

constexpr char flat_length_suffix[] = "^length";
constexpr size_t flat_length_suffix_size = sizeof flat_length_suffix - 1;
constexpr char flat_discriminator_suffix[] = "^discriminator";
constexpr char flat_result_mark = '^';
constexpr char flat_member_separator = '.';
constexpr char flat_alternative_separator = ':';
constexpr char flat_index_open = '[';
constexpr char flat_index_close = ']';

// -- Building --

// "^operation": the name of a result.
std::string flat_result_name(const std::string &operation);
// base^length, base^discriminator.
std::string flat_length_name(const std::string &base);
std::string flat_discriminator_name(const std::string &base);
// Appends "[index]", or "[]" for a name without state.
void append_flat_index(std::string &name, int32_t index, bool stateful);

// -- Reading --

// Whether a name starts with an index, as the elements of a sequence that is
// itself the result do before they get their base.
inline bool flat_starts_with_index(const std::string &name) {
    return !name.empty() && name[0] == flat_index_open;
}

// The first "^length" in name, or null. Runs for every record of a reply's
// sequences: a plain loop costs less than a library call.
inline const char *find_flat_length(const char *name) {
    // strchr looks at many characters a step; this runs for every record of
    // a sequence.
    for (const char *c = name; (c = std::strchr(c, flat_length_suffix[0])) != nullptr; ++c) {
        size_t i = 1;
        while (i < flat_length_suffix_size && c[i] == flat_length_suffix[i]) ++i;
        if (i == flat_length_suffix_size) return c;
    }
    return nullptr;
}

// The end of an element's index: given the position just behind a base, the
// position of the "]" that closes the index opened there (or of the end of
// name); at itself when no index is opened there.
inline size_t flat_index_end(const char *name, size_t at) {
    if (name[at] != flat_index_open) return at;
    const char *close = std::strchr(name + at, flat_index_close);
    return close != nullptr ? static_cast<size_t>(close - name) : at + std::strlen(name + at);
}

#endif
