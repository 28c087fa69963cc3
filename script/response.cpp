#include "script/response.h"

#include "data/decoder.h"
#include "data/environment.h"
#include "data/typecode.h"
#include "giop/invocation.h"
#include "script/values.h"
#include "trace/trace.h"

namespace {
const ExceptionTable no_user_exceptions{0, nullptr};

// Decodes the out and inout records in list order. False after a failure,
// which env holds.
bool read_records(ScriptParm *parms, CDR &stream, Environment &env) {
    for (ScriptParm *p = parms; p != nullptr; p = p->next) {
        void *area = newdataptr(p);
        p->ptr = area;
        TRACE("vu_do_get_response:  (out) new dataptr at " PTR_FMT, ptrv(area));
        TRACE("vu_do_get_response:  flags=%d, type=%d", static_cast<int>(p->flags),
              static_cast<int>(p->type));
        bool area_live = true;
        if (p->flags == PARM_OUT || p->flags == PARM_INOUT) {
            if (p->valuesize == 0) {
                TRACE("here");
                if (decoder(get_typecodeptr(p->type), area, nullptr, &stream, env)) {
                    getdata(p, area, env);
                    area_live = p->type != tk_objref;
                }
            } else {
                // A value kept outside the text has nothing defined to be
                // read into; refused as on the sending side.
                raise_system(env, exid::MARSHAL);
            }
        }
        if (area_live) {
            deletedataptr(p);
            p->ptr = nullptr;
        }
        if (env.has_exception()) {
            _dmsg_x(env, "vu_do_get_response, get reply parameter");
            return false;
        }
    }
    return true;
}
}  // namespace

void vu_do_get_response(objrefdata *target, iiop_req *req, Environment &env, uint32_t reply_status,
                        int in_hand, CDR *stream) {
    TRACE("vu_do_get_response:  entering");
    GIOP::Invocation call(target, req->operation != nullptr ? req->operation : "", req->roundtrip);
    call.request_id = static_cast<uint32_t>(req->request_id);
    if (in_hand == 0) {
        env.clear();
        if (target == nullptr) {
            raise_system(env, exid::INV_OBJREF);
            _dmsg_x(env, "vu_do_get_response, call.start");
            return;
        }
        call.start(&profile_in_force(*target).object_key, env, 1, nullptr);
        if (env.has_exception()) {
            _dmsg_x(env, "vu_do_get_response, call.start");
            return;
        }
        reply_status = static_cast<uint32_t>(call.invoke(no_user_exceptions, env, 1));
        stream = &call.stream;
        if (env.has_exception()) {
            _dmsg_x(env, "vu_do_get_response, invoke");
            return;
        }
    }
    if (reply_status == NO_EXCEPTION && stream != nullptr) {
        if (!read_records(req->parms, *stream, env)) return;
    }
    if (env.has_exception()) _dmsg_x(env, "vu_do_get_response");
    TRACE("vu_do_get_response:  exiting");
}
