#include "data/typecode.h"

#include <cstdlib>
#include <cstring>

#include "data/typecode_parse.h"
#include "data/unaligned.h"
#include "trace/trace.h"

using namespace tcparse;

namespace {
ValueRow value_table[tk_count];
}  // namespace

void fill_value_table() {
    const uint32_t ptr = sizeof(void *);
    const ValueRow rows[tk_count] = {
        {0, 1},                       // null
        {0, 1},                       // void
        {2, 2},                       // short
        {4, 4},                       // long
        {2, 2},                       // ushort
        {4, 4},                       // ulong
        {4, 4},                       // float
        {8, 8},                       // double
        {4, 4},                       // boolean, a word
        {1, 1},                       // char
        {1, 1},                       // octet
        {any_record_size, 1},         // any: the record, packed
        {ptr, ptr},                   // TypeCode pointer
        {ptr, ptr},                   // Principal pointer
        {ptr, ptr},                   // objref pointer
        {0, 1},                       // struct: computed
        {0, 1},                       // union: computed
        {4, 4},                       // enum
        {ptr, ptr},                   // string pointer
        {sizeof(SequenceRecord), 1},  // sequence record, packed
        {0, 1},                       // array: computed
        {0, 1},                       // alias: computed
        {0, 1},                       // except: computed
        {8, 8},                       // longlong
        {8, 8},                       // ulonglong
        {16, 1},                      // longdouble, packed
        {2, 2},                       // wchar
        {ptr, ptr},                   // wstring pointer
    };
    std::memcpy(value_table, rows, sizeof rows);
}

ValueRow value_row(int32_t kind) {
    if (kind < 0 || kind >= tk_count) return ValueRow{0, 1};
    ValueRow row = value_table[kind];
    if (row.alignment == 0) row.alignment = 1;
    return row;
}

namespace {

// One process-lifetime, unowned TypeCode for each kind without parameters.
struct SharedKinds {
    TypeCode codes[tk_count];
    TypeCode *table[tk_count] = {};
    SharedKinds() {
        for (int32_t k = 0; k < tk_count; ++k) {
            bool parameterless = (k >= tk_null && k <= tk_Principal) ||
                                 (k >= tk_longlong && k <= tk_wchar) || k == tk_string ||
                                 k == tk_wstring;
            if (!parameterless) continue;
            codes[k].kind = k;
            table[k] = &codes[k];
        }
    }
};

// A TypeCode read from a value is part of decoding that value, and fails as
// the decoder does.
TypeCode *decode_failure(Environment &env) {
    TRACE("marshaling decoder detected error");
    raise_system(env, exid::MARSHAL);
    return nullptr;
}

}  // namespace

TypeCode *shared_typecode(int32_t kind) {
    static SharedKinds shared;
    if (kind < 0 || kind >= tk_count) return nullptr;
    return shared.table[kind];
}

TypeCode *TypeCode::readTypeCode(CDR &s, Environment &env) {
    env.clear();
    uint32_t word;
    if (!s.get_long(&word) || word >= static_cast<uint32_t>(tk_count)) return decode_failure(env);
    auto kind = static_cast<int32_t>(word);
    if (kind == tk_string || kind == tk_wstring) {
        uint32_t bound;
        if (!s.get_long(&bound)) return decode_failure(env);
        if (bound == 0) return shared_typecode(kind);
        auto *result = new TypeCode(kind);
        result->owned = 1;
        result->length = bound;
        TRACE("decoder:  new TypeCode/string at " PTR_FMT, ptrv(result));
        return result;
    }
    if (TypeCode *result = shared_typecode(kind)) return result;
    uint32_t length;
    // Checked before allocating: the body must be in the message.
    if (!s.get_long(&length) || length > s.space_left) return decode_failure(env);
    auto *block = static_cast<unsigned char *>(std::malloc(length != 0 ? length : 1));
    if (block == nullptr) return decode_failure(env);
    TRACE("decoder:  new buffer at " PTR_FMT, ptrv(block));
    s.get_bytes(block, length);
    auto *result = new TypeCode(kind, length, block, 1);
    TRACE("decoder:  new TypeCode/complex at " PTR_FMT, ptrv(result));
    return result;
}

