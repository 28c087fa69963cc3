#include "script/parm_list.h"

#include "trace/host_slots.h"

namespace {
ScriptParm *opDetailsHead = nullptr;
ScriptParm *opDetailsTail = nullptr;
iiop_req *opDetailsCall = nullptr;
}  // namespace

void opDetails_reset() {
    opDetailsHead = nullptr;
    opDetailsTail = nullptr;
}

ScriptParm *opDetails_new_record(const char *name, int32_t flags, int32_t type, int32_t supertype) {
    auto *record = static_cast<ScriptParm *>(vumalloc(sizeof(ScriptParm)));
    if (record == nullptr) return nullptr;
    record->flags = flags;
    record->type = type;
    record->supertype = supertype;
    record->name = vustrdup(name);
    record->strval = nullptr;
    record->ptr = nullptr;
    record->valuesize = 0;
    record->next = nullptr;
    return record;
}

void opDetails_append(ScriptParm *record) {
    if (record == nullptr) return;
    if (opDetailsHead == nullptr)
        opDetailsHead = record;
    else
        opDetailsTail->next = record;
    opDetailsTail = record;
}

ScriptParm *opDetails_head() { return opDetailsHead; }

void opDetails_set_call(iiop_req *req) { opDetailsCall = req; }

iiop_req *opDetails_call() { return opDetailsCall; }
