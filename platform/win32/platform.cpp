#include "platform/platform.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

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

const char *env(const char *name) {
    // The process environment, where a variable may hold the empty text
    // (the C library's copy cannot). One buffer per name keeps a returned
    // text valid until that name is read again.
    static std::map<std::string, std::string> values;
    DWORD size = GetEnvironmentVariableA(name, nullptr, 0);
    if (size == 0) return GetLastError() == ERROR_ENVVAR_NOT_FOUND ? nullptr : "";
    std::string &value = values[name];
    value.assign(size, '\0');
    DWORD length = GetEnvironmentVariableA(name, &value[0], size);
    if (length >= size) return nullptr;  // changed in between; taken as unset
    value.resize(length);
    return value.c_str();
}

void debug_output(const char *text) {
    if (env("ORBELLE_DEBUG_CHANNEL") == nullptr) return;
    // The debugger sees the marker too; standard error keeps tests readable.
    OutputDebugStringA(text);
    std::fputs(text, stderr);
}

}  // namespace platform
