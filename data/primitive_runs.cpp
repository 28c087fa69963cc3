#include "data/primitive_runs.h"

#include <algorithm>

#include "data/unaligned.h"

namespace {
int put_one(CDR &s, const unsigned char *at, uint32_t width) {
    switch (width) {
        case 1:
            return s.put_byte(at[0]);
        case 2:
            return s.put_short(load_unaligned<uint16_t>(at));
        case 4:
            return s.put_long(load_unaligned<uint32_t>(at));
        default:
            return s.put_longlong(at);
    }
}

int get_one(CDR &s, unsigned char *at, uint32_t width) {
    switch (width) {
        case 1:
            return s.get_byte(at);
        case 2:
            return s.get_short(at);
        case 4:
            return s.get_long(at);
        default:
            return s.get_longlong(at);
    }
}
}  // namespace

uint32_t primitive_run_width(const TypeCode *seq) {
    if (seq->kind != tk_sequence || seq->buffer == nullptr || seq->length < 8) return 0;
    CDR s;
    s.open_encapsulation(seq->buffer, seq->length);
    uint32_t kind;
    if (!s.get_long(&kind)) return 0;
    switch (kind) {
        case tk_char:
        case tk_octet:
            return 1;
        case tk_short:
        case tk_ushort:
        case tk_wchar:
            return 2;
        case tk_long:
        case tk_ulong:
        case tk_float:
            return 4;
        case tk_double:
        case tk_longlong:
        case tk_ulonglong:
            return 8;
        default:
            return 0;
    }
}

int put_primitive_run(TypeCode *seq, const SequenceRecord &r, CDR &s, Environment &) {
    uint32_t width = primitive_run_width(seq);
    if (width == 0) return -1;
    if (r.length == 0) return 1;
    if (r.buffer == nullptr) return 0;
    const auto *at = static_cast<const unsigned char *>(r.buffer);
    // The first element brings the padding; the rest follow without gaps.
    if (!put_one(s, at, width)) return 0;
    uint64_t rest = uint64_t{r.length - 1} * width;
    if (rest > UINT32_MAX) return 0;
    return s.put_bytes(at + width, static_cast<uint32_t>(rest));
}

int get_primitive_run(TypeCode *seq, const SequenceRecord &r, CDR &s, Environment &) {
    uint32_t width = primitive_run_width(seq);
    if (width == 0) return -1;
    if (r.length == 0) return 1;
    auto *at = static_cast<unsigned char *>(r.buffer);
    if (!get_one(s, at, width)) return 0;
    uint64_t rest = uint64_t{r.length - 1} * width;
    if (rest > s.space_left) return 0;
    if (!s.get_bytes(at + width, static_cast<uint32_t>(rest))) return 0;
    if (s.swap != 0 && width > 1) {
        for (unsigned char *e = at + width; e < at + width + rest; e += width)
            std::reverse(e, e + width);
    }
    return 1;
}
