// orbelle-run: a command-line host that runs script files through the
// library's door, loaded with dlopen as a real host loads it.
#ifdef _WIN32
#include <io.h>
#include <windows.h>
#define R_OK 4
#else
#include <unistd.h>
#endif
#ifdef __linux__
#include <sys/prctl.h>

#include <csignal>
#endif

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "host/kit/hostkit.h"
#include "tools/runner/load.h"
#include "tools/runner/load_options.h"
#include "tools/runner/run.h"
#include "tools/runner/script.h"
#include "tools/runner/script/offline.h"
#include "tools/runner/serve.h"

namespace {

const char usage[] =
    "usage: orbelle-run [options] SCRIPT...\n"
    "  --trace LEVEL      library trace level (1-8), shown on standard output\n"
    "  --iterations N     run each script N times (default 1)\n"
    "  --quiet            print failures and the summary only\n"
    "  --stop-on-error    end the run at the first failed call or check\n"
    "                     (otherwise a failure ends only its iteration)\n"
    "  --no-think         skip think pauses\n"
    "  --fresh-binds      every bind releases and binds anew, a new connection per\n"
    "                     iteration (default: a bind of what is bound so keeps it)\n"
    "  --events PATH      one JSON line per call, check, transaction and iteration,\n"
    "                     to a file, - (standard output; text goes to standard\n"
    "                     error) or fd:N (an open descriptor)\n"
    "  --vu K             this virtual user's number, ${VU} (default $ORBELLE_VU or 1)\n"
    "  --users-total N    users sharing unique data rows (default $ORBELLE_USERS_TOTAL or 1)\n"
    "  --library PATH     the library to load (default: liborbelle.so beside this program)\n"
    "  -C DIR             change to DIR first (descriptions are read from DIR/idl)\n"
    "  --check            check the scripts and their data files against the\n"
    "                     descriptions, send nothing: prints OK or every mistake\n"
    "                     as FILE:LINE:COLUMN: message (exit status 2)\n"
    "  --skeleton REPOID [OP...]\n"
    "                     print a script that calls the operations of REPOID\n"
    "                     (all when none is named), with placeholders to fill\n"
    "  --serve            serve one user to a driving program (the Locust User\n"
    "                     class): one iteration for each line run on standard\n"
    "                     input, its events to --events (needed); ends at end\n"
    "                     of input and with its parent\n"
    "load mode (one process per virtual user; Linux):\n"
    "  --users N          run N virtual users, each its scripts in a loop\n"
    "  --ramp-up SECONDS  start the users at an even pace across this time (default 0)\n"
    "  --duration SECONDS stop every user after this time (or give --iterations:\n"
    "                     each user runs that many)\n"
    "  --report FILE      write an HTML report with charts (opens offline)\n"
    "  --csv PREFIX       write PREFIX_stats.csv, PREFIX_history.csv and\n"
    "                     PREFIX_percentiles.csv\n"
    "  --events PATH      every user's events into one file\n"
    "%s"
    "  A progress line goes to standard error each second; Ctrl-C stops every user\n"
    "  and still prints the summary and writes the files.\n";

void print_usage(FILE *to) { std::fprintf(to, usage, runner::load_options_usage); }

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

// Most virtual users one run may number.
constexpr long max_users = 1000000;
// Most users one machine runs in load mode: each is a process.
constexpr long max_load_users = 20000;
// Longest ramp-up or duration, in seconds: a week.
constexpr double max_seconds = 7 * 24 * 3600;

bool read_seconds(const char *text, double min, double &out) {
    char *end = nullptr;
    double v = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(v >= min && v <= max_seconds)) return false;
    out = v;
    return true;
}

// Reads a whole number from 1 from the environment variable name, if set.
bool number_from_environment(const char *name, int &out) {
    const char *text = std::getenv(name);
    long n = 0;
    if (text == nullptr) return true;
    if (!read_number(text, 1, max_users, n)) {
        std::fprintf(stderr, "orbelle-run: %s takes a number from 1 to %ld\n", name, max_users);
        return false;
    }
    out = static_cast<int>(n);
    return true;
}

}  // namespace

