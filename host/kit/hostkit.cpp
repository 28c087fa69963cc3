#include "host/kit/hostkit.h"

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "orbelle/kinds.h"

namespace hostkit {
namespace {
std::vector<std::string> lines;
bool echo = false;
bool capture = true;
long allocation_count = 0;
// Enough for any test's assertions; a long benchmark must not grow it.
constexpr size_t max_recorded_sizes = 1 << 16;
std::vector<size_t> sizes;

void *kit_malloc(size_t size) {
    ++allocation_count;
    if (sizes.size() < max_recorded_sizes) sizes.push_back(size);
    return std::malloc(size);
}
void *kit_realloc(void *block, size_t size) { return std::realloc(block, size); }
void kit_free(void *block) { std::free(block); }
void kit_print(const char *line) {
    if (capture) lines.emplace_back(line ? line : "(null)");
    if (echo && line) {
        // Trace lines bring their own newline. The hex dump arrives in short
        // pieces (a label ending in a blank, hex pairs, separators) that
        // belong on one line; any other text is a line of its own.
        std::fputs(line, stdout);
        size_t n = std::strlen(line);
        bool piece = n <= 9 || line[n - 1] == ' ';
        if (n == 0 || (line[n - 1] != '\n' && !piece)) std::fputc('\n', stdout);
        std::fflush(stdout);
    }
}
}  // namespace

namespace {
// The loader's calls, in the one shape both systems fit.
#ifdef _WIN32
void *open_library(const char *path, bool loaded_only) {
    HMODULE module = loaded_only ? GetModuleHandleA(path) : LoadLibraryA(path);
    return reinterpret_cast<void *>(module);
}
void *library_symbol(void *handle, const char *name) {
    return reinterpret_cast<void *>(GetProcAddress(static_cast<HMODULE>(handle), name));
}
std::string loader_error(const char *path) {
    return std::string(path) + ": LoadLibrary failed, error " + std::to_string(GetLastError());
}
#else
void *open_library(const char *path, bool loaded_only) {
    return dlopen(path, RTLD_NOW | RTLD_LOCAL | (loaded_only ? RTLD_NOLOAD : 0));
}
void *library_symbol(void *handle, const char *name) { return dlsym(handle, name); }
std::string loader_error(const char *) { return dlerror(); }
#endif
}  // namespace

entry_fn load_library(const char *path, std::string *error) {
    void *handle = open_library(path, false);
    if (handle == nullptr) {
        if (error) *error = loader_error(path);
        return nullptr;
    }
    void *door = library_symbol(handle, "_iiop_entry");
    if (door == nullptr) {
        if (error) *error = std::string(path) + " has no _iiop_entry";
        return nullptr;
    }
    // The library is never unloaded: under the sanitizers that keeps the
    // names in leak reports, and a host keeps it for its whole life anyway.
    return reinterpret_cast<entry_fn>(door);
}

iiop_record make_record(int32_t op) {
    iiop_record record;
    std::memset(&record, 0, sizeof record);
    record.op = op;
    return record;
}

iiop_init_args slots() { return {kit_malloc, kit_realloc, kit_free, kit_print}; }

const std::vector<std::string> &printed() { return lines; }

void clear_printed() { lines.clear(); }

bool printed_contains(const std::string &text) {
    for (const auto &line : lines)
        if (line.find(text) != std::string::npos) return true;
    return false;
}

std::string printed_text() {
    std::string all;
    for (const auto &line : lines) all += line;
    return all;
}

void set_echo(bool on) { echo = on; }

void set_capture(bool on) { capture = on; }

void *find_symbol(const char *path, const char *name) {
    void *handle = open_library(path, true);
    return handle ? library_symbol(handle, name) : nullptr;
}

long allocations() { return allocation_count; }

const std::vector<size_t> &allocation_sizes() { return sizes; }

void Plist::set(const std::string &name, const char *value) {
    size_t i = 0;
    while (i < names_.size() && names_[i] != name) ++i;
    if (i == names_.size()) {
        names_.push_back(name);
        values_.emplace_back();
        has_value_.push_back(false);
    }
    values_[i] = value ? value : "";
    has_value_[i] = value != nullptr;
}

iiop_plist_entry *Plist::entries() {
    entries_.clear();
    for (size_t i = 0; i < names_.size(); ++i) {
        iiop_plist_entry e{};
        e.name = const_cast<char *>(names_[i].c_str());
        e.value = has_value_[i] ? const_cast<char *>(values_[i].c_str()) : nullptr;
        entries_.push_back(e);
    }
    return entries_.empty() ? nullptr : entries_.data();
}

ScriptParm *find(ScriptParm *list, const char *name) {
    for (ScriptParm *p = list; p != nullptr; p = p->next)
        if (p->name && std::strcmp(p->name, name) == 0) return p;
    return nullptr;
}

bool set_value(ScriptParm *list, const char *name, const char *text) {
    ScriptParm *p = find(list, name);
    if (p == nullptr) return false;
    std::free(p->strval);
    p->strval = text ? strdup(text) : nullptr;
    return true;
}

const char *value(ScriptParm *list, const char *name) {
    ScriptParm *p = find(list, name);
    return p ? p->strval : nullptr;
}

std::vector<std::string> names(const ScriptParm *list) {
    std::vector<std::string> out;
    for (const ScriptParm *p = list; p != nullptr; p = p->next)
        out.emplace_back(p->name ? p->name : "(null)");
    return out;
}

void free_list(ScriptParm *list) {
    while (list != nullptr) {
        ScriptParm *next = list->next;
        std::free(list->name);
        std::free(list->strval);
        std::free(list);
        list = next;
    }
}

ScriptParm *copy_list(const ScriptParm *list) {
    ScriptParm *head = nullptr, **tail = &head;
    for (const ScriptParm *p = list; p != nullptr; p = p->next) {
        auto *copy = static_cast<ScriptParm *>(std::calloc(1, sizeof(ScriptParm)));
        if (copy == nullptr) break;
        *tail = copy;
        tail = &copy->next;
        copy->flags = p->flags;
        copy->type = p->type;
        copy->supertype = p->supertype;
        copy->datalen = p->datalen;
        copy->reserved28 = p->reserved28;
        copy->valuesize = p->valuesize;
        copy->name = p->name ? strdup(p->name) : nullptr;
        copy->strval = p->strval ? strdup(p->strval) : nullptr;
        if ((p->name && !copy->name) || (p->strval && !copy->strval)) {
            free_list(head);
            return nullptr;
        }
        if (p->next == nullptr) return head;
    }
    if (list != nullptr) free_list(head);  // out of memory
    return nullptr;
}

void Host::release_references(ScriptParm *list) {
    for (ScriptParm *p = list; p != nullptr; p = p->next) {
        if (p->type != tk_objref || p->ptr == nullptr) continue;
        iiop_record record = make_record(IIOP_RELEASE);
        record.u.release.objref = p->ptr;
        call(record);
        std::free(record.status_text);
        p->ptr = nullptr;
    }
}

int32_t Host::init() {
    iiop_record record = make_record(IIOP_INIT);
    record.u.init = slots();
    return call(record);
}

int32_t Host::get_parms(iiop_req &req, iiop_target &target, const char *repoid,
                        const char *operation, Plist *plist) {
    std::memset(&target, 0, sizeof target);
    std::memset(&req, 0, sizeof req);
    target.repoid = const_cast<char *>(repoid);
    req.target = &target;
    req.operation = const_cast<char *>(operation);
    if (plist) {
        req.plist = plist->entries();
        req.plist_count = plist->count();
    }
    iiop_record record = make_record(IIOP_GET_PARMS);
    record.u.get_parms.req = &req;
    return call(record);
}

}  // namespace hostkit
