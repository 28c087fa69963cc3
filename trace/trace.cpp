#include "trace/trace.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/harnix/harnix.h"
#include "platform/platform.h"
#include "trace/host_slots.h"

uint32_t debug_level = 0;

namespace {
// Room for one piece of an opaque dump; a longer label is cut to fit.
constexpr size_t opaque_buffer_size = 512;

void format_and_print(const char *format, va_list args) {
    va_list sizing;
    va_copy(sizing, args);
    size_t size = static_cast<size_t>(printf_size(format, sizing)) + 100;
    va_end(sizing);
    char *line = static_cast<char *>(std::malloc(size));
    if (line == nullptr) return;
    int n = std::vsnprintf(line, size, format, args);
    size_t len = n < 0 ? 0 : static_cast<size_t>(n);
    if (len >= size) len = size - 1;
    // The test is on the format, not the result: a newline anywhere in the
    // format means the caller laid out its own lines.
    if (std::strchr(format, '\n') == nullptr && len + 1 < size) {
        line[len] = '\n';
        line[len + 1] = '\0';
    }
    vuprint(line);
    std::free(line);
}

void print_piece(char *buffer, const char *format, ...) ORBELLE_PRINTF(2, 3);
void print_piece(char *buffer, const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(buffer, opaque_buffer_size, format, args);
    va_end(args);
    vuprint(buffer);
}

void dump_rows(char *buffer, const unsigned char *bytes, int length, const char *first,
               bool chars) {
    for (int i = 0; i < length; ++i) {
        if (i == 0)
            print_piece(buffer, "%s", first);
        else if (i % 32 == 0)
            print_piece(buffer, "\n       ");
        else if (i % 4 == 0)
            print_piece(buffer, " ");
        if (!chars)
            print_piece(buffer, "%02x", bytes[i]);
        else
            print_piece(buffer, "%c ", std::isprint(bytes[i]) ? bytes[i] : '?');
    }
}
}  // namespace

void dmsg_v(const char *format, ...) {
    va_list args;
    va_start(args, format);
    format_and_print(format, args);
    va_end(args);
    platform::debug_output("called dmsg_v\n");
}

void dmsg_filter(uint32_t level, const char *format, ...) {
    if (level > debug_level) return;
    va_list args;
    va_start(args, format);
    format_and_print(format, args);
    va_end(args);
    platform::debug_output("called dmsg_filter\n");
}

void dmsg_opaque_full(const char *label, const void *bytes, int length) {
    char buffer[opaque_buffer_size];
    print_piece(buffer, "%s ", nz(label));
    if (length <= 0 || bytes == nullptr) {
        print_piece(buffer, "(empty)");
    } else {
        const auto *p = static_cast<const unsigned char *>(bytes);
        dump_rows(buffer, p, length, "\nhex:   ", false);
        dump_rows(buffer, p, length, "\nchars: ", true);
        print_piece(buffer, "\n");
    }
    print_piece(buffer, "\n");
    platform::debug_output("called dmsg_opaque_full\n");
}

extern "C" {
void set_debug_level(uint32_t level) { debug_level = level; }

int32_t enable_debug(void) {
    if (platform::env("corbadebug") == nullptr) return 3;
    debug_level = 5;
    return 0;
}
}
