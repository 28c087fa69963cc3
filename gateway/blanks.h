// Blank trimming for the pieces of a modus.
#ifndef ORBELLE_BLANKS_H
#define ORBELLE_BLANKS_H

#include <string_view>

// The text without the blanks (character 32 only; tabs stay) at both ends.
// A text of nothing but blanks comes back unchanged.
std::string_view trim_blanks(std::string_view text);

#endif
