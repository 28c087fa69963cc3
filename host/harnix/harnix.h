/* The host's script services library, as the library calls it. */
#ifndef ORBELLE_HARNIX_H
#define ORBELLE_HARNIX_H

#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Milliseconds on a clock that grows by one each millisecond and never
 * reads 0. */
int32_t HarnixGetTime(void);

/* Enters a run state and returns the one left. */
int32_t HarnixRunStateSet(int32_t state);

/* An upper bound for the length of format formatted with args. */
int printf_size(const char *format, va_list args);

/* Inspection interface of this stand-in, for tests: the states passed to
 * HarnixRunStateSet since the last reset, oldest first. Returns how many
 * there were; fills at most max of them into states. */
int HarnixTestRunStates(int32_t *states, int max);
void HarnixTestReset(void);

#ifdef __cplusplus
}
#endif

#endif
