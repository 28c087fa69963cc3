// Walks over values member by member, driven by their TypeCodes
// (TypeCode::walkValue), and the count of walks in progress.
#include "data/typecode.h"
#include "data/typecode_parse.h"
#include "data/unaligned.h"
#include "orbelle/limits.h"

using namespace tcparse;

namespace {
uint32_t value_depth = 0;
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
