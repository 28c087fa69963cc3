// Operations whose machinery is not in this build yet. Each fails honestly:
// status 3 and a trace line, never a pretended success.
#include "gateway/handlers.h"
#include "trace/trace.h"

namespace {
constexpr int32_t index_not_supported = 10;

int32_t not_available(iiop_record *record, const char *who) {
    TRACE("%s:  not available in this build", who);
    record->status = IIOP_STATUS_GATEWAY_FAILURE;
    record->exception_index = index_not_supported;
    record->status_text = nullptr;
    return IIOP_STATUS_GATEWAY_FAILURE;
}
}  // namespace

int32_t _iiop_invoke(iiop_record *record) { return not_available(record, "_iiop_invoke"); }
int32_t _iiop_get_response_dispatch(iiop_record *record) {
    return not_available(record, "_iiop_get_response");
}
