#include "gateway/connections.h"

#include <string>
#include <unordered_map>

#include "giop/objref.h"
#include "trace/trace.h"

namespace {
// The list is a set of handles with the address each was entered under, and
// a count per address, so that every operation costs the same however many
// handles a long-running host has bound. A handle's own profile never
// changes (a forward goes to forward_profile), so the address taken at entry
// stays right until the handle leaves.
std::unordered_map<const objref *, std::string> connection_list;
std::unordered_map<std::string, uint32_t> handles_per_address;

// Host text and port as one key; a host text never holds a NUL.
std::string address_of(const objref *obj) {
    const iiop_profile &p = obj->data->profile;
    std::string key(p.host != nullptr ? p.host : "");
    key.push_back('\0');
    key.append(std::to_string(p.port));
    return key;
}

bool has_address(const objref *obj) { return obj != nullptr && obj->data != nullptr; }
}  // namespace

void add_connection(const objref *obj) {
    TRACE("add_connection:  " PTR_FMT, ptrv(obj));
    if (!has_address(obj) || connection_list.count(obj) != 0) return;
    std::string key = address_of(obj);
    ++handles_per_address[key];
    connection_list.emplace(obj, std::move(key));
}

void remove_connection(const objref *obj) {
    auto entry = connection_list.find(obj);
    if (entry == connection_list.end()) return;
    auto count = handles_per_address.find(entry->second);
    if (count != handles_per_address.end() && --count->second == 0)
        handles_per_address.erase(count);
    connection_list.erase(entry);
}

uint32_t connections_at_host(const objref *obj) {
    if (!has_address(obj)) return 0;
    auto count = handles_per_address.find(address_of(obj));
    return count == handles_per_address.end() ? 0 : count->second;
}

bool on_connection_list(const objref *obj) { return connection_list.count(obj) != 0; }
