#include "gateway/report.h"

#include <cstring>

#include "trace/host_slots.h"

Environment env;

namespace {
// exception_index 29: an id that holds none of the names below.
constexpr int32_t index_other = 29;

// Searched in this order; the position counts from 1.
const char *const indexed_names[] = {
    "BAD_PARAM",
    "NO_MEMORY",
    "IMP_LIMIT",
    "COMM_FAILURE",
    "INV_OBJREF",
    "NO_PERMISSION",
    "INTERNAL",
    "MARSHAL",
    "INITIALIZE",
    "NO_IMPLEMENT",
    "BAD_TYPECODE",
    "BAD_OPERATION",
    "NO_RESOURCES",
    "NO_RESPONSE",
    "PERSIST_STORE",
    "BAD_INV_ORDER",
    "TRANSIENT",
    "FREE_MEM",
    "INV_IDENT",
    "INV_FLAG",
    "INTF_REPOS",
    "BAD_CONTEXT",
    "OBJ_ADAPTER",
    "DATA_CONVERSION",
    "OBJECT_NOT_EXIST",
    "TRANSACTION_REQUIRED",
    "TRANSACTION_ROLLEDBACK",
    "INVALID_TRANSACTION",
};
}  // namespace

int32_t exception_index_of(const char *id) {
    if (id == nullptr) return index_other;
    int32_t index = 1;
    for (const char *name : indexed_names) {
        if (std::strstr(id, name) != nullptr) return index;
        ++index;
    }
    return index_other;
}

int32_t report_exception(iiop_record *record, const char *place) {
    const char *id = env.id();
    _dmsg_x(env, place);
    record->status = reply_kind != 0 ? reply_kind : IIOP_STATUS_SYSTEM_EXCEPTION;
    record->exception_index = exception_index_of(id);
    size_t size = std::strlen(error_text) + 1;
    char *text = static_cast<char *>(vumalloc(size));
    if (text != nullptr) std::memcpy(text, error_text, size);
    record->status_text = text;
    return record->status;
}
