#include "data/typecode.h"

#include <cstdlib>
#include <cstring>

#include "data/unaligned.h"
#include "orbelle/limits.h"
#include "trace/trace.h"

namespace {

ValueRow value_table[tk_count];
uint32_t value_depth = 0;

// The region that indirections of one parse may point into, and the parse's
// nesting and work so far.
struct Parse {
    const unsigned char *lo;
    const unsigned char *hi;
    uint32_t depth;
    uint32_t steps;
};

Parse parse_over(const CDR &s) {
    const unsigned char *lo = s.origin != nullptr ? s.origin : s.cursor;
    return Parse{lo, s.cursor + s.space_left, 0, 0};
}

int bad_typecode(Environment &env) { return raise_system(env, exid::BAD_TYPECODE); }

uint64_t align_up(uint64_t value, uint32_t alignment) {
    return (value + alignment - 1) / alignment * alignment;
}

bool has_row_size(int32_t kind) {
    return (kind >= tk_null && kind <= tk_objref) || kind == tk_enum || kind == tk_string ||
           kind == tk_sequence || (kind >= tk_longlong && kind <= tk_wstring);
}

bool has_encapsulation(int32_t kind) {
    return (kind >= tk_objref && kind <= tk_enum) || (kind >= tk_sequence && kind <= tk_except);
}

// Opens the encapsulation of tc for reading; false when it has none.
bool open_body(const TypeCode &tc, CDR &s) {
    if (tc.buffer == nullptr || tc.length == 0) return false;
    s.open_encapsulation(tc.buffer, tc.length);
    return true;
}

bool skip_strings(CDR &s, int count) {
    for (int i = 0; i < count; ++i)
        if (!s.skip_counted()) return false;
    return true;
}

// Reads a union label in the width of the discriminator's kind.
bool read_label(int32_t disc_kind, CDR &s, uint32_t *label) {
    switch (disc_kind) {
        case tk_boolean:
        case tk_char: {
            uint8_t b;
            if (!s.get_byte(&b)) return false;
            *label = b;
            return true;
        }
        case tk_short:
        case tk_ushort:
        case tk_wchar: {
            uint16_t v;
            if (!s.get_short(&v)) return false;
            *label = v;
            return true;
        }
        case tk_long:
        case tk_ulong:
        case tk_enum:
            return s.get_long(label) != 0;
        default:
            return false;
    }
}

unsigned char *step(void *value, uint64_t offset) {
    return value != nullptr ? static_cast<unsigned char *>(value) + offset : nullptr;
}

bool nested(Parse &p, TypeCode *target, CDR &s, uint32_t &size, uint32_t &align, Environment &env);

bool struct_rule(Parse &p, CDR &s, bool exception_form, uint32_t &size_out, uint32_t &align_out,
                 Environment &env) {
    ValueRow id_row = value_row(tk_string);
    uint64_t size = exception_form ? id_row.size : 0;
    uint32_t align = exception_form ? id_row.alignment : 1;
    uint32_t n;
    if (!skip_strings(s, 2) || !s.get_long(&n)) return false;
    for (uint32_t i = 0; i < n; ++i) {
        uint32_t msize, malign;
        if (!s.skip_counted() || !nested(p, nullptr, s, msize, malign, env)) return false;
        size = align_up(size, malign) + msize;
        if (malign > align) align = malign;
        if (size > limits::max_value_size) return false;
    }
    size = align_up(size, align);
    if (size > limits::max_value_size) return false;
    size_out = static_cast<uint32_t>(size);
    align_out = align;
    return true;
}

bool union_rule(Parse &p, CDR &s, uint32_t &size_out, uint32_t &align_out, uint32_t &disc_part,
                Environment &env) {
    TypeCode disc;
    uint32_t d, align, n;
    int32_t default_index;
    if (!skip_strings(s, 2) || !nested(p, &disc, s, d, align, env)) return false;
    if (!s.get_long(&default_index) || !s.get_long(&n)) return false;
    uint64_t largest = 0;
    uint32_t member_align = 1;
    for (uint32_t i = 0; i < n; ++i) {
        uint32_t label, msize, malign;
        if (!read_label(disc.kind, s, &label) || !s.skip_counted()) return false;
        if (!nested(p, nullptr, s, msize, malign, env)) return false;
        if (msize > largest) largest = msize;
        if (malign > member_align) member_align = malign;
    }
    uint64_t part = align_up(d, member_align);
    if (member_align > align) align = member_align;
    uint64_t size = align_up(part + largest, align);
    if (size > limits::max_value_size) return false;
    disc_part = static_cast<uint32_t>(part);
    size_out = static_cast<uint32_t>(size);
    align_out = align;
    return true;
}

bool array_rule(Parse &p, CDR &s, uint32_t &size_out, uint32_t &align_out, Environment &env) {
    uint32_t esize, ealign, count;
    if (!nested(p, nullptr, s, esize, ealign, env) || !s.get_long(&count)) return false;
    uint64_t size = uint64_t{esize} * count;
    if (size > limits::max_value_size) return false;
    size_out = static_cast<uint32_t>(size);
    align_out = ealign;
    return true;
}

bool run_rule(Parse &p, int32_t kind, CDR &s, uint32_t &size, uint32_t &align, Environment &env) {
    uint32_t disc_part;
    switch (kind) {
        case tk_struct:
            return struct_rule(p, s, false, size, align, env);
        case tk_except:
            return struct_rule(p, s, true, size, align, env);
        case tk_union:
            return union_rule(p, s, size, align, disc_part, env);
        case tk_array:
            return array_rule(p, s, size, align, env);
        case tk_alias:
            return skip_strings(s, 2) && nested(p, nullptr, s, size, align, env);
        default:
            return false;
    }
}

// Follows an indirection whose offset word was just read from s: the
// TypeCode lies at the offset word's position plus the offset, and must lie
// inside the region of the parse, before the word.
bool follow_indirection(Parse &p, CDR &s, CDR &target_stream) {
    int32_t offset;
    if (!s.get_long(&offset)) return false;
    if (offset >= -8 || offset % 4 != 0) return false;
    const unsigned char *word = s.cursor - 4;
    uintptr_t back = static_cast<uintptr_t>(-static_cast<int64_t>(offset));
    uintptr_t word_at = reinterpret_cast<uintptr_t>(word);
    uintptr_t lo = reinterpret_cast<uintptr_t>(p.lo);
    if (word_at < lo || word_at - lo < back) return false;
    const unsigned char *at = word - back;
    target_stream.read_in_place(at, static_cast<uint32_t>(p.hi - at));
    target_stream.swap = at[0] == 0 ? 1 : 0;
    target_stream.origin = p.lo;
    return true;
}

bool nested(Parse &p, TypeCode *target, CDR &outer, uint32_t &size, uint32_t &align,
            Environment &env) {
    if (++p.steps > limits::max_typecode_steps || p.depth >= limits::max_typecode_depth)
        return false;
    uint32_t word;
    if (!outer.get_long(&word)) return false;
    CDR indirect;
    CDR *s = &outer;
    if (word == tk_indirection) {
        if (!follow_indirection(p, outer, indirect) || !indirect.get_long(&word)) return false;
        s = &indirect;
    }
    if (word < tk_short || word >= static_cast<uint32_t>(tk_count) || word == tk_except)
        return false;
    auto kind = static_cast<int32_t>(word);

    if (has_row_size(kind)) {
        if (target != nullptr) {
            target->kind = kind;
            target->length = 0;
            target->buffer = nullptr;
        }
        if (kind == tk_objref || kind == tk_enum || kind == tk_sequence) {
            unsigned char *body;
            uint32_t len;
            if (!s->get_counted(&body, &len)) return false;
            if (target != nullptr) {
                target->length = len;
                target->buffer = body;
            }
        } else if (kind == tk_string || kind == tk_wstring) {
            uint32_t bound;
            if (!s->get_long(&bound)) return false;
            if (target != nullptr) target->length = bound;
        }
        ValueRow row = value_row(kind);
        size = row.size;
        align = row.alignment;
        return true;
    }

    unsigned char *body;
    uint32_t len;
    if (!s->get_counted(&body, &len) || len == 0) return false;
    if (target != nullptr) {
        target->kind = kind;
        target->length = len;
        target->buffer = body;
    }
    CDR inner;
    inner.open_encapsulation(body, len);
    ++p.depth;
    bool ok = run_rule(p, kind, inner, size, align, env);
    --p.depth;
    // The rule must have read the body to its last byte.
    return ok && inner.space_left == 0;
}

}  // namespace

