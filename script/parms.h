// Script parameter lists: the handler of iiop_get_parms, the well-known
// operations, and the process-wide state in which a list is collected.
#ifndef ORBELLE_PARMS_H
#define ORBELLE_PARMS_H

#include "orbelle/host.h"

// Handler of iiop_get_parms: sets parms of the request block to a new list.
// Always IIOP_OK; an empty list is the only sign that nothing was collected.
int32_t _iiop_get_parms(iiop_record *record);

// The list of the request's operation, or null.
ScriptParm *PirGetOperationDetails(iiop_req *req);

// The fixed list of _is_a, _non_existent, _get_interface or
// _get_implementation.
ScriptParm *GetWellKnownOpDetails(const char *operation);

// True for the four operations every object has, by exact comparison.
bool is_well_known_operation(const char *operation);

#endif
