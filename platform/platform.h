// The operating-system layer: the few OS services the library needs, in the
// shape the rest of the code expects of them. Sockets and dynamic loading
// live in their own units beside this one.
#ifndef ORBELLE_PLATFORM_H
#define ORBELLE_PLATFORM_H

#include <cstdint>
#include <cstdio>

// Marks a printf-like function for format checks. On Windows the library
// uses the C99 printf family, which GCC calls gnu_printf there.
#if defined(_WIN32) && !defined(__clang__)
#define ORBELLE_PRINTF(format_index, first_arg) \
    __attribute__((format(gnu_printf, format_index, first_arg)))
#else
#define ORBELLE_PRINTF(format_index, first_arg) \
    __attribute__((format(printf, format_index, first_arg)))
#endif

namespace platform {

// Suspends the caller for the given number of milliseconds.
void sleep_ms(uint32_t ms);

// Replaces sleep_ms's behaviour; null restores the real sleep. Lets a test
// observe a long pause without waiting for it.
using sleep_hook = void (*)(uint32_t ms);
void set_sleep_hook(sleep_hook hook);

// The value of an environment variable, or null when it is not set.
const char *env(const char *name);

// The debug channel: fixed marker texts that tell which trace form ran.
// Goes nowhere unless ORBELLE_DEBUG_CHANNEL is set, then to standard error.
void debug_output(const char *text);

// Reads one character without taking the stream's lock; the caller owns
// the stream on one thread.
inline int getc_unlocked(std::FILE *file) {
#ifdef _WIN32
    return _getc_nolock(file);
#else
    return ::getc_unlocked(file);
#endif
}

}  // namespace platform

#endif
