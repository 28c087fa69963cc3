#include "platform/dynload.h"

#include <windows.h>

#include "platform/platform.h"

namespace platform {

void *load_library(const char *path) {
    if (path == nullptr || path[0] == '\0') return nullptr;
    // No error box for a missing or broken DLL: the caller reports it.
    UINT old_mode = SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX);
    // LoadLibrary takes backslashes only.
    std::string native(path);
    for (char &c : native)
        if (c == '/') c = '\\';
    HMODULE module = LoadLibraryA(native.c_str());
    SetErrorMode(old_mode);
    return reinterpret_cast<void *>(module);
}

void *find_symbol(void *library, const char *name) {
    if (library == nullptr || name == nullptr) return nullptr;
    FARPROC proc = GetProcAddress(static_cast<HMODULE>(library), name);
    // FARPROC to data pointer: both are plain addresses on every Windows target.
    void *address;
    static_assert(sizeof address == sizeof proc, "code and data pointers differ in size");
    __builtin_memcpy(&address, &proc, sizeof address);
    return address;
}

void unload_library(void *library) {
    if (library != nullptr) FreeLibrary(static_cast<HMODULE>(library));
}

bool agent_library_path(const char *file_name, std::string *path) {
    // The installation root as the user gave it, then Windows' separators.
    const char *root = env("ZANTH_HOME");
    *path = root ? root : "";
    *path += "\\shlib\\iiop\\";
    *path += file_name;
    return root != nullptr;
}

}  // namespace platform
