// One request of a script: the texts of an iiop_req's parameter list become
// a GIOP Request, and the Reply's values come back into the same list.
#ifndef ORBELLE_SCRIPT_DOCALL_H
#define ORBELLE_SCRIPT_DOCALL_H

#include <cstdint>

#include "orbelle/host.h"

class Environment;
struct objrefdata;

// Marshals every record of req->parms in list order, sends the Request to
// target and, for a two-way call that is not deferred, reads a NO_EXCEPTION
// Reply into the out and inout records. A location forward or a closed
// connection builds the Request anew from the texts. Failures, and the
// exceptions of the Reply, are left in env; nothing else reports them.
void vu_do_call(objrefdata *target, iiop_req *req, Environment &env, int32_t deferred);

#endif
