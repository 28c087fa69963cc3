// The host kit: what tests, the runner and benchmarks need to act as the
// library's host. Builds records, calls the door (linked or through dlopen),
// owns parameter lists and captures the lines the library prints.
#ifndef ORBELLE_HOSTKIT_H
#define ORBELLE_HOSTKIT_H

#include <cstdint>
#include <string>
#include <vector>

#include "orbelle/host.h"

namespace hostkit {

using entry_fn = int32_t (*)(iiop_record *);

// Loads the library as a host does and finds its door. Null on failure, with
// the reason in *error. The library stays loaded for the life of the process.
entry_fn load_library(const char *path, std::string *error);

// A record of the given operation with every other word zero.
iiop_record make_record(int32_t op);

// The kit's callback slots: the C heap, with a count of the blocks handed
// out, and a print slot that keeps every line.
iiop_init_args slots();
// Lines printed through the kit's print slot since the last clear.
const std::vector<std::string> &printed();
void clear_printed();
// True when some printed line contains text.
bool printed_contains(const std::string &text);
// Everything printed, in one text.
std::string printed_text();
// Printed lines are also written to standard output while echo is on.
void set_echo(bool on);
// Printed lines are kept for printed() while capture is on (the default).
void set_capture(bool on);
// Blocks handed out by the kit's allocation slot so far, and their sizes.
long allocations();
const std::vector<size_t> &allocation_sizes();

// A script's name/value array, owning its texts.
class Plist {
public:
    void set(const std::string &name, const char *value);
    iiop_plist_entry *entries();
    int32_t count() const { return static_cast<int32_t>(entries_.size()); }

private:
    std::vector<std::string> names_;
    std::vector<std::string> values_;
    std::vector<bool> has_value_;
    std::vector<iiop_plist_entry> entries_;
};

// Parameter lists that the library made through the kit's slots.
ScriptParm *find(ScriptParm *list, const char *name);
// Replaces a value text (with a block from the C heap); false when no
// record has that name.
bool set_value(ScriptParm *list, const char *name, const char *text);
// The value text of name, or null when there is none or no such record.
const char *value(ScriptParm *list, const char *name);
// The names of the list, in order.
std::vector<std::string> names(const ScriptParm *list);
// Releases records, names and value texts.
void free_list(ScriptParm *list);
// A copy of a list as the library made it before a call (no data areas or
// references in ptr), from the C heap as the kit's slots allocate; null
// when the heap is out.
ScriptParm *copy_list(const ScriptParm *list);

// An export of a library that load_library loaded, or null.
void *find_symbol(const char *path, const char *name);
template <typename Fn>
Fn find_export(const char *path, const char *name) {
    return reinterpret_cast<Fn>(find_symbol(path, name));
}

// A host: the door plus convenience for the common operations.
class Host {
public:
    explicit Host(entry_fn entry) : entry_(entry) {}

    int32_t call(iiop_record &record) { return entry_(&record); }
    // iiop_init with the kit's slots.
    int32_t init();

    // iiop_get_parms for operation of the interface repoid; the list lands
    // in req.parms (the caller owns it).
    int32_t get_parms(iiop_req &req, iiop_target &target, const char *repoid, const char *operation,
                      Plist *plist = nullptr);

    // A reply leaves the object references it returned in ptr of their
    // records, and those handles are the host's: gives each up through the
    // door (iiop_release) and clears ptr. The value texts stay.
    void release_references(ScriptParm *list);

private:
    entry_fn entry_;
};

}  // namespace hostkit

#endif
