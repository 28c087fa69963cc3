// orbelle-record: a replayable script from captures of a client's traffic.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/recorder/recording.h"
#include "tools/recorder/script_writer.h"

namespace {

const char usage[] =
    "usage: orbelle-record [-C DIR] [-o SCRIPT] [--server HOST:PORT]... [--client HOST]\n"
    "                      [--object KEY=REPOID]... [--checks] [--think] [--pause MS]\n"
    "                      CAPTURE...\n"
    "  Reads pcap or pcapng captures of a CORBA client's traffic and writes a script\n"
    "  for orbelle-run that makes the same calls. Descriptions come from DIR/idl.\n";

int fail(const std::string &text) {
    std::fprintf(stderr, "orbelle-record: %s\n%s", text.c_str(), usage);
    return 2;
}

}  // namespace

int main(int argc, char **argv) {
    recorder::RecordOptions options;
    recorder::WriteOptions write;
    std::string output;
    std::vector<std::string> captures;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        auto value = [&](std::string &into) {
            if (i + 1 >= argc) return false;
            into = argv[++i];
            return true;
        };
        std::string v;
        if (a == "-h" || a == "--help") {
            std::fputs(usage, stdout);
            return 0;
        } else if (a == "-C") {
            if (!value(options.dir)) return fail("-C needs a folder");
        } else if (a == "-o") {
            if (!value(output)) return fail("-o needs a file");
        } else if (a == "--server") {
            if (!value(v) || v.find(':') == std::string::npos)
                return fail("--server needs HOST:PORT");
            options.servers.push_back(v);
        } else if (a == "--client") {
            if (!value(options.client)) return fail("--client needs a host");
        } else if (a == "--object") {
            size_t eq;
            if (!value(v) || (eq = v.find('=')) == std::string::npos)
                return fail("--object needs KEY=REPOID");
            options.objects[v.substr(0, eq)] = v.substr(eq + 1);
        } else if (a == "--checks") {
            write.checks = true;
        } else if (a == "--think") {
            write.think = true;
        } else if (a == "--pause") {
            char *end = nullptr;
            if (!value(v) || (write.pause_ms = std::strtol(v.c_str(), &end, 10)) <= 0 || *end)
                return fail("--pause needs a number of milliseconds above 0");
        } else if (!a.empty() && a[0] == '-') {
            return fail("unknown option " + a);
        } else {
            captures.push_back(a);
        }
    }
    if (captures.empty()) return fail("no capture given");

    recorder::Recording rec(options);
    for (const std::string &path : captures) {
        std::string error;
        if (!rec.read(path, error)) {
            std::fprintf(stderr, "orbelle-record: %s\n", error.c_str());
            return 2;
        }
        write.source += (write.source.empty() ? "" : ", ") + path;
    }
    rec.finish();

    std::ostringstream script;
    recorder::WriteCounts counts = recorder::write_script(rec, write, script);
    if (output.empty()) {
        std::cout << script.str();
    } else {
        std::ofstream file(output);
        file << script.str();
        if (!file.flush()) {
            std::fprintf(stderr, "orbelle-record: cannot write %s: %s\n", output.c_str(),
                         std::strerror(errno));
            return 2;
        }
    }
    std::fprintf(stderr,
                 "orbelle-record: %llu calls on %llu objects, %llu values saved for later, "
                 "%llu requests not decoded (kept as comments)\n",
                 static_cast<unsigned long long>(counts.calls),
                 static_cast<unsigned long long>(counts.binds),
                 static_cast<unsigned long long>(counts.saved),
                 static_cast<unsigned long long>(counts.undecoded));
    return 0;
}
