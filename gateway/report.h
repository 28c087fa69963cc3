// The report of a failure to the host: the exception standing in the
// gateway's environment becomes the record's status, exception_index and
// status_text.
#ifndef ORBELLE_REPORT_H
#define ORBELLE_REPORT_H

#include <cstdint>

#include "data/environment.h"
#include "orbelle/host.h"

// The gateway's one environment: every host operation that fails with an
// exception leaves it here, and it stays until the next work clears it.
extern Environment env;

// The exception_index of an exception id: the position of the first of the
// standard exception names found anywhere in it, letters compared with their
// case; 29 for every other id, UNKNOWN and null included.
int32_t exception_index_of(const char *id);

// Fills status (reply_kind, or 1 while no exception Reply has set it),
// exception_index and status_text (a vumalloc block the host owns, holding
// the id) from the exception in env, which is left there. place names the
// failing step in the trace. Returns the status, the operation's result.
int32_t report_exception(iiop_record *record, const char *place);

#endif
