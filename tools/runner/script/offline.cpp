#include "tools/runner/script/offline.h"

#include <cstdio>

#include "tools/runner/script/skeleton.h"

namespace runner {
namespace {

// The door of the library, or null after saying why.
hostkit::entry_fn door_of(const std::string &library) {
    std::string error;
    hostkit::entry_fn door = hostkit::load_library(library.c_str(), &error);
    if (door == nullptr)
        std::fprintf(stderr, "orbelle-run: cannot load %s: %s\n", library.c_str(), error.c_str());
    return door;
}

}  // namespace

int check_scripts(const std::string &library, const std::vector<Script> &scripts,
                  const Options &options, Mistakes &mistakes, bool say_ok) {
    hostkit::entry_fn door = door_of(library);
    if (door == nullptr) return 2;
    hostkit::Host host(door);
    for (const Script &script : scripts) {
        Session session(host, {&script}, options, stdout, nullptr);
        std::string error;
        if (!session.prepare(error)) mistakes.add(error);
    }
    FILE *out = say_ok ? stdout : stderr;
    if (mistakes.empty()) {
        if (say_ok) std::fputs("OK\n", out);
        return 0;
    }
    std::fprintf(out, "%s\n", mistakes.text().c_str());
    return 2;
}

int print_skeleton(const std::string &library, const std::string &repoid,
                   const std::vector<std::string> &operations) {
    hostkit::entry_fn door = door_of(library);
    if (door == nullptr) return 2;
    hostkit::Host host(door);
    Descriptions descriptions(host);
    std::string out, why;
    if (!write_skeleton(descriptions, repoid, operations, out, why)) {
        std::fprintf(stderr, "orbelle-run: %s\n", why.c_str());
        return 2;
    }
    std::fputs(out.c_str(), stdout);
    return 0;
}

}  // namespace runner
