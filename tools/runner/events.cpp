#include "tools/runner/events.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>

namespace runner {
namespace {

// Length of the valid UTF-8 sequence at s[i], or 0.
size_t utf8_length(const std::string &s, size_t i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    size_t len = c < 0x80           ? 1
                 : (c >> 5) == 0x6  ? 2
                 : (c >> 4) == 0xE  ? 3
                 : (c >> 3) == 0x1E ? 4
                                    : 0;
    if (len == 0 || i + len > s.size()) return 0;
    for (size_t k = 1; k < len; ++k)
        if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return 0;
    unsigned char c1 = len > 1 ? static_cast<unsigned char>(s[i + 1]) : 0;
    // Overlong forms, UTF-16 surrogates and code points above U+10FFFF.
    if ((len == 2 && c < 0xC2) || (c == 0xE0 && c1 < 0xA0) || (c == 0xED && c1 >= 0xA0) ||
        (c == 0xF0 && c1 < 0x90) || (c == 0xF4 && c1 >= 0x90) || c > 0xF4)
        return 0;
    return len;
}

void append_string(std::string &out, const std::string &text) {
    out += '"';
    for (size_t i = 0; i < text.size();) {
        unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else if (c >= 0x80) {
            size_t len = utf8_length(text, i);
            if (len == 0) {
                out += "\\ufffd";
                ++i;
                continue;
            }
            out.append(text, i, len);
            i += len;
            continue;
        } else {
            out += static_cast<char>(c);
        }
        ++i;
    }
    out += '"';
}

}  // namespace

int64_t epoch_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

std::string to_json(const Event &e) {
    std::string out = "{\"t\": " + std::to_string(e.t) + ", \"vu\": " + std::to_string(e.vu) +
                      ", \"iter\": " + std::to_string(e.iter) + ", \"kind\": ";
    append_string(out, e.kind);
    out += ", \"name\": ";
    append_string(out, e.name);
    out += ", \"script\": ";
    append_string(out, e.script);
    char ms[48];
    std::snprintf(ms, sizeof ms, "%.3f", e.ms);
    out += ", \"line\": " + std::to_string(e.line) + ", \"ms\": " + ms;
    if (e.wait_ms >= 0) {
        std::snprintf(ms, sizeof ms, "%.3f", e.wait_ms);
        out += ", \"wait\": ";
        out += ms;
    }
    out += std::string(", \"ok\": ") + (e.ok ? "true" : "false");
    if (!e.ok) {
        if (e.has_status)
            out += ", \"status\": " + std::to_string(e.status) +
                   ", \"index\": " + std::to_string(e.index);
        out += ", \"error\": ";
        append_string(out, e.error);
    }
    out += '}';
    return out;
}

EventWriter::~EventWriter() {
    if (owned_ && stream_) std::fclose(stream_);
}

bool EventWriter::open(const std::string &where, std::string &error) {
    if (where == "-") {
        // Events keep standard output to themselves; every text, the
        // library's trace included, goes to standard error from now on.
        std::fflush(stdout);
        int fd = dup(STDOUT_FILENO);
        stream_ = fd < 0 ? nullptr : fdopen(fd, "w");
        if (stream_ == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
            error = std::string("cannot keep standard output for events: ") + std::strerror(errno);
            return false;
        }
    } else if (where.rfind("fd:", 0) == 0) {
        char *end = nullptr;
        errno = 0;
        long fd = std::strtol(where.c_str() + 3, &end, 10);
        if (where.size() == 3 || *end != '\0' || errno != 0 || fd < 0 || fd > 65535) {
            error = "'" + where + "' is not fd: and a descriptor number";
            return false;
        }
        stream_ = fdopen(static_cast<int>(fd), "w");
    } else {
        stream_ = std::fopen(where.c_str(), "w");
    }
    if (stream_ == nullptr) {
        error = "cannot open " + where + " for events: " + std::strerror(errno);
        return false;
    }
    owned_ = true;
    return true;
}

void EventWriter::write(const Event &event) {
    if (stream_ == nullptr) return;
    std::string line = to_json(event);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stream_);
    if (!batched_ || std::strcmp(event.kind, "iteration") == 0) {
        flush();
        return;
    }
    if (event.t - flushed_ms_ >= 100) flush();
}

void EventWriter::flush() {
    if (stream_ == nullptr) return;
    std::fflush(stream_);
    flushed_ms_ = epoch_ms();
}

}  // namespace runner
