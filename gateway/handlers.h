// Handlers of the host's operations, one per row of the dispatch table.
#ifndef ORBELLE_HANDLERS_H
#define ORBELLE_HANDLERS_H

#include "orbelle/host.h"

int32_t _iiop_init(iiop_record *record);
int32_t _iiop_bind(iiop_record *record);
int32_t _iiop_invoke(iiop_record *record);
int32_t _iiop_release(iiop_record *record);
int32_t _iiop_get_exception(iiop_record *record);
int32_t _iiop_make_ior(iiop_record *record);
int32_t _iiop_timeout(iiop_record *record);
// Polls (timeout_ms 0) or waits for a deferred request's reply.
int32_t _iiop_get_response_dispatch(iiop_record *record);

#endif
