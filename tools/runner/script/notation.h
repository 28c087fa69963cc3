// The byte notation of value texts, read as the library reads it:
// characters stand for themselves, hexadecimal pairs between backquotes for
// the bytes they give ("`4f22`Brien" is O"Brien).
#ifndef ORBELLE_RUNNER_SCRIPT_NOTATION_H
#define ORBELLE_RUNNER_SCRIPT_NOTATION_H

#include <string>

namespace runner {

// The bytes text stands for. A character that is not a hex digit inside
// backquotes, or half a pair, makes problem say so (the library takes the
// text all the same, and means something else by it).
std::string decode_notation(const std::string &text, std::string *problem = nullptr);

// bytes in single quotes, with \' \\ \n \r \t and \xNN for what does not
// print.
std::string quoted(const std::string &bytes);

}  // namespace runner

#endif
