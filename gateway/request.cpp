#include "gateway/request.h"

#include "data/environment.h"
#include "gateway/connections.h"
#include "gateway/handlers.h"
#include "gateway/report.h"
#include "giop/endpoint.h"
#include "giop/message.h"
#include "giop/objref.h"
#include "giop/waitlist.h"
#include "script/docall.h"
#include "script/response.h"
#include "trace/trace.h"

namespace {
// The reply time-out of a request whose record asks for none: five minutes.
constexpr int32_t default_timeout_ms = 300000;

// The invocation hands a reply that arrives for a deferred request to the
// script layer through this registration.
void connect_layers() { set_deferred_reply_reader(vu_do_get_response); }

// The handle of the record's request; null with env set when there is none
// to send to.
objref *target_of(const iiop_record *record) {
    const iiop_req *req = record->u.invoke.req;
    objref *obj = nullptr;
    if (req != nullptr && req->target != nullptr) obj = static_cast<objref *>(req->target->objref);
    env.clear();
    if (req == nullptr) {
        raise_system(env, exid::BAD_PARAM);
    } else if (obj == nullptr || obj->data == nullptr) {
        raise_system(env, exid::INV_OBJREF);
        obj = nullptr;
    }
    return obj;
}

void start_request_clock(const iiop_record *record) {
    last_connect_time = 0;
    timeout_ms = record->timeout_ms;
    timeout_count = 0;
}

// Copies the report of a connection made during this request.
void copy_connect_report(iiop_record *record, const char *who) {
    if (last_connect_time == 0) return;
    TRACE("%s:  invoke connected to %s, port %d", who, nz(last_connect_host),
          static_cast<int>(last_connect_port));
    record->u.invoke.connect_time = last_connect_time;
    record->u.invoke.connect_host = take_last_connect_host();
    record->u.invoke.connect_port = last_connect_port;
    record->u.invoke.connect_aux = 0;
}
}  // namespace

int32_t _iiop_invoke(iiop_record *record) {
    TRACE("ENTER");
    iiop_req *req = record->u.invoke.req;
    int32_t roundtrip = req != nullptr && req->flags == IIOP_ONEWAY ? 0 : 1;
    int32_t result = exec_request(record, roundtrip);
    TRACE("EXIT");
    return result;
}

int32_t exec_request(iiop_record *record, int32_t roundtrip) {
    TRACE("exec_request:  beginning");
    if (record->u.invoke.req != nullptr) record->u.invoke.req->roundtrip = roundtrip;
    int32_t result = execute_do_call(record);
    TRACE("exec_request:  returning %d", static_cast<int>(result));
    return result;
}

int32_t execute_do_call(iiop_record *record) {
    TRACE("execute_do_call:  entering");
    connect_layers();
    iiop_req *req = record->u.invoke.req;
    objref *obj = target_of(record);
    TRACE("execute_do_call: objref=" PTR_FMT ", flags=0x%x", ptrv(obj),
          req != nullptr ? static_cast<unsigned>(req->flags) : 0u);
    if (obj == nullptr) {
        int32_t status = report_exception(record, "execute_do_call:  exception");
        TRACE("execute_do_call:  returning %d", static_cast<int>(status));
        return status;
    }
    start_request_clock(record);
    if (timeout_ms == 0) timeout_ms = default_timeout_ms;

    int32_t deferred = 0;
    if (req->flags == IIOP_DEFERRED) {
        if (!wait_list_add(req)) {
            raise_system(env, exid::NO_MEMORY);
            int32_t status = report_exception(record, "execute_do_call:  exception");
            TRACE("execute_do_call:  returning %d", static_cast<int>(status));
            return status;
        }
        deferred = 1;
        TRACE("execute_do_call:  defer " PTR_FMT, ptrv(req));
        for (wait_entry *e = wait_list; e != nullptr; e = e->next)
            TRACE("execute_do_call:  reqsent item " PTR_FMT, ptrv(e->req));
    }

    vu_do_call(obj->data, req, env, deferred);
    if (env.has_exception()) {
        int32_t status = report_exception(record, "execute_do_call:  exception");
        TRACE("execute_do_call:  returning %d", static_cast<int>(status));
        return status;
    }
    TRACE("execute_do_call:  vu_do_call completed without exception");
    copy_connect_report(record, "execute_do_call");
    add_connection(obj);
    TRACE("execute_do_call:  exiting");
    return IIOP_OK;
}

int32_t _iiop_get_response_dispatch(iiop_record *record) {
    return record->timeout_ms == 0 ? _iiop_poll_response(record) : _iiop_get_response(record);
}

int32_t _iiop_poll_response(iiop_record *record) {
    TRACE("_iiop_poll_response:  start");
    const iiop_req *req = record->u.invoke.req;
    for (wait_entry *e = wait_list; e != nullptr; e = e->next) {
        if (req != nullptr && e->req->request_id == req->request_id) {
            TRACE("_iiop_poll_response:  exit=0 (req on list, no reply yet)");
            return 0;
        }
        TRACE("_iiop_poll_response:  reqsent item " PTR_FMT, ptrv(e->req));
    }
    TRACE("_iiop_poll_response:  exit=1 (req not on wait list)");
    return 1;
}

int32_t _iiop_get_response(iiop_record *record) {
    TRACE("_iiop_get_response:  start");
    connect_layers();
    iiop_req *req = record->u.invoke.req;
    objref *obj = target_of(record);
    if (obj != nullptr) {
        start_request_clock(record);
        vu_do_get_response(obj->data, req, env, 0, 0, nullptr);
    }
    if (env.has_exception()) {
        int32_t status = report_exception(record, "_iiop_get_response:  exception");
        TRACE("_iiop_get_response:  returning %d", static_cast<int>(status));
        return status;
    }
    copy_connect_report(record, "_iiop_get_response");
    add_connection(obj);
    for (wait_entry *e = wait_list; e != nullptr; e = e->next) {
        if (e->req->request_id == req->request_id) {
            TRACE("_iiop_get_response:  read resp for %d, removing from list",
                  static_cast<int>(req->request_id));
            wait_list_remove(e->req);
            break;
        }
        TRACE("_iiop_get_response:  reqsent item " PTR_FMT, ptrv(e->req));
    }
    TRACE("_iiop_get_response:  exiting");
    return IIOP_OK;
}
