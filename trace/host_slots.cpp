#include "trace/host_slots.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
void *default_malloc(size_t size) { return std::malloc(size); }
void *default_realloc(void *block, size_t size) { return std::realloc(block, size); }
void default_free(void *block) { std::free(block); }
void default_print(const char *line) {
    std::fputs(line, stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

}  // namespace

iiop_init_args host_slots = {default_malloc, default_realloc, default_free, default_print};

void set_host_slots(const iiop_init_args &given) { host_slots = given; }

void vuprint(const char *line) { host_slots.vuprint(line); }

vuprint_fn vuprint_slot() { return host_slots.vuprint; }

char *vustrdup(const char *text) {
    if (text == nullptr) return nullptr;
    size_t n = std::strlen(text) + 1;
    char *copy = static_cast<char *>(vumalloc(n));
    if (copy) std::memcpy(copy, text, n);
    return copy;
}
