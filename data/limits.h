// Limits of the data layer against hostile input. Replies and IOR texts come
// from outside, and a TypeCode inside them can be deep, self-referring
// through indirections, or claim sizes that no message could back.
#ifndef ORBELLE_DATA_LIMITS_H
#define ORBELLE_DATA_LIMITS_H

#include <cstdint>

#include "data/environment.h"

// TypeCodes nested inside each other, indirections counted as a level. IDL
// types seldom pass ten levels; 64 keeps the parser's recursion far from the
// stack's end.
constexpr uint32_t max_typecode_depth = 64;
// TypeCodes read while answering one size question. Indirections can make a
// small encapsulation describe an exponentially large type; real types are
// parsed in a few thousand steps.
constexpr uint32_t max_typecode_steps = 50000;
// Values nested inside each other while one value is walked (members,
// elements, anys holding anys). Bounds the recursion of encoder, decoder and
// freeValue over a value whose type came off the wire.
constexpr uint32_t max_value_depth = 100;
// Largest value size a TypeCode may describe. Sizes are unsigned 32-bit
// words in the engine's interfaces; staying below 2^31 keeps sums and
// alignment from wrapping.
constexpr uint64_t max_value_size = 0x7FFFFFFF;
// A decoded value may take more memory than wire bytes (pointers, words for
// booleans, the unused alternatives of a union). A block is refused when it
// exceeds both this floor and value_memory_ratio times the bytes left in the
// message, so that a short message cannot claim gigabytes while any value
// that really fits is still read.
constexpr uint64_t value_memory_floor = 16u << 20;
constexpr uint64_t value_memory_ratio = 16;

inline bool value_block_allowed(uint64_t bytes, uint32_t stream_left) {
    return bytes <= value_memory_floor || bytes / value_memory_ratio <= stream_left;
}

// Counts the levels of value walks in progress. ok() is false (and env holds
// BAD_TYPECODE) when one more level would pass max_value_depth.
class ValueNesting {
public:
    explicit ValueNesting(Environment &env);
    ~ValueNesting();
    ValueNesting(const ValueNesting &) = delete;
    ValueNesting &operator=(const ValueNesting &) = delete;
    bool ok() const { return ok_; }

private:
    bool ok_;
};

#endif
