// The naming step of a bind: asks a naming service to resolve the bind's
// instance_id, by a resolve request sent through the library's own door so
// that it runs exactly as a script's request does.
#ifndef ORBELLE_NAMING_H
#define ORBELLE_NAMING_H

#include <cstdint>

#include "orbelle/host.h"

struct objref;

// The handle that the naming service with the reference text ns_reference
// gives for record's instance_id, or null. A failure of the call stays in
// env unreported; the bind goes on with its next alternative.
objref *resolve_through_naming_service(const iiop_record *record, const char *ns_reference);

// A resolve request made by hand: target, request and its four parameter
// records (the result, then a Name of one component: length 1, id, kind),
// all from the library's heap. Their order alone gives the wire form.
struct resolve_request {
    iiop_target *target;
    iiop_req *req;
};
// Null members when memory runs out (everything made so far is released).
resolve_request make_resolve_request(const iiop_record *record, objref *naming_service);
// Releases what make_resolve_request made, the value texts included. A
// reference left in the result record stays: it is the caller's.
void free_resolve_request(resolve_request &request);

// Test hook: the door the request goes through; null restores _iiop_entry.
using naming_door_fn = int32_t (*)(iiop_record *record);
void set_naming_door(naming_door_fn door);

#endif
