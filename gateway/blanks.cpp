#include "gateway/blanks.h"

std::string_view trim_blanks(std::string_view text) {
    size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return text;
    size_t last = text.find_last_not_of(' ');
    return text.substr(first, last - first + 1);
}
