// orbelle-run: a command-line host that runs script files through the
// library's door, loaded with dlopen as a real host loads it.
#ifdef _WIN32
#include <io.h>
#include <windows.h>
#define R_OK 4
#else
#include <unistd.h>
#endif

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"

namespace {

const char usage[] =
    "usage: orbelle-run [options] SCRIPT...\n"
    "  --trace LEVEL      library trace level (1-8), shown on standard output\n"
    "  --iterations N     run each script N times (default 1)\n"
    "  --quiet            print failures and the summary only\n"
    "  --library PATH     the library to load (default: liborbelle.so beside this program)\n"
    "  -C DIR             change to DIR first (descriptions are read from DIR/idl)\n";

#ifdef _WIN32
const char kLibraryName[] = "orbelle.dll";

// This program's own path, or empty.
std::string own_path() {
    char self[MAX_PATH];
    DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
    if (n == 0 || n >= sizeof self) return "";
    std::string path(self, n);
    for (char &c : path)
        if (c == '\\') c = '/';
    return path;
}
#else
const char kLibraryName[] = "liborbelle.so";

std::string own_path() {
    char self[4096];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    return n <= 0 ? "" : std::string(self, static_cast<size_t>(n));
}
#endif

std::string default_library() {
    std::string dir = own_path();
    if (dir.empty()) return kLibraryName;
    dir = dir.substr(0, dir.rfind('/'));
    for (const char *rel : {"/", "/../lib/"}) {
        std::string candidate = dir + rel + kLibraryName;
        if (access(candidate.c_str(), R_OK) == 0) return candidate;
    }
    return kLibraryName;
}

bool read_number(const char *text, long min, long max, long &out) {
    char *end = nullptr;
    long v = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || v < min || v > max) return false;
    out = v;
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    runner::Options options;
    long trace = 0;
    std::string library = default_library();
    std::vector<std::string> files;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](const char *what) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "orbelle-run: %s needs %s\n%s", arg.c_str(), what, usage);
                std::exit(2);
            }
            return argv[++i];
        };
        if (arg == "--trace") {
            if (!read_number(value("a level"), 0, 255, trace)) {
                std::fprintf(stderr, "orbelle-run: --trace takes a level from 0 to 255\n");
                return 2;
            }
        } else if (arg == "--iterations") {
            long n = 0;
            if (!read_number(value("a count"), 1, 100000000, n)) {
                std::fprintf(stderr, "orbelle-run: --iterations takes a count from 1\n");
                return 2;
            }
            options.iterations = static_cast<int>(n);
        } else if (arg == "--quiet") {
            options.quiet = true;
        } else if (arg == "--library") {
            library = value("a path");
        } else if (arg == "-C") {
            const char *dir = value("a folder");
            if (chdir(dir) != 0) {
                std::fprintf(stderr, "orbelle-run: cannot change to %s: %s\n", dir,
                             std::strerror(errno));
                return 2;
            }
        } else if (arg == "-h" || arg == "--help") {
            std::fputs(usage, stdout);
            return 0;
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "orbelle-run: unknown option %s\n%s", arg.c_str(), usage);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty()) {
        std::fputs(usage, stderr);
        return 2;
    }

    // Every script is read and checked before anything is sent.
    std::vector<runner::Script> scripts(files.size());
    for (size_t i = 0; i < files.size(); ++i) {
        std::ifstream in(files[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "orbelle-run: cannot read %s\n", files[i].c_str());
            return 2;
        }
        std::stringstream text;
        text << in.rdbuf();
        std::string error;
        if (!runner::parse_script(files[i], text.str(), scripts[i], error) ||
            !runner::check_script(scripts[i], error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 2;
        }
    }

    std::string error;
    hostkit::entry_fn door = hostkit::load_library(library.c_str(), &error);
    if (door == nullptr) {
        std::fprintf(stderr, "orbelle-run: cannot load %s: %s\n", library.c_str(), error.c_str());
        return 2;
    }
    hostkit::Host host(door);
    hostkit::set_echo(true);
    hostkit::set_capture(false);
    host.init();
    if (trace > 0) {
        // The trace level is set through the library's own export, as a
        // host's debugging switch would.
        auto set_level =
            hostkit::find_export<void (*)(uint32_t)>(library.c_str(), "set_debug_level");
        if (set_level) set_level(static_cast<uint32_t>(trace));
    }

    int status = 0;
    for (const runner::Script &script : scripts) {
        std::printf("== %s\n", script.file.c_str());
        int s = runner::run_script(host, script, options, stdout);
        if (s > status) status = s;
    }
    std::fflush(stdout);
    return status;
}
