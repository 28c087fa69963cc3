#include "data/cdr.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "trace/trace.h"

namespace {
// Alignment of every writable base: the largest value width, so that the
// padding before a value is the same in any block the stream moves to.
constexpr uintptr_t base_alignment = 16;
// Below this capacity grow(0) adds a fixed step; from it on it doubles.
constexpr uint32_t grow_step = 4096;

}  // namespace

CDR::~CDR() {
    if (owns_allocation != 0) std::free(allocation);
}

void CDR::attach_buffer(void *array, uint32_t size) {
    auto *start = static_cast<unsigned char *>(array);
    uintptr_t at = reinterpret_cast<uintptr_t>(start);
    uint32_t rounding = static_cast<uint32_t>((base_alignment - (at & (base_alignment - 1))) &
                                              (base_alignment - 1));
    if (rounding > size) rounding = size;
    allocation = start;
    owns_allocation = 0;
    base = start + rounding;
    cursor = base;
    capacity = size - rounding;
    space_left = capacity;
    swap = 0;
    origin = base;
    allow_value_memory(capacity);
}

void CDR::open_encapsulation(const void *bytes, uint32_t length) {
    // The stream is only read from here on; the cast lets it share the
    // cursor field with writable streams.
    auto *start = const_cast<unsigned char *>(static_cast<const unsigned char *>(bytes));
    swap = start[0] == 1 ? 0 : 1;
    cursor = start + 1;
    space_left = length - 1;
    allocation = nullptr;
    base = nullptr;
    capacity = 0;
    owns_allocation = 0;
    origin = start;
    allow_value_memory(length);
}

int CDR::put_bytes(const void *bytes, uint32_t n) {
    if (n > space_left) {
        // One step of grow(0) when it makes room, as single bytes would;
        // otherwise straight to the size needed, so a large block costs one copy.
        uint64_t want = uint64_t{used()} + n;
        uint64_t step =
            capacity < grow_step ? uint64_t{capacity} + grow_step : uint64_t{capacity} * 2;
        if (want > UINT32_MAX) return 0;
        if (!grow(want <= step ? 0 : static_cast<uint32_t>(want))) return 0;
    }
    if (n != 0) std::memcpy(cursor, bytes, n);
    cursor += n;
    space_left -= n;
    return 1;
}

int CDR::get_bytes(void *dest, uint32_t n) {
    if (n > space_left) return 0;
    if (n != 0) std::memcpy(dest, cursor, n);
    cursor += n;
    space_left -= n;
    return 1;
}

int CDR::get_counted(unsigned char **bytes, uint32_t *count) {
    uint32_t n = 0;
    if (!get_long(&n)) return 0;
    if (n > space_left) return 0;
    *bytes = cursor;
    *count = n;
    cursor += n;
    space_left -= n;
    return 1;
}

int CDR::skip_counted() {
    unsigned char *bytes;
    uint32_t count;
    return get_counted(&bytes, &count);
}

void CDR::read_in_place(const unsigned char *at, uint32_t length) {
    // Reading never writes through cursor.
    cursor = const_cast<unsigned char *>(at);
    space_left = length;
    allow_value_memory(length);
}

char *get_counted_text(CDR &in) {
    unsigned char *bytes;
    uint32_t count;
    if (!in.get_counted(&bytes, &count)) return nullptr;
    char *text = static_cast<char *>(std::malloc(count + 1u));
    if (text == nullptr) return nullptr;
    if (count != 0) std::memcpy(text, bytes, count);
    text[count] = '\0';
    return text;
}

unsigned char *CDR::put_run(uint32_t width, uint32_t n) {
    uint32_t pad = padding_for(cursor, width);
    if (n > (UINT32_MAX - pad) / width) return nullptr;
    uint32_t need = pad + width * n;
    // base is 16-aligned in a grown block, so the padding stays the same.
    while (need > space_left)
        if (!grow(0)) return nullptr;
    if (pad != 0) std::memset(cursor, 0, pad);
    unsigned char *first = cursor + pad;
    cursor += need;
    space_left -= need;
    return first;
}

int CDR::grow(uint32_t size) {
    uint32_t old_swap = swap;
    unsigned char *old_base = base;
    uint32_t used_bytes = base != nullptr ? static_cast<uint32_t>(cursor - base) : 0;
    unsigned char *old_block = owns_allocation != 0 ? allocation : nullptr;

    uint64_t n;
    if (size == 0)
        n = capacity < grow_step ? uint64_t{capacity} + grow_step : uint64_t{capacity} * 2;
    else if (size <= capacity)
        return 1;
    else
        n = size;
    // capacity and space_left are 32-bit: a step past that is out of memory.
    void *block = nullptr;
    if (n + (base_alignment - 1) <= UINT32_MAX)
        block = std::malloc(static_cast<size_t>(n + (base_alignment - 1)));
    if (block == nullptr) {
        TRACE("grow:  new failed");
        return 0;
    }
    auto block_size = static_cast<uint32_t>(n + (base_alignment - 1));
    TRACE("grow:  malloc %" PRIu32 " at " PTR_FMT, block_size, ptrv(block));
    attach_buffer(block, block_size);
    owns_allocation = 1;
    TRACE("grow:  new CDR at " PTR_FMT, ptrv(this));

    swap = old_swap;
    if (used_bytes != 0) std::memcpy(base, old_base, used_bytes);
    cursor += used_bytes;
    space_left -= used_bytes;
    if (old_block != nullptr) {
        TRACE("grow:  free " PTR_FMT, ptrv(old_block));
        std::free(old_block);
    }
    return 1;
}
