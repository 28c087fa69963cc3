#include "repository/pirnod.h"

#include <cstdio>
#include <cstdlib>

#include "repository/flatname.h"
#include "repository/pirassert.h"

const char *const pirDiscriminatorName = flat_discriminator_suffix;

PirNod::~PirNod() {
    if (ownsChildren)
        for (PirNod *child : children) delete child;
}

void PirNod::append(PirNod *child) {
    child->parent = this;
    child->position = children.size();
    children.push_back(child);
}

void pir_assert_failed(const char *expression, const char *file, int line) {
    std::fprintf(stderr, "Assertion failed: %s, file %s, line %d\n", expression, file, line);
    std::abort();
}