TypeCode::TypeCode(int32_t kind_)
    : length(0), buffer(nullptr), kind(kind_), parent(nullptr), refCount(1), owned(0) {}

TypeCode::TypeCode(int32_t kind_, uint32_t length_, const void *bytes, uint32_t owned_)
    : length(length_),
      buffer(const_cast<unsigned char *>(static_cast<const unsigned char *>(bytes))),
      kind(kind_),
      parent(nullptr),
      refCount(1),
      owned(owned_) {
    if (bytes != nullptr && reinterpret_cast<uintptr_t>(bytes) % 4 != 0) {
        // Values in an encapsulation are aligned on addresses, so the body
        // must start on a 4-byte boundary; a block from malloc does.
        buffer = static_cast<unsigned char *>(std::malloc(length_ != 0 ? length_ : 1));
        if (buffer != nullptr && length_ != 0) std::memcpy(buffer, bytes, length_);
        if (buffer == nullptr) length = 0;
        owned = 0;
        ownsCopy_ = true;
    }
}

TypeCode::~TypeCode() {
    if (parent != nullptr)
        release(parent);
    else if (owned != 0)
        std::free(buffer);
    if (ownsCopy_) std::free(buffer);
}

TypeCode *TypeCode::addRef() {
    if (owned != 0) ++refCount;
    return this;
}

void TypeCode::release(TypeCode *tc) {
    if (tc == nullptr || tc->owned == 0) return;
    if (--tc->refCount == 0) delete tc;
}

int32_t TypeCode::getKind(Environment &env) {
    env.clear();
    return kind;
}

uint32_t TypeCode::paramCount(Environment &env) {
    env.clear();
    CDR s;
    uint32_t n;
    switch (kind) {
        case tk_string:
        case tk_wstring:
            return 1;
        case tk_objref:
        case tk_sequence:
        case tk_array:
            return 2;
        case tk_alias:
            return 3;
        case tk_struct:
        case tk_except:
            // Each member takes at least its name's count and its kind.
            if (!open_body(*this, s) || !skip_strings(s, 2) || !s.get_long(&n) ||
                n > s.space_left / 8)
                return bad_typecode(env);
            return 2 * n + 3;
        case tk_enum:
            if (!open_body(*this, s) || !skip_strings(s, 2) || !s.get_long(&n) ||
                n > s.space_left / 4)
                return bad_typecode(env);
            return n + 3;
        case tk_union: {
            int32_t default_index;
            if (!open_body(*this, s) || !skip_strings(s, 2) || !skipTypeCode(s) ||
                !s.get_long(&default_index) || !s.get_long(&n) || n > s.space_left / 9)
                return bad_typecode(env);
            return 3 * n + 5;
        }
        default:
            return 0;
    }
}

uint32_t TypeCode::paramLong(uint32_t index, Environment &env) {
    uint32_t count = paramCount(env);
    if (env.has_exception()) return 0;
    if (index >= count) return raise_bounds(env);
    if ((kind == tk_string || kind == tk_wstring) && index == 0) return length;
    if ((kind == tk_sequence || kind == tk_array) && index == 1) {
        CDR s;
        uint32_t value;
        if (!open_body(*this, s) || !skipTypeCode(s)) return raise_system(env, exid::BAD_PARAM);
        if (!s.get_long(&value)) return bad_typecode(env);
        return value;
    }
    return raise_system(env, exid::BAD_PARAM);
}

