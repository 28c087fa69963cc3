#include "script/parms.h"

#include <cstring>

#include "orbelle/kinds.h"
#include "repository/flatname.h"
#include "script/opdetails.h"
#include "script/parm_list.h"
#include "trace/trace.h"

namespace {

const char *const well_known[] = {"_get_implementation", "_get_interface", "_is_a",
                                  "_non_existent"};
}  // namespace

bool is_well_known_operation(const char *operation) {
    if (operation == nullptr) return false;
    for (const char *name : well_known)
        if (std::strcmp(operation, name) == 0) return true;
    return false;
}

ScriptParm *GetWellKnownOpDetails(const char *operation) {
    opDetails_reset();
    // The result is named for the operation with its leading underscore
    // replaced by "^": "^is_a".
    size_t n = std::strlen(operation);
    char *result_name = new char[n + 1];
    std::memcpy(result_name, operation, n + 1);
    result_name[0] = flat_result_mark;
    int32_t type = std::strcmp(operation, "_get_implementation") == 0 ||
                           std::strcmp(operation, "_get_interface") == 0
                       ? tk_objref
                       : tk_boolean;
    TRACE("   well-known operation return value name '%s'", result_name);
    TRACE("   setting supertype 0");
    ScriptParm *result = opDetails_new_record(result_name, PARM_OUT, type, 0);
    TRACE("   setting supertype done");
    opDetails_append(result);
    delete[] result_name;

    if (std::strcmp(operation, "_is_a") == 0) {
        TRACE("   well-known operation parameter name '%s'", "logical_type_id");
        TRACE("   setting supertype 0");
        ScriptParm *parm = opDetails_new_record("logical_type_id", PARM_IN, tk_string, 0);
        TRACE("   setting supertype done");
        opDetails_append(parm);
    }
    return opDetails_head();
}

ScriptParm *PirGetOperationDetails(iiop_req *req) {
    opDetails_set_call(req);
    if (is_well_known_operation(req->operation)) return GetWellKnownOpDetails(req->operation);
    const char *repoid = req->target ? req->target->repoid : nullptr;
    return operation_details(req->operation, repoid);
}

int32_t _iiop_get_parms(iiop_record *record) {
    iiop_req *req = record->u.get_parms.req;
    TRACE("_iiop_get_parms:  operation '%s', repoid '%s'", nz(req->operation),
          nz(req->target ? req->target->repoid : nullptr));
    TRACE("_iiop_get_parms:  calling PirGetOperationDetails");
    req->parms = PirGetOperationDetails(req);
    if (req->parms == nullptr) {
        TRACE("_iiop_get_parms:  operation '%s' has no parameters and returns void",
              nz(req->operation));
        return IIOP_OK;
    }
    if (debug_level != 0) {
        for (ScriptParm *p = req->parms; p != nullptr; p = p->next) {
            dmsg_v("_iiop_get_parms: name '%s'", nz(p->name));
            dmsg_v("   about to get next, parmptr = " PTR_FMT, ptrv(p));
        }
    }
    TRACE("_iiop_get_parms: returning IIOP_OK");
    return IIOP_OK;
}
