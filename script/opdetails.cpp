#include "script/opdetails.h"

#include <cctype>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#include "orbelle/kinds.h"
#include "repository/flatname.h"
#include "repository/pirapi.h"
#include "script/decimal.h"
#include "script/parm_list.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
// The operation being walked, for the names of its result's records.
PirOprNod *opDetailsOperation = nullptr;
// Base name of the sequence met last; every sequence sets it before it is read.
std::string seqBase;

// The member a union walk is told to take, whatever the script holds.
constexpr uint32_t union_member_answer = 10;

int32_t flags_for(int32_t direction) {
    return direction == 0 ? PARM_IN : direction == 1 ? PARM_OUT : PARM_INOUT;
}

const char *operation_name() { return opDetailsOperation->oprNam.c_str(); }
}  // namespace

int32_t getseqlen(const char *basNam) {
    TRACE("getseqlen:  need length for sequence '%s'", nz(basNam));
    iiop_req *call = opDetails_call();
    const iiop_plist_entry *plist = call ? call->plist : nullptr;
    int32_t count = call && plist ? call->plist_count : 0;
    size_t base_length = std::strlen(basNam);
    for (int32_t i = 0; i < count; ++i) {
        const char *name = plist[i].name;
        if (name == nullptr) continue;
        const char *mark = find_flat_length(name);
        if (mark == nullptr) continue;
        size_t length = static_cast<size_t>(mark - name);
        if (length != base_length || std::strncmp(name, basNam, length) != 0) {
            TRACE("getseqlen:  '%.*s' does not match", static_cast<int>(length), name);
            continue;
        }
        const char *value = plist[i].value;
        if (value == nullptr) {
            TRACE("getseqlen:  '%s' matches, value 'NULL'", basNam);
            continue;
        }
        TRACE("getseqlen:  '%s' matches, value '%s'", basNam, value);
        int32_t result = decimal_saturating(value);
        // A negative length would turn into billions of elements on the way
        // to the walk's unsigned count: the sequence is taken as empty.
        return result < 0 ? 0 : result;
    }
    TRACE("getseqlen:  ERROR -- sequence '%s' not in script plist", basNam);
    return 0;
}

void PirOpDetails::NewPrimitive(PirPrimitive &pri) {
    if (debug_level != 0) {
        dmsg_v("NP stateless '%s', stateful '%s'", pri.stlNam.c_str(), pri.stfNam.c_str());
        dmsg_v("   type %d", pri.type);
        dmsg_v("   supertype %d", pri.supertype);
        dmsg_v("   direction %d", direction);
        dmsg_v("   flg %d", static_cast<int>(pri.flg));
        dmsg_v("   instance val '%s'", pri.val.c_str());
    }
    // Elements of a sequence that is itself the result have no base of their
    // own: they take the one of their sequence.
    if (pri.supertype == tk_sequence && flat_starts_with_index(pri.stfNam)) {
        pri.stfNam = seqBase + pri.stfNam;
        TRACE("   CHANGE stfNam to '%s'", pri.stfNam.c_str());
    }
    if (pri.type == tk_void) return;

    std::string name;
    if (pri.stfNam.empty()) {
        name = flat_result_name(operation_name());
        TRACE("   stateful name blank, setting to '%s'", name.c_str());
    } else if (pri.own->kind == pirResKind && pri.supertype != tk_sequence) {
        name = flat_result_name(operation_name()) + pri.stfNam;
        TRACE("   result, setting to '%s'", name.c_str());
    } else {
        name = pri.stfNam;
        TRACE("   stateful name not blank, using it");
    }
    TRACE("   setting supertype");
    ScriptParm *record =
        opDetails_new_record(name.c_str(), flags_for(direction), pri.type, pri.supertype);
    TRACE("   setting supertype done");
    opDetails_append(record);
}

uint32_t PirOpDetails::NewSequenceLength(PirPrimitive &pri) {
    TRACE("NSL '%s'", pri.stfNam.c_str());
    std::string name;
    if (pri.stfNam.empty()) {
        // The sequence is the result itself.
        seqBase = flat_result_name(operation_name());
        name = flat_length_name(seqBase);
        TRACE("NSL set sequence length name '%s'", name.c_str());
        pri.stlNam = seqBase;
        pri.stfNam = seqBase;
        TRACE("NSL stlNam now '%s'", pri.stlNam.c_str());
        TRACE("NSL stfNam now '%s'", pri.stfNam.c_str());
    } else {
        seqBase = pri.stfNam;
        name = flat_length_name(seqBase);
    }
    ScriptParm *record =
        opDetails_new_record(name.c_str(), flags_for(direction), tk_long, tk_sequence);
    int32_t length = getseqlen(seqBase.c_str());
    if (record != nullptr) {
        char text[16];
        std::snprintf(text, sizeof text, "%d", static_cast<int>(length));
        record->strval = vustrdup(text);
    }
    opDetails_append(record);
    return static_cast<uint32_t>(length);
}

uint32_t PirOpDetails::NewUnionDiscriminator(PirPrimitive &pri) {
    TRACE("NUD '%s'", pri.stfNam.c_str());
    return union_member_answer;
}

ScriptParm *PirOpDetails::GetOpDetails(const char *oprNam, const char *repId) {
    opDetails_reset();
    PirIntNod *ifc = nullptr;
    try {
        // The host's texts may be missing; they fail as a bad id or an
        // unknown operation would.
        if (repId == nullptr) throw PirException("invalid repId");
        ifc = PirGetInterface(".", repId);
        if (oprNam == nullptr) throw PirException("operation not found");
        opDetailsOperation = PirGetOperation(ifc, oprNam);
        TRACE("GetOpDetails:  found operation '%s'", operation_name());
        PirResNod *res = PirGetResult(opDetailsOperation);
        direction = 1;
        PirTypNod *resTyp = PirGetResultType(res);
        TRACE("GetOpDetails:  PirCreateInstance");
        TRACE("GetOpDetails:  restyp is " PTR_FMT, ptrv(resTyp));
        if (resTyp != nullptr) PirFreeInstance(PirCreateInstance(resTyp, this));
        for (PirParNod *par = PirGetFirstParameter(opDetailsOperation); par != nullptr;
             par = PirGetNextParameter(par)) {
            direction = par->parDir;
            TRACE("---- PirGetParameterType");
            PirTypNod *parTyp = PirGetParameterType(par);
            TRACE("---- serialized instance");
            if (parTyp != nullptr) PirFreeInstance(PirCreateInstance(parTyp, this));
        }
    } catch (PirException e) {
        TRACE("PirException '%s'", nz(e.msg));
    } catch (const std::bad_alloc &) {
        // A script can ask for more elements than memory holds; the list
        // ends where memory ran out, as it would at a bad description.
        TRACE("PirException '%s'", "out of memory");
    }
    if (ifc != nullptr) PirFreeInterface(ifc);
    opDetailsOperation = nullptr;
    return opDetails_head();
}

ScriptParm *operation_details(const char *operation, const char *repoid) {
    PirOpDetails details;
    return details.GetOpDetails(operation, repoid);
}