int main(int argc, char **argv) {
    runner::Options options;
    if (!number_from_environment("ORBELLE_VU", options.vu) ||
        !number_from_environment("ORBELLE_USERS_TOTAL", options.users_total))
        return 2;
    std::string events_path;
    long trace = 0;
    runner::LoadOptions load;
    bool load_mode = false, iterations_given = false, vu_given = false, serve = false;
    std::vector<std::string> load_only;  // options that need --users
    std::string library = default_library();
    std::vector<std::string> files;
    bool check_only = false;
    const char *skeleton = nullptr;  // the interface id of --skeleton
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        std::string load_error;
        runner::OptionRead read = runner::read_load_option(argc, argv, i, load, load_error);
        if (read == runner::OptionRead::Bad) {
            std::fprintf(stderr, "orbelle-run: %s\n", load_error.c_str());
            return 2;
        }
        if (read == runner::OptionRead::Taken) continue;
        auto value = [&](const char *what) -> const char * {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "orbelle-run: %s needs %s\n", arg.c_str(), what);
                print_usage(stderr);
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
            iterations_given = true;
        } else if (arg == "--users") {
            long n = 0;
            if (!read_number(value("a count"), 1, max_load_users, n)) {
                std::fprintf(stderr, "orbelle-run: --users takes a count from 1 to %ld\n",
                             max_load_users);
                return 2;
            }
            load.users = static_cast<int>(n);
            load_mode = true;
        } else if (arg == "--ramp-up" || arg == "--duration") {
            bool ramp = arg == "--ramp-up";
            if (!read_seconds(value("seconds"), ramp ? 0 : 0.001,
                              ramp ? load.ramp_up_s : load.duration_s)) {
                std::fprintf(stderr, "orbelle-run: %s takes seconds, %s to a week\n", arg.c_str(),
                             ramp ? "from 0" : "more than 0");
                return 2;
            }
            load_only.push_back(arg);
        } else if (arg == "--report") {
            load.report_path = value("a file");
            load_only.push_back(arg);
        } else if (arg == "--csv") {
            load.csv_prefix = value("a prefix");
            load_only.push_back(arg);
        } else if (arg == "--check") {
            check_only = true;
        } else if (arg == "--skeleton") {
            skeleton = value("an interface id");
        } else if (arg == "--serve") {
            serve = true;
        } else if (arg == "--quiet") {
            options.quiet = true;
        } else if (arg == "--stop-on-error") {
            options.stop_on_error = true;
        } else if (arg == "--fresh-binds") {
            options.fresh_binds = true;
        } else if (arg == "--no-think") {
            options.no_think = true;
        } else if (arg == "--events") {
            events_path = value("a path, - or fd:N");
        } else if (arg == "--vu" || arg == "--users-total") {
            long n = 0;
            if (!read_number(value("a number"), 1, max_users, n)) {
                std::fprintf(stderr, "orbelle-run: %s takes a number from 1 to %ld\n", arg.c_str(),
                             max_users);
                return 2;
            }
            (arg == "--vu" ? options.vu : options.users_total) = static_cast<int>(n);
            vu_given = true;
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
            print_usage(stdout);
            return 0;
        } else if (!arg.empty() && arg[0] == '-') {
            std::fprintf(stderr, "orbelle-run: unknown option %s\n", arg.c_str());
            print_usage(stderr);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (skeleton != nullptr) return runner::print_skeleton(library, skeleton, files);
    if (files.empty()) {
        print_usage(stderr);
        return 2;
    }
    if (serve) {
        const char *why = load_mode             ? "--serve runs one user: leave out --users"
                          : iterations_given    ? "--serve runs an iteration for each run line: "
                                                  "leave out --iterations"
                          : events_path.empty() ? "--serve needs --events"
                                                : nullptr;
        if (why != nullptr) {
            std::fprintf(stderr, "orbelle-run: %s\n", why);
            return 2;
        }
        options.quiet = true;
#ifdef __linux__
        // A served user never outlives the program that drives it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
    }
    bool load_shaped = false;
    std::string load_error;
    if (!runner::settle_load_options(load, load_mode, iterations_given, load_shaped, load_error)) {
        std::fprintf(stderr, "orbelle-run: %s\n", load_error.c_str());
        return 2;
    }
    if (!load.stages.empty()) load_mode = true;
    if (load_shaped) load_only.push_back("--rate, --stages, --threshold and the like");
    if (!load_mode && !load_only.empty()) {
        std::fprintf(stderr, "orbelle-run: %s needs --users\n", load_only.front().c_str());
        return 2;
    }
    if (load_mode) {
        const char *why = load.duration_s > 0 && iterations_given
                              ? "give --duration or --iterations, not both"
                          : load.duration_s == 0 && !iterations_given && load.stages.empty()
                              ? "--users needs --duration or --iterations"
                          : trace > 0 ? "--trace is for one user: run the script without --users"
                          : vu_given  ? "--users numbers its users itself: leave out --vu and "
                                        "--users-total"
                                      : nullptr;
        if (why != nullptr) {
            std::fprintf(stderr, "orbelle-run: %s\n", why);
            return 2;
        }
#ifdef _WIN32
        std::fprintf(stderr, "orbelle-run: --users needs Linux; on Windows run one user\n");
        return 2;
#endif
        options.iterations = iterations_given ? options.iterations : 0;
        if (events_path == "-" || events_path.rfind("fd:", 0) == 0) {
            std::fprintf(stderr, "orbelle-run: with --users, --events takes a file\n");
            return 2;
        }
        load.events_path = events_path;
        events_path.clear();
    }

    // Every script is read and checked before anything is sent; every
    // mistake of every script is listed.
    std::vector<runner::Script> scripts(files.size());
    runner::Mistakes mistakes;
    for (size_t i = 0; i < files.size(); ++i) {
        std::ifstream in(files[i], std::ios::binary);
        if (!in) {
            std::fprintf(stderr, "orbelle-run: cannot read %s\n", files[i].c_str());
            return 2;
        }
        std::stringstream text;
        text << in.rdbuf();
        runner::parse_script(files[i], text.str(), scripts[i], mistakes);
    }
    if (check_only || !mistakes.empty()) {
        runner::Options check = options;
        if (load_mode) check.users_total = load.users;
        return runner::check_scripts(library, scripts, check, mistakes, check_only);
    }
    runner::EventWriter events;
    if (!events_path.empty()) {
        std::string error;
        if (!events.open(events_path, error)) {
            std::fprintf(stderr, "orbelle-run: %s\n", error.c_str());
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

#ifndef _WIN32
    if (load_mode) {
        // The scripts and their data files are checked once here, before
        // any user starts.
        runner::Options check = options;
        check.users_total = load.users;
        std::vector<const runner::Script *> list;
        for (const runner::Script &s : scripts) list.push_back(&s);
        runner::Session session(host, list, check, stdout, nullptr);
        if (!session.prepare(error)) {
            std::fprintf(stderr, "%s\n", error.c_str());
            return 2;
        }
        load.user = options;
        return runner::run_load(door, scripts, load);
    }
#endif

    // Each script is a session of its own, with its own summary; all read
    // their data files and are checked before anything is sent.
    std::vector<std::unique_ptr<runner::Session>> sessions;
    for (const runner::Script &script : scripts) {
        sessions.push_back(std::make_unique<runner::Session>(
            host, std::vector<const runner::Script *>{&script}, options, stdout, &events));
        if (!sessions.back()->prepare(error)) mistakes.add(error);
    }
    if (!mistakes.empty()) {
        std::fprintf(stderr, "%s\n", mistakes.text().c_str());
        return 2;
    }

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

    if (serve) return runner::serve(host, scripts, options, events, std::cin, stdout);

    int status = 0;
    for (size_t i = 0; i < sessions.size(); ++i) {
        std::printf("== %s\n", scripts[i].file.c_str());
        int s = sessions[i]->run();
        if (s > status) status = s;
    }
    std::fflush(stdout);
    return status;
}
