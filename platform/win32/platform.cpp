#include "platform/platform.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>

namespace platform {
namespace {
sleep_hook current_sleep_hook = nullptr;
}

void sleep_ms(uint32_t ms) {
    if (current_sleep_hook) {
        current_sleep_hook(ms);
        return;
    }
    Sleep(ms);
}

void set_sleep_hook(sleep_hook hook) { current_sleep_hook = hook; }

const char *env(const char *name) { return std::getenv(name); }

void debug_output(const char *text) {
    if (std::getenv("ORBELLE_DEBUG_CHANNEL") == nullptr) return;
    // The debugger sees the marker too; standard error keeps tests readable.
    OutputDebugStringA(text);
    std::fputs(text, stderr);
}

}  // namespace platform
