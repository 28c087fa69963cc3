#include "tools/runner/events.h"

#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cmath>
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
        // The run of characters that go as they are, in one append.
        size_t plain = i;
        while (plain < text.size()) {
            unsigned char c = static_cast<unsigned char>(text[plain]);
            if (c == '"' || c == '\\' || c < 0x20 || c >= 0x7F) break;
            ++plain;
        }
        out.append(text, i, plain - i);
        i = plain;
        if (i == text.size()) break;
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
        } else {
            size_t len = utf8_length(text, i);
            if (len == 0) {
                out += "\\ufffd";
                ++i;
                continue;
            }
            out.append(text, i, len);
            i += len;
            continue;
        }
        ++i;
    }
    out += '"';
}

// Pieces of a line put together in a buffer on the stack, then appended
// in one go.
class Piece {
public:
    Piece &text(const char *t) {
        size_t n = std::strlen(t);
        std::memcpy(at_, t, n);
        at_ += n;
        return *this;
    }
    Piece &integer(int64_t v) {
        at_ = std::to_chars(at_, end(), v).ptr;
        return *this;
    }
    // Milliseconds with three decimals, as printf's "%.3f" writes the
    // times a run measures; larger or odd values go through printf itself.
    Piece &ms(double ms) {
        if (!(ms >= 0 && ms < 1e12)) {
            at_ += std::snprintf(at_, 48, "%.3f", ms);
            return *this;
        }
        const auto micro = static_cast<int64_t>(std::llround(ms * 1000));
        integer(micro / 1000);
        *at_++ = '.';
        *at_++ = static_cast<char>('0' + micro / 100 % 10);
        *at_++ = static_cast<char>('0' + micro / 10 % 10);
        *at_++ = static_cast<char>('0' + micro % 10);
        return *this;
    }
    void append_to(std::string &out) { out.append(buf_, static_cast<size_t>(at_ - buf_)); }

private:
    char *end() { return buf_ + sizeof buf_; }
    char buf_[320];  // the longest piece is well below: numbers and keys
    char *at_ = buf_;
};

}  // namespace

int64_t epoch_ms() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

void append_json(std::string &out, const Event &e) {
    Piece head;
    head.text("{\"t\": ").integer(e.t).text(", \"vu\": ").integer(e.vu).text(", \"iter\": ");
    head.integer(e.iter).text(", \"kind\": \"").text(e.kind).text("\", \"name\": ");
    head.append_to(out);
    append_string(out, e.name);
    out += ", \"script\": ";
    append_string(out, e.script);
    Piece tail;
    tail.text(", \"line\": ").integer(e.line).text(", \"ms\": ").ms(e.ms);
    if (e.wait_ms >= 0) tail.text(", \"wait\": ").ms(e.wait_ms);
    tail.text(e.ok ? ", \"ok\": true" : ", \"ok\": false");
    if (!e.ok) {
        if (e.has_status)
            tail.text(", \"status\": ").integer(e.status).text(", \"index\": ").integer(e.index);
        tail.text(", \"error\": ");
    }
    tail.append_to(out);
    if (!e.ok) append_string(out, e.error);
    out += '}';
}

std::string to_json(const Event &e) {
    std::string out;
    append_json(out, e);
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
    line_.clear();
    append_json(line_, event);
    line_ += '\n';
    std::fwrite(line_.data(), 1, line_.size(), stream_);
    if (!batched_ || event.t - flushed_ms_ >= flush_every_ms) flush();
}

void EventWriter::set_batched(bool batched) {
    batched_ = batched;
    // The C library takes a size only with a buffer of the caller's.
    if (batched && stream_ != nullptr && buffer_ == nullptr) {
        buffer_ = std::make_unique<char[]>(buffer_bytes);
        std::setvbuf(stream_, buffer_.get(), _IOFBF, buffer_bytes);
    }
}

void EventWriter::flush() {
    if (stream_ == nullptr) return;
    std::fflush(stream_);
    flushed_ms_ = epoch_ms();
}

}  // namespace runner
