#include "data/decoder.h"

#include <cstdlib>
#include <cstring>

#include "data/any.h"
#include "data/objref_codec.h"
#include "data/primitive_runs.h"
#include "data/stdtypes.h"
#include "data/unaligned.h"
#include "orbelle/limits.h"
#include "script/asciify.h"
#include "trace/trace.h"

namespace {

int marshal_error(Environment &env) {
    TRACE("marshaling decoder detected error");
    return raise_system(env, exid::MARSHAL);
}

int get_typecode(void *data, CDR &s, Environment &env) {
    TypeCode *result = TypeCode::readTypeCode(s, env);
    if (result == nullptr) return 0;
    store_unaligned(data, result);
    return 1;
}

int get_any(void *data, CDR &s, Environment &env) {
    ValueNesting level(env);
    if (!level.ok()) return 0;
    TypeCode *read = nullptr;
    if (!decoder(tc_TypeCode(), &read, nullptr, &s, env)) return 0;
    TypeCodeRef type(read);
    uint32_t size = type->valueSize(env);
    if (env.has_exception()) return 0;
    if (!value_block_allowed(size, s.space_left) || !s.take_value_memory(size))
        return marshal_error(env);
    void *block = std::calloc(size != 0 ? size : 1, 1);
    if (block == nullptr) return marshal_error(env);
    TRACE("decoder:  new value " PTR_FMT, ptrv(block));
    if (!decoder(type.get(), block, nullptr, &s, env)) {
        TRACE("decoder:  delete value " PTR_FMT, ptrv(block));
        // What was decoded before the failure is released with the block.
        Environment local;
        freeValue(type.get(), block, nullptr, nullptr, local);
        std::free(block);
        return 0;
    }
    Any any(type.get(), block, 1);  // takes a reference of its own
    if (data == nullptr) {
        destroy_any(&any);
        return 1;
    }
    store_any(data, any);
    TRACE("decoder:  new Any at " PTR_FMT, ptrv(data));
    return 1;
}

int get_principal(void *data, CDR &s, Environment &env) {
    uint32_t length;
    if (!s.get_long(&length)) return marshal_error(env);
    if (length == 0) {
        store_unaligned<SequenceRecord *>(data, nullptr);
        return 1;
    }
    if (length > s.space_left) return marshal_error(env);
    auto *record = static_cast<SequenceRecord *>(std::malloc(sizeof(SequenceRecord)));
    void *octets = std::malloc(length);
    if (record == nullptr || octets == nullptr) {
        std::free(record);
        std::free(octets);
        return marshal_error(env);
    }
    s.get_bytes(octets, length);
    store_unaligned(record, SequenceRecord{length, length, octets});
    store_unaligned(data, record);
    return 1;
}

int get_string(void *data, CDR &s, Environment &env) {
    unsigned char *bytes;
    uint32_t length;
    // The count includes the terminator; the bytes must be in the message.
    if (!s.get_counted(&bytes, &length)) return marshal_error(env);
    TRACE("before asciify");
    char *text = asciify(bytes, length != 0 ? static_cast<long>(length) - 1 : 0);
    if (text == nullptr) return marshal_error(env);
    store_unaligned(data, text);
    TRACE("decoder:  new str at " PTR_FMT, ptrv(text));
    TRACE("decoder: len %" PRIu32 " str='%s'", length, text);
    return 1;
}

int get_wstring(void *data, CDR &s, Environment &env) {
    uint32_t units;
    if (!s.get_long(&units) || units > s.space_left / 2) return marshal_error(env);
    // One unit more than the wire holds, so the text ends with a zero even
    // when the sender's did not.
    auto *text = static_cast<uint16_t *>(std::calloc(uint64_t{units} + 1, 2));
    if (text == nullptr) return marshal_error(env);
    store_unaligned(data, text);
    for (uint32_t i = 0; i < units; ++i)
        if (!s.get_short(text + i)) return marshal_error(env);
    return 1;
}

int get_sequence(TypeCode *tc, void *data, CDR &s, Environment &env) {
    uint32_t count;
    if (!s.get_long(&count)) return marshal_error(env);
    // Until the elements have a block the record claims none, so that a
    // value that fails here can still be released.
    store_unaligned(data, SequenceRecord{0, 0, nullptr});
    if (count == 0) return 1;
    SequenceRecord record{count, count, nullptr};
    TypeCodeRef element(tc->paramType(0, env));
    if (!element) return 0;
    uint32_t size = element->valueSize(env);
    if (env.has_exception()) return 0;
    // Elements of size 0 hold nothing in memory and nothing on the wire.
    if (size == 0) {
        store_unaligned(data, record);
        return 1;
    }
    // Every element with a size takes at least one byte on the wire.
    uint64_t total = uint64_t{count} * size;
    if (count > s.space_left || !value_block_allowed(total, s.space_left) ||
        !s.take_value_memory(total))
        return marshal_error(env);
    record.buffer = std::calloc(count, size);
    if (record.buffer == nullptr) return marshal_error(env);
    store_unaligned(data, record);
    TRACE("decoder:  new seq at " PTR_FMT, ptrv(record.buffer));
    int run = get_primitive_run(tc, record, s, env);
    if (run >= 0) return run == 1 ? 1 : marshal_error(env);
    return tc->walkValue(data, nullptr, decoder, &s, env);
}

}  // namespace

int decoder(TypeCode *tc, void *data, void *, void *stream, Environment &env) {
    env.clear();
    CDR &s = *static_cast<CDR *>(stream);
    if (tc == nullptr) return marshal_error(env);
    int32_t kind = tc->kind;
    if (kind == tk_null || kind == tk_void) return 1;
    if (data == nullptr && kind != tk_any) return marshal_error(env);
    bool ok;
    switch (kind) {
        case tk_short:
        case tk_ushort:
        case tk_wchar:
            ok = s.get_short(data);
            break;
        case tk_long:
        case tk_ulong:
        case tk_float:
        case tk_enum:
            ok = s.get_long(data);
            break;
        case tk_double:
        case tk_longlong:
        case tk_ulonglong:
            ok = s.get_longlong(data);
            break;
        case tk_longdouble:
            ok = s.get_longdouble(data);
            break;
        case tk_boolean: {
            uint8_t b;
            ok = s.get_byte(&b);
            if (ok) store_unaligned<uint32_t>(data, b == 1 ? 1 : 0);
            break;
        }
        case tk_char:
        case tk_octet:
            ok = s.get_byte(data);
            break;
        case tk_any:
            return get_any(data, s, env);
        case tk_TypeCode:
            return get_typecode(data, s, env);
        case tk_Principal:
            return get_principal(data, s, env);
        case tk_objref: {
            objref_decode_fn decode = objref_codec().decode;
            if (decode == nullptr) return marshal_error(env);
            void *ref = nullptr;
            int r = decode(tc, &ref, s, env);
            store_unaligned(data, ref);
            return r;
        }
        case tk_struct:
        case tk_union:
        case tk_array:
        case tk_alias:
        case tk_except:
            return tc->walkValue(data, nullptr, decoder, &s, env);
        case tk_string:
            return get_string(data, s, env);
        case tk_sequence:
            return get_sequence(tc, data, s, env);
        case tk_wstring:
            return get_wstring(data, s, env);
        default:
            TRACE("decode, default case?");
            return marshal_error(env);
    }
    return ok ? 1 : marshal_error(env);
}
