#include "data/environment.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "data/unaligned.h"
#include "platform/platform.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

char error_text[error_text_size] = "";
int32_t reply_kind = 0;

namespace {
constexpr char system_prefix[] = "IDL:omg.org/CORBA/";
constexpr size_t system_prefix_length = sizeof system_prefix - 1;
constexpr char typecode_prefix[] = "TypeCode/";
// Room for one report line, as the host's print slot takes it.
constexpr size_t report_buffer_size = 512;

char *copy_text(const char *text) {
    if (text == nullptr) return nullptr;
    size_t n = std::strlen(text) + 1;
    auto *copy = static_cast<char *>(std::malloc(n));
    if (copy != nullptr) std::memcpy(copy, text, n);
    return copy;
}
}  // namespace

SystemException *new_system_exception(const char *id, uint32_t minor, uint32_t completed) {
    auto *record = static_cast<SystemException *>(std::malloc(sizeof(SystemException)));
    if (record == nullptr) return nullptr;
    record->id = copy_text(id);
    if (id != nullptr && record->id == nullptr) {
        std::free(record);
        return nullptr;
    }
    record->minor = minor;
    record->completed = completed;
    return record;
}

Environment::~Environment() { clear(); }

void Environment::clear() {
    if (exception_ == nullptr) return;
    std::free(load_unaligned<char *>(exception_));
    std::free(exception_);
    exception_ = nullptr;
    has_system_fields_ = false;
}

const char *Environment::id() const {
    if (exception_ == nullptr) return nullptr;
    return load_unaligned<char *>(exception_);
}

SystemException *Environment::system_exception() const {
    return has_system_fields_ ? static_cast<SystemException *>(exception_) : nullptr;
}

int Environment::exception_kind() const {
    if (exception_ == nullptr) return 0;
    const char *text = id();
    if (text != nullptr && std::strncmp(text, system_prefix, system_prefix_length) == 0 &&
        std::strncmp(text + system_prefix_length, typecode_prefix, sizeof typecode_prefix - 1) != 0)
        return 1;
    return 2;
}

void Environment::take_system(SystemException *record) {
    clear();
    exception_ = record;
    has_system_fields_ = record != nullptr;
}

void Environment::take_user(void *record) {
    clear();
    exception_ = record;
    has_system_fields_ = false;
}

int raise_system(Environment &env, const char *id) {
    env.take_system(new_system_exception(id, own_minor, own_completed));
    return 0;
}

int raise_bounds(Environment &env) {
    env.take_system(new_system_exception(exid::Bounds, 0, 0));
    return 0;
}

void set_error_text(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(error_text, error_text_size, format, args);
    va_end(args);
}

void _dmsg_x(const Environment &env, const char *where) {
    set_error_text("%s", nz(env.id()));
    if (debug_level == 0) return;
    char line[report_buffer_size];
    std::snprintf(line, sizeof line, "exception '%s' at '%s'\n", nz(env.id()), nz(where));
    vuprint(line);
    const SystemException *sys = env.system_exception();
    if (env.exception_kind() == 1 && sys != nullptr) {
        std::snprintf(line, sizeof line, "minor %#" PRIx32 ", completion %#" PRIx32 "\n",
                      sys->minor, sys->completed);
        vuprint(line);
    }
    platform::debug_output("called _dmsg_x\n");
}