TypeCode *TypeCode::paramType(uint32_t index, Environment &env) {
    uint32_t count = paramCount(env);
    if (env.has_exception()) return nullptr;
    if (index >= count) {
        raise_bounds(env);
        return nullptr;
    }
    CDR s;
    bool ok = true;
    switch (kind) {
        case tk_sequence:
        case tk_array:
            ok = index == 0 && open_body(*this, s);
            if (index != 0) {
                raise_system(env, exid::BAD_PARAM);
                return nullptr;
            }
            break;
        case tk_alias:
            if (index != 2) {
                raise_system(env, exid::BAD_PARAM);
                return nullptr;
            }
            ok = open_body(*this, s) && skip_strings(s, 2);
            break;
        case tk_struct:
        case tk_except: {
            if (index < 4 || index % 2 != 0) {
                raise_bounds(env);
                return nullptr;
            }
            uint32_t n;
            ok = open_body(*this, s) && skip_strings(s, 2) && s.get_long(&n);
            for (uint32_t i = 0; ok && i < (index - 3) / 2; ++i)
                ok = s.skip_counted() && skipTypeCode(s);
            ok = ok && s.skip_counted();
            break;
        }
        case tk_union: {
            if (index != 2 && (index < 7 || (index - 7) % 3 != 0)) {
                raise_bounds(env);
                return nullptr;
            }
            TypeCode disc;
            uint32_t dsize, dalign, n, label;
            int32_t default_index;
            ok = open_body(*this, s) && skip_strings(s, 2);
            if (ok && index == 2) break;
            Parse p = parse_over(s);
            ok = ok && nested(p, &disc, s, dsize, dalign, env) && s.get_long(&default_index) &&
                 s.get_long(&n);
            for (uint32_t i = 0; ok && i < (index - 7) / 3; ++i)
                ok = read_label(disc.kind, s, &label) && s.skip_counted() && skipTypeCode(s);
            ok = ok && read_label(disc.kind, s, &label) && s.skip_counted();
            break;
        }
        default:
            raise_system(env, exid::BAD_PARAM);
            return nullptr;
    }
    if (!ok) {
        bad_typecode(env);
        return nullptr;
    }
    return readTypeCode(s, env);
}

const char *TypeCode::repositoryId(Environment &env) {
    env.clear();
    if (!(kind >= tk_objref && kind <= tk_enum) && kind != tk_alias && kind != tk_except) {
        raise_system(env, exid::BAD_PARAM);
        return nullptr;
    }
    CDR s;
    unsigned char *id;
    uint32_t len;
    // The id must end with its zero inside the encapsulation.
    if (!open_body(*this, s) || !s.get_counted(&id, &len) || len == 0 || id[len - 1] != 0) {
        bad_typecode(env);
        return nullptr;
    }
    return reinterpret_cast<const char *>(id);
}

uint32_t TypeCode::valueSize(Environment &env) {
    env.clear();
    if (kind < 0 || kind >= tk_count) return bad_typecode(env);
    if (has_row_size(kind)) return value_row(kind).size;
    CDR s;
    if (!open_body(*this, s)) return bad_typecode(env);
    Parse p{buffer, buffer + length, 1, 0};
    uint32_t size, align;
    if (!run_rule(p, kind, s, size, align, env)) return bad_typecode(env);
    return size;
}

int TypeCode::skipTypeCode(CDR &s) {
    uint32_t kind_word, len;
    if (!s.get_long(&kind_word) || kind_word >= static_cast<uint32_t>(tk_count)) return 0;
    auto k = static_cast<int32_t>(kind_word);
    if (k == tk_string || k == tk_wstring) return s.get_long(&len);
    if (has_encapsulation(k)) return s.skip_counted();
    return 1;
}

uint32_t TypeCode::nestedSize(TypeCode *target, CDR &stream, uint32_t *alignment,
                              Environment &env) {
    env.clear();
    Parse p = parse_over(stream);
    uint32_t size, align;
    if (!nested(p, target, stream, size, align, env)) return bad_typecode(env);
    if (alignment != nullptr) *alignment = align;
    return size;
}

int TypeCode::labelMatches(int32_t discKind, CDR &stream, const void *disc, Environment &env) {
    uint32_t label;
    if (!read_label(discKind, stream, &label)) return bad_typecode(env);
    if (disc == nullptr) return 0;
    switch (discKind) {
        case tk_boolean:
            return (label == 1 ? 1u : 0u) == load_unaligned<uint32_t>(disc);
        case tk_char:
            return label == *static_cast<const uint8_t *>(disc);
        case tk_short:
        case tk_ushort:
        case tk_wchar:
            return label == load_unaligned<uint16_t>(disc);
        default:
            return label == load_unaligned<uint32_t>(disc);
    }
}
