#include "gateway/naming.h"

#include <cstdlib>
#include <cstring>

#include "data/environment.h"
#include "gateway/connections.h"
#include "gateway/report.h"
#include "giop/objref.h"
#include "giop/orb.h"
#include "orbelle/kinds.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
// TCKinds of the records.

naming_door_fn naming_door = _iiop_entry;

char *copy_text(const char *text) { return text != nullptr ? strdup(text) : nullptr; }

// A parameter record from the library's heap; name is a constant that is
// never written or released.
ScriptParm *new_parm(int32_t flags, int32_t type, const char *name) {
    auto *parm = static_cast<ScriptParm *>(std::calloc(1, sizeof(ScriptParm)));
    if (parm == nullptr) return nullptr;
    parm->flags = flags;
    parm->type = type;
    parm->name = const_cast<char *>(name);
    return parm;
}

// An in record whose value is a private copy of text; null when memory runs
// out (nothing is left behind).
ScriptParm *new_in_parm(int32_t type, const char *name, const char *text) {
    ScriptParm *parm = new_parm(PARM_IN, type, name);
    if (parm == nullptr) return nullptr;
    parm->strval = copy_text(text);
    if (text != nullptr && parm->strval == nullptr) {
        std::free(parm);
        return nullptr;
    }
    return parm;
}

void free_parms(ScriptParm *parm) {
    while (parm != nullptr) {
        ScriptParm *next = parm->next;
        // The result's text was written by the reply reader through the
        // host's slot; the in records' texts are our own copies.
        if (parm->flags == PARM_IN)
            std::free(parm->strval);
        else if (parm->strval != nullptr)
            vufree(parm->strval);
        std::free(parm);
        parm = next;
    }
}
}  // namespace

void set_naming_door(naming_door_fn door) { naming_door = door != nullptr ? door : _iiop_entry; }

resolve_request make_resolve_request(const iiop_record *record, objref *naming_service) {
    resolve_request made{nullptr, nullptr};
    auto *target = static_cast<iiop_target *>(std::calloc(1, sizeof(iiop_target)));
    auto *req = static_cast<iiop_req *>(std::calloc(1, sizeof(iiop_req)));
    made.target = target;
    made.req = req;
    if (target == nullptr || req == nullptr) {
        free_resolve_request(made);
        return made;
    }
    // The texts are the record's own; the host keeps them for the bind.
    target->repoid = record->u.bind.repository_id;
    target->instance_id = record->u.bind.instance_id;
    target->ior = record->u.bind.ior;
    target->objref = naming_service;

    req->flags = IIOP_TWOWAY;
    req->target = target;
    req->operation = strdup("resolve");
    if (req->operation == nullptr) {
        free_resolve_request(made);
        return made;
    }
    TRACE("finished req");

    // A CosNaming Name of one component: the sequence's length, then the
    // component's id and kind, after the out record of the result.
    ScriptParm *result = new_parm(PARM_OUT, tk_objref, "IIOP_RESULT");
    req->parms = result;
    if (result == nullptr) {
        free_resolve_request(made);
        return made;
    }
    TRACE("finished first_parm");
    result->next = new_in_parm(tk_long, "sequence length", "1");
    if (result->next == nullptr) {
        free_resolve_request(made);
        return made;
    }
    TRACE("finished first_parm_a");
    ScriptParm *id = result->next;
    id->next = new_in_parm(tk_string, "instance_id", record->u.bind.instance_id);
    if (id->next == nullptr) {
        free_resolve_request(made);
        return made;
    }
    TRACE("finished second_parm");
    id->next->next = new_in_parm(tk_string, "kind", "");
    if (id->next->next == nullptr) {
        free_resolve_request(made);
        return made;
    }
    TRACE("finished third_parm");
    return made;
}

void free_resolve_request(resolve_request &request) {
    if (request.req != nullptr) {
        free_parms(request.req->parms);
        std::free(request.req->operation);
        std::free(request.req);
    }
    std::free(request.target);
    request.req = nullptr;
    request.target = nullptr;
}

objref *resolve_through_naming_service(const iiop_record *record, const char *ns_reference) {
    TRACE("attempt_to_bind:  NameService %s", ns_reference);
    objref *naming_service = string_to_object(ns_reference, env);
    if (env.has_exception()) {
        _dmsg_x(env, "attempt_to_bind");
        TRACE("attempt_to_bind:  Bad NameService IOR");
        return nullptr;
    }
    if (naming_service == nullptr) {
        TRACE("attempt_to_bind:  NameService unavailable");
        return nullptr;
    }
    TRACE("attempt_to_bind:  NameService objectref " PTR_FMT, ptrv(naming_service));

    objref *resolved = nullptr;
    resolve_request request = make_resolve_request(record, naming_service);
    if (request.req != nullptr) {
        iiop_record call;
        std::memset(&call, 0, sizeof call);
        call.op = IIOP_INVOKE;
        call.u.invoke.req = request.req;
        call.timeout_ms = 0;
        TRACE("calling entry");
        int32_t result = naming_door(&call);
        ScriptParm *result_parm = request.req->parms;
        if (result == IIOP_OK) {
            resolved = static_cast<objref *>(result_parm->ptr);
        } else if (result_parm->ptr != nullptr) {
            // A reference read before the call failed is nobody's.
            Environment scratch;
            release_objref(static_cast<objref *>(result_parm->ptr), scratch);
        }
        result_parm->ptr = nullptr;
        TRACE("entry done, parm->data=" PTR_FMT, ptrv(resolved));
        TRACE("got objectref " PTR_FMT, ptrv(resolved));
        // Nobody reads this record's outcome, so the blocks the call handed
        // to the host through it go back at once.
        if (call.status_text != nullptr) vufree(call.status_text);
        if (call.u.invoke.connect_host != nullptr) vufree(call.u.invoke.connect_host);
        free_resolve_request(request);
    }
    remove_connection(naming_service);
    // The naming service's handle is not used again; its connection stays
    // open in the endpoint table. A separate environment keeps the call's
    // exception in env.
    Environment scratch;
    release_objref(naming_service, scratch);
    TRACE("done freeing");
    return resolved;
}
