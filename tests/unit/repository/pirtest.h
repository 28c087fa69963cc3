// Helpers of the repository tests: trees from description text, failures
// by their text.
#ifndef ORBELLE_PIRTEST_H
#define ORBELLE_PIRTEST_H

#include <memory>
#include <string>

#include "repository/pircsv.h"

namespace pirtest {

using Tree = std::unique_ptr<PirIntNod>;

inline Tree parse_text(const std::string &text) {
    PirCsvFile file;
    file.readText(text.data(), text.size());
    Tree ifc(new PirIntNod);
    file.parse(ifc.get());
    return ifc;
}

// The text of the PirException that f raises, or "" if none.
template <class F>
std::string failure_of(F &&f) {
    try {
        f();
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}

inline std::string parse_failure(const std::string &text) {
    return failure_of([&] { parse_text(text); });
}

inline PirTypNod *type_of(PirNod *node, size_t i = 0) {
    return dynamic_cast<PirTypNod *>(node->children.at(i));
}

}  // namespace pirtest

#endif