ValueNesting::ValueNesting(Environment &env) : ok_(value_depth < limits::max_value_depth) {
    if (ok_)
        ++value_depth;
    else
        bad_typecode(env);
}

ValueNesting::~ValueNesting() {
    if (ok_) --value_depth;
}

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

namespace {

// One visitor call; an exception in env turns any result into 0.
int visit(valueVisitor visitor, TypeCode *tc, void *v1, void *v2, void *context, Environment &env) {
    int r = visitor(tc, v1, v2, context, env);
    return env.has_exception() ? 0 : r;
}

int walk_struct(TypeCode &tc, bool exception_form, void *v1, void *v2, valueVisitor visitor,
                void *context, Environment &env) {
    uint64_t offset = 0;
    if (exception_form) {
        if (visit(visitor, shared_typecode(tk_string), v1, v2, context, env) != 1)
            return env.has_exception() ? 0 : bad_typecode(env);
        offset = value_row(tk_string).size;
    }
    CDR s;
    uint32_t n;
    if (!open_body(tc, s) || !skip_strings(s, 2) || !s.get_long(&n)) return bad_typecode(env);
    Parse p{tc.buffer, tc.buffer + tc.length, 1, 0};
    for (uint32_t i = 0; i < n; ++i) {
        TypeCode member;
        uint32_t size, align;
        if (!s.skip_counted() || !nested(p, &member, s, size, align, env)) return bad_typecode(env);
        p.steps = 0;
        offset = align_up(offset, align);
        int r = visit(visitor, &member, step(v1, offset), step(v2, offset), context, env);
        if (r != 1) return r;
        offset += size;
    }
    return 1;
}

int walk_union(TypeCode &tc, void *v1, void *v2, valueVisitor visitor, void *context,
               Environment &env) {
    CDR s, sizing;
    if (!open_body(tc, s) || !open_body(tc, sizing)) return bad_typecode(env);
    Parse p{tc.buffer, tc.buffer + tc.length, 1, 0};
    uint32_t usize, ualign, disc_part;
    if (!union_rule(p, sizing, usize, ualign, disc_part, env)) return bad_typecode(env);

    TypeCode disc;
    uint32_t dsize, dalign, n;
    int32_t default_index;
    p.steps = 0;
    if (!skip_strings(s, 2) || !nested(p, &disc, s, dsize, dalign, env)) return bad_typecode(env);
    if (visit(visitor, &disc, v1, v2, context, env) == 0) return 0;
    void *disc_value = v1;
    v1 = step(v1, disc_part);
    v2 = step(v2, disc_part);
    if (!s.get_long(&default_index) || !s.get_long(&n)) return bad_typecode(env);

    bool have_default = false;
    CDR at_default;
    for (uint32_t i = 0; i < n; ++i) {
        int matched = TypeCode::labelMatches(disc.kind, s, disc_value, env);
        if (env.has_exception()) return 0;
        if (!s.skip_counted()) return bad_typecode(env);
        if (default_index >= 0 && i == static_cast<uint32_t>(default_index)) {
            have_default = true;
            at_default.read_in_place(s.cursor, s.space_left);
            at_default.swap = s.swap;
        }
        TypeCode member;
        uint32_t size, align;
        if (!nested(p, &member, s, size, align, env)) return bad_typecode(env);
        if (matched) return visit(visitor, &member, v1, v2, context, env);
    }
    if (!have_default) return 1;
    TypeCode member;
    uint32_t size, align;
    if (!nested(p, &member, at_default, size, align, env)) return bad_typecode(env);
    return visit(visitor, &member, v1, v2, context, env);
}

int walk_elements(TypeCode &tc, uint32_t count, void *e1, void *e2, valueVisitor visitor,
                  void *context, Environment &env) {
    TypeCodeRef element(tc.paramType(0, env));
    if (!element) return 0;
    uint32_t size = element->valueSize(env);
    int result = env.has_exception() ? 0 : 1;
    // Elements of size 0 hold nothing, and their wire form is empty too:
    // visiting them would only spin over a count that may be huge.
    if (size == 0) count = 0;
    // Elements claimed without a block: nothing to visit, and nothing right
    // to write for them.
    if (result == 1 && count != 0 && e1 == nullptr) result = raise_system(env, exid::BAD_PARAM);
    for (uint32_t i = 0; result == 1 && i < count; ++i) {
        uint64_t offset = uint64_t{size} * i;
        if (visit(visitor, element.get(), step(e1, offset), step(e2, offset), context, env) == 0)
            result = 0;
    }
    return result;
}

}  // namespace

