// orbelle-record: a replayable script from captures of a client's traffic.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "tools/recorder/recording.h"
#include "tools/recorder/script_writer.h"

namespace {

const char usage[] =
    "usage: orbelle-record [-C DIR] [-o SCRIPT] [--server HOST:PORT]... [--client HOST]\n"
    "                      [--object KEY=REPOID]... [--checks] [--think] [--pause MS]\n"
    "                      [--data FILE.csv]\n"
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
        } else if (a == "--data") {
            if (!value(write.data_file) || write.data_file.empty())
                return fail("--data needs a file name");
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
    for (const std::string &path : captures)
        write.source += (write.source.empty() ? "" : ", ") + path;

    // The body goes to a temporary file as the calls come; the header,
    // which counts the whole capture, goes before it at the end.
    char body_path[] = "/tmp/orbelle-record-XXXXXX";
    const int body_fd = mkstemp(body_path);
    if (body_fd < 0) {
        std::fprintf(stderr, "orbelle-record: cannot make a temporary file: %s\n",
                     std::strerror(errno));
        return 2;
    }
    close(body_fd);
    struct Remove {
        const char *path;
        ~Remove() { std::remove(path); }
    } remove_body{body_path};
    std::ofstream body(body_path, std::ios::binary);
    recorder::ScriptWriter writer(write, body);
    recorder::Recording rec(options, writer);
    for (const std::string &path : captures) {
        std::string error;
        if (!rec.read(path, error)) {
            std::fprintf(stderr, "orbelle-record: %s\n", error.c_str());
            return 2;
        }
    }
    rec.finish();
    writer.finish();
    body.close();

    std::ofstream file;
    if (!output.empty()) file.open(output, std::ios::binary);
    std::ostream &out = output.empty() ? std::cout : file;
    writer.header(rec, out);
    std::ifstream written(body_path, std::ios::binary);
    // An empty body (a capture without calls) is no error.
    if (written.peek() != std::char_traits<char>::eof()) out << written.rdbuf();
    if (!out.flush()) {
        std::fprintf(stderr, "orbelle-record: cannot write %s: %s\n",
                     output.empty() ? "the script" : output.c_str(), std::strerror(errno));
        return 2;
    }
    if (!write.data_file.empty()) {
        // Beside the script, where its data line finds it.
        std::string path = write.data_file;
        if (path.find('/') == std::string::npos && !output.empty() &&
            output.find('/') != std::string::npos)
            path = output.substr(0, output.rfind('/') + 1) + path;
        std::ofstream data(path, std::ios::binary);
        data << writer.data_text();
        if (!data.flush()) {
            std::fprintf(stderr, "orbelle-record: cannot write %s: %s\n", path.c_str(),
                         std::strerror(errno));
            return 2;
        }
    }
    const recorder::WriteCounts &counts = writer.counts();
    std::fprintf(stderr,
                 "orbelle-record: %llu calls on %llu objects, %llu values saved for later, "
                 "%llu requests not decoded (kept as comments)\n",
                 static_cast<unsigned long long>(counts.calls),
                 static_cast<unsigned long long>(counts.binds),
                 static_cast<unsigned long long>(counts.saved),
                 static_cast<unsigned long long>(counts.undecoded));
    return 0;
}
