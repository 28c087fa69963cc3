// Loading shared objects at run time, and where the agent side libraries of
// the host's installation live.
#ifndef ORBELLE_DYNLOAD_H
#define ORBELLE_DYNLOAD_H

#include <string>

namespace platform {

// Loads the shared object at a full path, resolving all its symbols at once.
// Null on failure (also for an empty path). The handle is never unloaded by
// anything but unload_library.
void *load_library(const char *path);

// The address of an exported name of a loaded library, or null.
void *find_symbol(void *library, const char *name);

// Gives a handle back. A no-op in sanitizer builds, so that leak reports keep
// the names of functions in the library.
void unload_library(void *library);

// The full path of an agent side library named file_name: the installation
// root from ZANTH_HOME, then shlib/iiop/ and the name. Returns false when
// ZANTH_HOME is not set; *path then holds the path built on an empty root,
// for the caller's trace, and must not be loaded.
bool agent_library_path(const char *file_name, std::string *path);

}  // namespace platform

#endif
