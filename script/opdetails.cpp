#include "script/opdetails.h"

#include "script/parms.h"
#include "trace/trace.h"

// Interface descriptions are not read by this build yet: every described
// operation gives the empty list.
ScriptParm *operation_details(const char *operation, const char *repoid) {
    opDetails_reset();
    TRACE("GetOpDetails:  no interface repository for '%s' of '%s'", nz(operation), nz(repoid));
    return opDetails_head();
}
