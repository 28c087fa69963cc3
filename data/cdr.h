// The byte stream on which all marshalling works: a memory area with a
// moving cursor, primitive values by width, alignment on memory addresses,
// and a swap flag for input in the other byte order. It knows nothing of
// types or messages.
#ifndef ORBELLE_CDR_H
#define ORBELLE_CDR_H

#include <cstdint>
#include <cstring>

#include "orbelle/limits.h"

class CDR {
public:
    // An empty stream: no memory, nothing left to read or write. A write on
    // it grows it onto the heap.
    CDR() = default;
    ~CDR();
    CDR(const CDR &) = delete;
    CDR &operator=(const CDR &) = delete;

    // Writes go to array (owned by the caller, not copied). The usable area
    // starts at the first 16-byte boundary inside it, so alignment measured
    // on addresses equals alignment measured from that start.
    void attach_buffer(void *array, uint32_t size);

    // Reads an encapsulation where it lies: the first byte is the byte order
    // (1 little-endian, anything else the other order), the values follow.
    // length must be at least 1. The stream never writes to bytes.
    void open_encapsulation(const void *bytes, uint32_t length);

    // Writes in the machine's byte order, aligned to the value's width.
    // 1 on success, 0 when the stream could not be enlarged.
    // Inline: a record of a long sequence costs one of these per value.
    int put_byte(uint8_t value) { return put_aligned(&value, 1); }
    int put_short(uint16_t value) { return put_aligned(&value, 2); }
    int put_long(uint32_t value) { return put_aligned(&value, 4); }
    int put_longlong(const void *eight_bytes) { return put_aligned(eight_bytes, 8); }
    int put_longdouble(const void *sixteen_bytes) { return put_aligned(sixteen_bytes, 16); }

    // Room for n values of width bytes (1, 2, 4, 8 or 16), aligned as
    // width, grown in the steps that n single writes would take: where the
    // first value goes, the caller then writing all n in the machine's byte
    // order. Null when the stream could not be enlarged (stream unchanged).
    unsigned char *put_run(uint32_t width, uint32_t n);

    // Reads into dest (any address), byte-reversed when swap is set.
    // 1 on success; 0 when the value and its padding don't fit in
    // space_left, with the stream unchanged.
    int get_byte(void *dest) { return get_aligned(dest, 1); }
    int get_short(void *dest) { return get_aligned(dest, 2); }
    int get_long(void *dest) { return get_aligned(dest, 4); }
    int get_longlong(void *dest) { return get_aligned(dest, 8); }
    int get_longdouble(void *dest) { return get_aligned(dest, 16); }

    // n bytes with no alignment and no byte-order change; the same result as
    // n single-byte operations, in one copy. Reads fail with the stream
    // unchanged when n exceeds space_left.
    int put_bytes(const void *bytes, uint32_t n);
    int get_bytes(void *dest, uint32_t n);

    // Reads an unsigned long count and moves over that many bytes, which the
    // caller reads where they lie: *bytes points at them while the stream's
    // memory lives. 0 when the read fails or the count exceeds what is left
    // (the count stays consumed, nothing else moves).
    int get_counted(unsigned char **bytes, uint32_t *count);
    // The same, for bytes the caller does not look at.
    int skip_counted();

    // Reads length bytes at at where they lie, with no byte-order byte of
    // their own (unlike open_encapsulation): a second reader over part of a
    // stream. swap and origin stay as they are.
    void read_in_place(const unsigned char *at, uint32_t length);

    // Moves the stream to a larger heap block, keeping the bytes written so
    // far, their offsets from base and swap. size 0 asks for the next step
    // (capacity + 4096 below 4096, else double); a size not above capacity
    // changes nothing. 1 on success, 0 when no memory (stream unchanged).
    int grow(uint32_t size);

    // Bytes from base to cursor in a writable stream.
    uint32_t used() const { return base != nullptr ? static_cast<uint32_t>(cursor - base) : 0; }
    // Starts the message again: nothing written, whole capacity free.
    void rewind() {
        cursor = base;
        space_left = capacity;
        allow_value_memory(capacity);
    }

    // Value memory for the values read from the message or encapsulation
    // the stream now holds, length bytes long (value_memory_allowance).
    // Whatever points the stream at new bytes sets it again.
    void allow_value_memory(uint64_t length) { value_allowance = value_memory_allowance(length); }
    // Takes bytes of that allowance for a value block: 1, or 0 (nothing
    // taken) when less is left.
    int take_value_memory(uint64_t bytes) {
        if (bytes > value_allowance) return 0;
        value_allowance -= bytes;
        return 1;
    }

    // The fields are open for reading. Only the stream and the message
    // code, which points it at a message it has received, move cursor and
    // space_left.
    unsigned char *cursor = nullptr;      // next byte to write or read
    uint32_t space_left = 0;              // bytes between cursor and the end
    unsigned char *allocation = nullptr;  // block behind the stream
    uint32_t owns_allocation = 0;         // nonzero: released by the stream
    unsigned char *base = nullptr;        // start of the usable area (16-aligned)
    uint32_t capacity = 0;                // bytes usable from base
    uint32_t swap = 0;                    // nonzero: input of the other order
    // Lowest address a TypeCode indirection read from this stream may point
    // at: base of a written stream, the first byte of an encapsulation.
    const unsigned char *origin = nullptr;
    // What is left of the value memory allowance.
    uint64_t value_allowance = limits::value_memory_floor;

private:
    static uint32_t padding_for(const unsigned char *at, uint32_t width) {
        auto address = reinterpret_cast<uintptr_t>(at);
        return static_cast<uint32_t>((width - (address & (width - 1))) & (width - 1));
    }
    static void copy_reversed(void *dest, const unsigned char *src, uint32_t width) {
        unsigned char tmp[16];
        for (uint32_t i = 0; i < width; ++i) tmp[i] = src[width - 1 - i];
        std::memcpy(dest, tmp, width);
    }
    int put_aligned(const void *value, uint32_t width) {
        uint32_t pad = padding_for(cursor, width);
        uint32_t need = pad + width;
        // base is 16-aligned in a grown block, so the padding stays the same.
        if (need > space_left && !grow(0)) return 0;
        space_left -= need;
        // Padding is written too: no byte of an earlier message leaves again.
        if (pad != 0) std::memset(cursor, 0, pad);
        std::memcpy(cursor + pad, value, width);
        cursor += need;
        return 1;
    }
    int get_aligned(void *dest, uint32_t width) {
        uint32_t pad = padding_for(cursor, width);
        uint32_t need = pad + width;
        if (need > space_left) return 0;
        space_left -= need;
        if (swap != 0 && width > 1)
            copy_reversed(dest, cursor + pad, width);
        else
            std::memcpy(dest, cursor + pad, width);
        cursor += need;
        return 1;
    }
};

// Reads a counted string into a new block (std::malloc), the count's bytes
// followed by a terminator of its own. Null when the read fails (as
// get_counted) or no memory is left.
char *get_counted_text(CDR &in);

#endif
