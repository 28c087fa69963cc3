// The trace facility: text lines to the host's print slot, at a process-wide
// level that is 0 (off) unless corbadebug or set_debug_level raises it.
#ifndef ORBELLE_TRACE_H
#define ORBELLE_TRACE_H

#include <cinttypes>
#include <cstdint>

#include "orbelle/host.h"
#include "platform/platform.h"

// 0 means tracing is off. Call sites test it before evaluating arguments.
extern uint32_t debug_level;

// Formats one line and prints it; appends a newline when the format has none.
// Does not look at debug_level.
void dmsg_v(const char *format, ...) ORBELLE_PRINTF(1, 2);

// As dmsg_v, but only when level is not above debug_level.
void dmsg_filter(uint32_t level, const char *format, ...) ORBELLE_PRINTF(2, 3);

// A labelled hex and character dump of length bytes.
void dmsg_opaque_full(const char *label, const void *bytes, int length);

extern "C" {
ORBELLE_EXPORT void set_debug_level(uint32_t level);
// Level 5 when "corbadebug" is set (returns 0); else leaves it (returns 3).
ORBELLE_EXPORT int32_t enable_debug(void);
}

// A trace line at any nonzero level. The arguments are evaluated only while
// tracing is on.
#define TRACE(...)                                 \
    do {                                           \
        if (debug_level != 0) dmsg_v(__VA_ARGS__); \
    } while (0)

// A trace line shown from the given level on.
#define TRACE_AT(level, ...)                                           \
    do {                                                               \
        if ((level) <= debug_level) dmsg_filter((level), __VA_ARGS__); \
    } while (0)

// Pointers print as "0x" and lower-case hex of the whole address.
#define PTR_FMT "0x%" PRIxPTR
inline uintptr_t ptrv(const void *p) { return reinterpret_cast<uintptr_t>(p); }

// A null text prints as "NULL".
inline const char *nz(const char *text) { return text ? text : "NULL"; }

#endif
