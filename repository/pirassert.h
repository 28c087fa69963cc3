// Precondition checks of the repository. They stay active in every build:
// a null argument is a fault of the calling code, and no input reaches them.
#ifndef ORBELLE_PIRASSERT_H
#define ORBELLE_PIRASSERT_H

// Prints the failed expression with its source file and ends the process.
[[noreturn]] void pir_assert_failed(const char *expression, const char *file, int line);

#define PIR_ASSERT(expression) \
    ((expression) ? static_cast<void>(0) : pir_assert_failed(#expression, __FILE__, __LINE__))

#endif