int TypeCode::walkValue(void *value1, void *value2, valueVisitor visitor, void *context,
                        Environment &env) {
    env.clear();
    ValueNesting level(env);
    if (!level.ok()) return 0;
    switch (kind) {
        case tk_struct:
            return walk_struct(*this, false, value1, value2, visitor, context, env);
        case tk_except:
            return walk_struct(*this, true, value1, value2, visitor, context, env);
        case tk_union:
            return walk_union(*this, value1, value2, visitor, context, env);
        case tk_sequence: {
            SequenceRecord r1{0, 0, nullptr}, r2{0, 0, nullptr};
            if (value1 != nullptr) r1 = load_unaligned<SequenceRecord>(value1);
            if (value2 != nullptr) r2 = load_unaligned<SequenceRecord>(value2);
            return walk_elements(*this, r1.length, r1.buffer, r2.buffer, visitor, context, env);
        }
        case tk_array: {
            uint32_t count = paramLong(1, env);
            if (env.has_exception()) return 0;
            return walk_elements(*this, count, value1, value2, visitor, context, env);
        }
        case tk_alias: {
            TypeCodeRef aliased(paramType(2, env));
            if (!aliased) return 0;
            return aliased->walkValue(value1, value2, visitor, context, env);
        }
        default:
            if (kind < tk_null || kind >= tk_count) return bad_typecode(env);
            return visitor(this, value1, value2, context, env);
    }
}
