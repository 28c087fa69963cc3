// The reply of a deferred request, read into its parameter list: either
// awaited on purpose or handed over by an invocation that read it while it
// waited for a reply of its own.
#ifndef ORBELLE_SCRIPT_RESPONSE_H
#define ORBELLE_SCRIPT_RESPONSE_H

#include <cstdint>

#include "orbelle/host.h"

class CDR;
class Environment;
struct objrefdata;

// With in_hand 0 it waits on a connection to target for the Reply whose id is
// req->request_id (sending nothing) and reads it; with in_hand 1, stream
// holds that Reply at its first value and reply_status says what it is.
// For status 0 every out and inout record is decoded in list order: no
// sequence is followed and no length compared. Failures stay in env. The
// wait list is not touched. The signature is that of deferred_reply_fn.
void vu_do_get_response(objrefdata *target, iiop_req *req, Environment &env, uint32_t reply_status,
                        int in_hand, CDR *stream);

#endif
