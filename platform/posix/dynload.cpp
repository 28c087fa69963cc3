#include "platform/dynload.h"

#include <dlfcn.h>

#include "platform/platform.h"

namespace platform {

void *load_library(const char *path) {
    // An empty name would give the main program's handle, not a failure.
    if (path == nullptr || path[0] == '\0') return nullptr;
    return dlopen(path, RTLD_NOW | RTLD_LOCAL);
}

void *find_symbol(void *library, const char *name) {
    if (library == nullptr || name == nullptr) return nullptr;
    return dlsym(library, name);
}

void unload_library(void *library) {
#ifndef ORBELLE_SANITIZE
    if (library != nullptr) dlclose(library);
#else
    (void)library;
#endif
}

bool agent_library_path(const char *file_name, std::string *path) {
    const char *root = env("ZANTH_HOME");
    *path = root ? root : "";
    *path += "/shlib/iiop/";
    *path += file_name;
    return root != nullptr;
}

}  // namespace platform
