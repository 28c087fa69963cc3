#include "data/any.h"

#include <cstdlib>

#include "data/objref_codec.h"
#include "data/primitive_runs.h"
#include "data/stdtypes.h"
#include "data/unaligned.h"

static_assert(sizeof(Any) == any_record_size, "the value layout of tk_any is this record's");

Any::Any() : type(tc_null()), value(nullptr), ownsValue(0) {}

Any::Any(TypeCode *tc, void *address, uint32_t owns) : type(tc), value(address), ownsValue(owns) {
    if (tc != nullptr) tc->addRef();
}

Any load_any(const void *at) { return load_unaligned<Any>(at); }
void store_any(void *at, const Any &any) { store_unaligned(at, any); }

void destroy_any(void *at) {
    Any any = load_any(at);
    if (any.ownsValue != 0) {
        Environment local;
        freeValue(any.type, any.value, nullptr, nullptr, local);
        std::free(any.value);
    }
    TypeCode::release(any.type);
}

int freeValue(TypeCode *tc, void *value1, void *, void *, Environment &env) {
    if (value1 == nullptr) return 1;
    if (tc == nullptr) return raise_system(env, exid::BAD_TYPECODE);
    int32_t kind = tc->getKind(env);
    if (env.has_exception()) return 0;
    switch (kind) {
        case tk_any:
            destroy_any(value1);
            break;
        case tk_TypeCode:
            TypeCode::release(load_unaligned<TypeCode *>(value1));
            break;
        case tk_Principal: {
            auto *record = load_unaligned<SequenceRecord *>(value1);
            if (record != nullptr) std::free(load_unaligned<SequenceRecord>(record).buffer);
            std::free(record);
            break;
        }
        case tk_objref:
            if (objref_codec().release != nullptr)
                objref_codec().release(load_unaligned<void *>(value1));
            break;
        case tk_struct:
        case tk_union:
        case tk_alias:
        case tk_except:
        case tk_array:
            return tc->walkValue(value1, nullptr, freeValue, nullptr, env);
        case tk_string:
        case tk_wstring:
            std::free(load_unaligned<void *>(value1));
            break;
        case tk_sequence: {
            // Plain numbers own nothing: only the element block goes.
            int r = primitive_run_width(tc) != 0
                        ? 1
                        : tc->walkValue(value1, nullptr, freeValue, nullptr, env);
            std::free(load_unaligned<SequenceRecord>(value1).buffer);
            if (r != 1) return env.has_exception() ? 0 : r;
            break;
        }
        default:
            break;
    }
    return env.has_exception() ? 0 : 1;
}
