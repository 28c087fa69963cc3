// Helpers of the repository tests: trees from description text, failures
// by their text.
#ifndef ORBELLE_PIRTEST_H
#define ORBELLE_PIRTEST_H

#include <memory>
#include <string>

#include "repository/pircsv.h"
#include "repository/pirnod.h"

namespace pirtest {

using Tree = std::unique_ptr<PirIntNod>;

inline Tree parse_text(const std::string &text) {
    PirCsvFile file;
    file.readText(text.data(), text.size());
    Tree ifc(new PirIntNod);
    file.parse(ifc.get());
    return ifc;
}

// The text of the PirException that parsing text raises, or "" if none.
inline std::string parse_failure(const std::string &text) {
    try {
        parse_text(text);
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}

template <class Node>
Node *child(PirNod *node, size_t i) {
    return i < node->children.size() ? dynamic_cast<Node *>(node->children[i]) : nullptr;
}

inline PirTypNod *type_of(PirNod *node, size_t i = 0) { return child<PirTypNod>(node, i); }

}  // namespace pirtest

#endif
