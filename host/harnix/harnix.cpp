// Stand-in for the host's script services library: a millisecond clock, a
// run-state store and a format length estimate.
#include "host/harnix/harnix.h"

#include <cstdio>
#include <ctime>
#include <vector>

#ifdef _WIN32
#define HARNIX_EXPORT __declspec(dllexport)
#else
#define HARNIX_EXPORT __attribute__((visibility("default")))
#endif

namespace {
int32_t run_state = 0;
std::vector<int32_t> &state_log() {
    static std::vector<int32_t> log;
    return log;
}

int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}
// The clock counts from the first call, starting at 1000 so it never reads 0
// (the library takes 0 to mean "no connection was made").
const int64_t clock_origin = monotonic_ms();
}  // namespace

extern "C" {

HARNIX_EXPORT int32_t HarnixGetTime(void) {
    return static_cast<int32_t>(1000 + (monotonic_ms() - clock_origin) % 0x7fff0000);
}

HARNIX_EXPORT int32_t HarnixRunStateSet(int32_t state) {
    int32_t previous = run_state;
    run_state = state;
    state_log().push_back(state);
    return previous;
}

HARNIX_EXPORT int printf_size(const char *format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    return n < 0 ? 0 : n;
}

HARNIX_EXPORT int HarnixTestRunStates(int32_t *states, int max) {
    const auto &log = state_log();
    for (int i = 0; i < max && i < static_cast<int>(log.size()); ++i) states[i] = log[i];
    return static_cast<int>(log.size());
}

HARNIX_EXPORT void HarnixTestReset(void) {
    state_log().clear();
    run_state = 0;
}
}
