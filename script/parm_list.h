// The parameter list being collected for one request: the well-known
// operations and the walk of a described operation both append to it.
#ifndef ORBELLE_PARM_LIST_H
#define ORBELLE_PARM_LIST_H

#include "orbelle/host.h"

// Empties the list (the records stay with whoever took the head).
void opDetails_reset();
// A record from vumalloc with the given name copied (vumalloc too), null
// strval, ptr and next, and valuesize 0. datalen and the reserved word are
// left as allocated.
ScriptParm *opDetails_new_record(const char *name, int32_t flags, int32_t type, int32_t supertype);
// Accepts null (nothing appended).
void opDetails_append(ScriptParm *record);
ScriptParm *opDetails_head();

// The request whose list is collected, for the lengths its plist gives.
void opDetails_set_call(iiop_req *req);
iiop_req *opDetails_call();

#endif
