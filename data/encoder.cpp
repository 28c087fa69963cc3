#include "data/encoder.h"

#include <cstdlib>
#include <cstring>

#include "data/any.h"
#include "data/objref_codec.h"
#include "data/primitive_runs.h"
#include "data/stdtypes.h"
#include "data/unaligned.h"
#include "script/asciify.h"
#include "trace/trace.h"

namespace {

int marshal_error(Environment &env) {
    TRACE("marshaling encoder detected error");
    return raise_system(env, exid::MARSHAL);
}

int put_string(TypeCode *tc, void *data, CDR &s, Environment &env) {
    const char *text = load_unaligned<const char *>(data);
    if (text == nullptr) return s.put_long(1) && s.put_byte(0) ? 1 : marshal_error(env);
    uint32_t bound = tc->paramLong(0, env);
    if (env.has_exception()) return 0;
    size_t length = std::strlen(text);
    if (bound != 0 && length > bound) return marshal_error(env);
    TRACE("encoder: len %zu str='%s'", length, text);
    TRACE("before unasciify");
    size_t n = 0;
    unsigned char *bytes = un_asciify(text, &n);
    if (bytes == nullptr) return marshal_error(env);
    // A zero byte inside would end the string early for every reader while
    // the count says otherwise; such text has no CDR form.
    bool ok = n < UINT32_MAX && std::memchr(bytes, 0, n) == nullptr &&
              s.put_long(static_cast<uint32_t>(n + 1)) &&
              s.put_bytes(bytes, static_cast<uint32_t>(n)) && s.put_byte(0);
    std::free(bytes);
    return ok ? 1 : marshal_error(env);
}

int put_wstring(TypeCode *tc, void *data, CDR &s, Environment &env) {
    const auto *text = load_unaligned<const uint16_t *>(data);
    if (text == nullptr) return s.put_long(1) && s.put_short(0) ? 1 : marshal_error(env);
    uint32_t bound = tc->paramLong(0, env);
    if (env.has_exception()) return 0;
    uint32_t units = 0;
    while (load_unaligned<uint16_t>(text + units) != 0) ++units;
    if (bound != 0 && units > bound) return marshal_error(env);
    if (!s.put_long(units + 1)) return marshal_error(env);
    for (uint32_t i = 0; i <= units; ++i)
        if (!s.put_short(load_unaligned<uint16_t>(text + i))) return marshal_error(env);
    return 1;
}

int put_typecode(void *data, CDR &s, Environment &env) {
    TypeCode *tc = load_unaligned<TypeCode *>(data);
    if (tc == nullptr) return marshal_error(env);
    if (!s.put_long(static_cast<uint32_t>(tc->kind))) return marshal_error(env);
    if (static_cast<uint32_t>(tc->kind) == tk_indirection) {
        TRACE("indirected typecode at top level!");
        return marshal_error(env);
    }
    int32_t k = tc->kind;
    bool ok = true;
    if ((k >= tk_objref && k <= tk_enum) || (k >= tk_sequence && k <= tk_except))
        ok = s.put_long(tc->length) &&
             (tc->length == 0 || (tc->buffer != nullptr && s.put_bytes(tc->buffer, tc->length)));
    else if (k == tk_string || k == tk_wstring)
        ok = s.put_long(tc->length);
    return ok ? 1 : marshal_error(env);
}

int put_principal(void *data, CDR &s, Environment &env) {
    auto *record = load_unaligned<SequenceRecord *>(data);
    if (record == nullptr) return s.put_long(0) ? 1 : marshal_error(env);
    SequenceRecord r = load_unaligned<SequenceRecord>(record);
    return s.put_long(r.length) && s.put_bytes(r.buffer, r.length) ? 1 : marshal_error(env);
}

int put_sequence(TypeCode *tc, void *data, CDR &s, Environment &env) {
    SequenceRecord r{0, 0, nullptr};
    if (data != nullptr) r = load_unaligned<SequenceRecord>(data);
    if (r.length > 0) {
        uint32_t bound = tc->paramLong(1, env);
        if (env.has_exception()) return 0;
        if (bound != 0 && r.length > bound) return raise_system(env, exid::BAD_PARAM);
    }
    if (!s.put_long(r.length)) return marshal_error(env);
    if (r.length == 0) return 1;
    // Numbers whose memory form is their wire form go out in one copy.
    int run = put_primitive_run(tc, r, s, env);
    if (run >= 0) return run == 1 ? 1 : (env.has_exception() ? 0 : marshal_error(env));
    return tc->walkValue(data, nullptr, encoder, &s, env);
}

int put_any(void *data, CDR &s, Environment &env) {
    ValueNesting level(env);
    if (!level.ok()) return 0;
    Any any = load_any(data);
    inittypecodes();
    if (!encoder(tc_TypeCode(), &any.type, nullptr, &s, env)) return 0;
    return encoder(any.type, any.value, nullptr, &s, env);
}

}  // namespace

int encoder(TypeCode *tc, void *data, void *, void *stream, Environment &env) {
    env.clear();
    CDR &s = *static_cast<CDR *>(stream);
    if (tc == nullptr) return marshal_error(env);
    int32_t kind = tc->kind;
    if (kind == tk_null || kind == tk_void) return 1;
    if (data == nullptr && kind != tk_sequence) return marshal_error(env);
    bool ok;
    switch (kind) {
        case tk_short:
        case tk_ushort:
        case tk_wchar:
            ok = s.put_short(load_unaligned<uint16_t>(data));
            break;
        case tk_long:
        case tk_ulong:
        case tk_float:
        case tk_enum:
            ok = s.put_long(load_unaligned<uint32_t>(data));
            break;
        case tk_double:
        case tk_longlong:
        case tk_ulonglong:
            ok = s.put_longlong(data);
            break;
        case tk_longdouble:
            ok = s.put_longdouble(data);
            break;
        case tk_boolean:
            ok = s.put_byte(load_unaligned<uint32_t>(data) != 0 ? 1 : 0);
            break;
        case tk_char:
        case tk_octet:
            ok = s.put_byte(load_unaligned<uint8_t>(data));
            break;
        case tk_any:
            return put_any(data, s, env);
        case tk_TypeCode:
            return put_typecode(data, s, env);
        case tk_Principal:
            return put_principal(data, s, env);
        case tk_objref: {
            objref_encode_fn encode = objref_codec().encode;
            if (encode == nullptr) return marshal_error(env);
            return encode(tc, load_unaligned<void *>(data), s, env);
        }
        case tk_struct:
        case tk_union:
        case tk_array:
        case tk_alias:
        case tk_except:
            return tc->walkValue(data, nullptr, encoder, &s, env);
        case tk_string:
            return put_string(tc, data, s, env);
        case tk_sequence:
            return put_sequence(tc, data, s, env);
        case tk_wstring:
            return put_wstring(tc, data, s, env);
        default:
            TRACE("encoder default case ?");
            return marshal_error(env);
    }
    return ok ? 1 : marshal_error(env);
}
