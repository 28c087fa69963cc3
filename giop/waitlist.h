// The deferred requests whose replies are still to come, newest first, and
// the reader that an invocation hands such a reply to. The list holds the
// host's request blocks; the gateway fills it and registers the reader.
#ifndef ORBELLE_GIOP_WAITLIST_H
#define ORBELLE_GIOP_WAITLIST_H

#include <cstdint>

#include "orbelle/host.h"

class CDR;
class Environment;
struct objrefdata;

struct wait_entry {
    iiop_req *req;
    wait_entry *next;
};

extern wait_entry *wait_list;

// Puts req at the front. 0 when memory runs out.
int wait_list_add(iiop_req *req);
// Takes every entry that points to req off the list; returns how many.
int wait_list_remove(const iiop_req *req);

// Reads a reply that arrived for a deferred request into its parameters.
// stream stands at the reply's first value; in_hand is 1 for a reply that
// has been read already.
using deferred_reply_fn = void (*)(objrefdata *target, iiop_req *req, Environment &env,
                                   uint32_t reply_status, int in_hand, CDR *stream);
void set_deferred_reply_reader(deferred_reply_fn reader);
deferred_reply_fn deferred_reply_reader();

#endif
