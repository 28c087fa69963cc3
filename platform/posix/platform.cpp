#include "platform/platform.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace platform {
namespace {
sleep_hook current_sleep_hook = nullptr;
}

void sleep_ms(uint32_t ms) {
    if (current_sleep_hook) {
        current_sleep_hook(ms);
        return;
    }
    timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

void set_sleep_hook(sleep_hook hook) { current_sleep_hook = hook; }

const char *env(const char *name) { return std::getenv(name); }

void debug_output(const char *text) {
    if (std::getenv("ORBELLE_DEBUG_CHANNEL") == nullptr) return;
    std::fputs(text, stderr);
}

}  // namespace platform
