// Requests of a script: iiop_invoke runs one, one-way, two-way or deferred,
// and iiop_get_response polls for or waits on a deferred one.
#ifndef ORBELLE_REQUEST_H
#define ORBELLE_REQUEST_H

#include <cstdint>

#include "orbelle/host.h"

// Stores roundtrip in the record's request and runs it.
int32_t exec_request(iiop_record *record, int32_t roundtrip);
// Runs the record's request: sets the reply time-out, puts a deferred
// request on the wait list, calls vu_do_call and reports. 0 or the status.
int32_t execute_do_call(iiop_record *record);
// 0 while the request's id stands on the wait list, else 1. Looks at
// nothing but the list.
int32_t _iiop_poll_response(iiop_record *record);
// Waits for a deferred request's reply, fills its parameters and takes it
// off the wait list. 0 or the status.
int32_t _iiop_get_response(iiop_record *record);

#endif
