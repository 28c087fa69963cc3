// Bind and release: the host's modus becomes an object reference handle,
// and a handle given back closes its connection when it was the last user of
// that address. The first bind of the process also sets the library up.
#ifndef ORBELLE_BIND_H
#define ORBELLE_BIND_H

#include "orbelle/host.h"

struct ORB;
struct objref;

// The ORB of the gateway: null until the first bind's set-up succeeded, and
// while it is null every bind repeats the set-up.
extern ORB *orb_ptr;

// The handle for a reference text from get_ior, or null. The marker
// "NameService" asks the naming service of the latest alternative that named
// one for record's instance_id. A failure stays in env, unreported.
objref *attempt_to_bind(const char *text, ORB *orb, const iiop_record *record);

#endif
