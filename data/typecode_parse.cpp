#include "data/typecode_parse.h"

#include "orbelle/limits.h"

namespace tcparse {

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

namespace {

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

}  // namespace

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

namespace {

bool array_rule(Parse &p, CDR &s, uint32_t &size_out, uint32_t &align_out, Environment &env) {
    uint32_t esize, ealign, count;
    if (!nested(p, nullptr, s, esize, ealign, env) || !s.get_long(&count)) return false;
    uint64_t size = uint64_t{esize} * count;
    if (size > limits::max_value_size) return false;
    size_out = static_cast<uint32_t>(size);
    align_out = ealign;
    return true;
}

}  // namespace

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

namespace {

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

}  // namespace

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

}  // namespace tcparse
