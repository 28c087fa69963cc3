#include "gateway/bind.h"

#include <cstring>
#include <string>

#include "data/environment.h"
#include "data/stdtypes.h"
#include "gateway/blanks.h"
#include "gateway/catalogue.h"
#include "gateway/connections.h"
#include "gateway/getior.h"
#include "gateway/handlers.h"
#include "gateway/naming.h"
#include "gateway/report.h"
#include "giop/orb.h"
#include "script/close.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

ORB *orb_ptr = nullptr;

namespace {
// status_text of a failed bind or release: a catalogue block of this size.
constexpr size_t status_text_block = 132;
// exception_index of the gateway's own failures.
constexpr int32_t index_no_alternative_bound = 2;
constexpr int32_t index_null_objref = 5;

// The one-time set-up. The lists of connections and deferred requests exist
// from load on and need nothing here. False with status reported when the
// ORB can't be made; orb_ptr then stays null so the next bind tries again.
bool set_up(iiop_record *record) {
    enable_debug();
    TRACE("_iiop_bind:  calling inittypecodes...");
    inittypecodes();
    TRACE("_iiop_bind:  creating orb_ptr...");
    int argc = 0;
    orb_ptr = ORB_init(&argc, nullptr, "", env);
    if (env.has_exception()) {
        orb_ptr = nullptr;
        report_exception(record, "iiop_objref(ORB init):  exception");
        return false;
    }
    return true;
}

// Binds with the record's ior when no alternative did and none was of the
// kind IOR.
objref *fall_back_to_ior(iiop_record *record) {
    if (ior_modus_tried != 0 || record->u.bind.ior == nullptr) return nullptr;
    return attempt_to_bind(record->u.bind.ior, orb_ptr, record);
}
}  // namespace

objref *attempt_to_bind(const char *text, ORB *orb, const iiop_record *record) {
    TRACE("attempt_to_bind: string_to_object(\"%s\")", text);
    if (std::strcmp(text, name_service_marker) == 0)
        return resolve_through_naming_service(record, name_service_ior());
    objref *obj = orb->string_to_object(text, env);
    if (env.has_exception()) {
        _dmsg_x(env, "attempt_to_bind");
        TRACE("attempt_to_bind: object does not exist or bad IOR");
        return nullptr;
    }
    if (obj == nullptr) {
        TRACE("attempt_to_bind:  object does not exist");
        return nullptr;
    }
    TRACE("attempt_to_bind:  success, returning objref " PTR_FMT, ptrv(obj));
    return obj;
}

int32_t _iiop_bind(iiop_record *record) {
    if (orb_ptr == nullptr && !set_up(record)) return record->status;
    ior_modus_tried = 0;

    // The alternatives are the pieces between "|" characters, empty ones
    // included; each is tried with its outer blanks removed.
    const char *modus = record->u.bind.modus != nullptr ? record->u.bind.modus : "";
    std::string piece;
    for (const char *start = modus;;) {
        const char *bar = std::strchr(start, '|');
        size_t length = bar != nullptr ? static_cast<size_t>(bar - start) : std::strlen(start);
        piece.assign(trim_blanks(std::string_view(start, length)));
        objref *obj = attempt_to_bind(get_ior(record, piece.c_str()), orb_ptr, record);
        if (obj != nullptr) {
            record->u.bind.objref = obj;
            record->u.bind.bound_modus = vustrdup(piece.c_str());
            if (bar != nullptr) TRACE("_iiop_bind:  done");
            return IIOP_OK;
        }
        if (bar == nullptr) break;
        start = bar + 1;
    }

    objref *obj = fall_back_to_ior(record);
    if (obj != nullptr) {
        record->u.bind.objref = obj;
        record->u.bind.bound_modus = vustrdup("IOR");
        return IIOP_OK;
    }

    record->u.bind.objref = nullptr;
    TRACE("_iiop_bind:  SEVERE ERROR -- Unable to bind with any modi");
    gateway_failure(record, index_no_alternative_bound, "MC_8_6_1", status_text_block);
    TRACE("_iiop_bind:  return");
    return IIOP_STATUS_GATEWAY_FAILURE;
}

int32_t _iiop_release(iiop_record *record) {
    TRACE("_iiop_release:  entering");
    auto *obj = static_cast<objref *>(record->u.release.objref);
    if (obj == nullptr) {
        if (env.has_exception()) _dmsg_x(env, "_iiop_release:  cannot release null target objref");
        return gateway_failure(record, index_null_objref, "MC_8_6_2", status_text_block);
    }
    // Only a handle that is alone with its host and port on the list is taken
    // to be the last user of that connection.
    uint32_t count = connections_at_host(obj);
    if (count == 1) {
        vu_close_connection(obj->data, env);
    } else {
        TRACE("_iiop_release:  cannot close connection");
        TRACE("_iiop_release:  %d connections at same host and port", static_cast<int>(count));
    }
    remove_connection(obj);
    // Clears env: a failed close is nobody's business.
    release_objref(obj, env);
    TRACE("_iiop_release:  exiting");
    return IIOP_OK;
}
