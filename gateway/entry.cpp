// The host's one door: operation dispatch, the callback slots and the
// operations that the library answers itself.
#include <cstdint>
#include <new>

#include "gateway/catalogue.h"
#include "gateway/handlers.h"
#include "orbelle/orbelle.h"
#include "platform/platform.h"
#include "script/parms.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
// One pause at the first valid call while "orbelledebug" is set, long enough
// to attach a debugger to the host. The environment is looked at only at
// that first call: a look-up on every call would cost a tenth of a small call.
constexpr uint32_t debug_pause_ms = 25000;
int debug_pause_done = 0;
bool debug_pause_checked = false;

// status_text block sizes of the catalogue failures.
constexpr size_t long_text_block = 132;
constexpr size_t short_text_block = 80;
constexpr int32_t index_not_supported = 10;

using handler = int32_t (*)(iiop_record *);
struct dispatch_row {
    handler run;
    const char *name;
};

const dispatch_row dispatch_table[10] = {
    {nullptr, "NULL"},
    {_iiop_init, "iiop_init"},
    {_iiop_bind, "iiop_bind"},
    {_iiop_invoke, "iiop_invoke"},
    {_iiop_release, "iiop_release"},
    {_iiop_get_parms, "iiop_get_parms"},
    {_iiop_get_exception, "iiop_get_exception"},
    {_iiop_make_ior, "iiop_make_ior"},
    {_iiop_timeout, "iiop_timeout"},
    {_iiop_get_response_dispatch, "iiop_get_response"},
};
}  // namespace

int32_t _iiop_init(iiop_record *record) {
    set_host_slots(record->u.init);
    return IIOP_OK;
}

int32_t _iiop_get_exception(iiop_record *record) {
    return gateway_failure(record, index_not_supported, "MC_8_6_3", long_text_block);
}

int32_t _iiop_make_ior(iiop_record *record) {
    return gateway_failure(record, index_not_supported, "MC_8_6_4", short_text_block);
}

int32_t _iiop_timeout(iiop_record *record) {
    TRACE("_iiop_timeout:  not implemented");
    return gateway_failure(record, index_not_supported, "MC_8_6_5", short_text_block);
}

extern "C" int32_t _iiop_entry(iiop_record *record) {
    int32_t op = record->op;
    if (op < 1 || op > 9) {
        record->status_text = nullptr;
        record->exception_index = index_not_supported;
        record->status = IIOP_STATUS_GATEWAY_FAILURE;
        return IIOP_STATUS_GATEWAY_FAILURE;
    }
    if (!debug_pause_checked) {
        debug_pause_checked = true;
        if (platform::env("orbelledebug") != nullptr) {
            ++debug_pause_done;
            platform::sleep_ms(debug_pause_ms);
        }
    }
    try {
        return dispatch_table[op].run(record);
    } catch (const std::bad_alloc &) {
        // Nothing may unwind into the host: a failed allocation fails the
        // operation as the gateway's own failure.
        TRACE("_iiop_entry:  out of memory in %s", dispatch_table[op].name);
        record->status_text = nullptr;
        record->exception_index = index_not_supported;
        record->status = IIOP_STATUS_GATEWAY_FAILURE;
        return IIOP_STATUS_GATEWAY_FAILURE;
    }
}

// Exports that nothing in the system calls; hosts of old looked for them.
COrbelle::COrbelle() {}
COrbelle &COrbelle::operator=(const COrbelle &other) {
    byte_ = other.byte_;
    return *this;
}
extern "C" {
int nOrbelle = 0;
int fnOrbelle(void) { return 42; }
}
