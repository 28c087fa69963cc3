// The operating-system layer: the few OS services the library needs, in the
// shape the rest of the code expects of them. Sockets and dynamic loading
// live in their own units beside this one.
#ifndef ORBELLE_PLATFORM_H
#define ORBELLE_PLATFORM_H

#include <cstdint>

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

}  // namespace platform

#endif
