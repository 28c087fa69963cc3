// The library's limits against hostile or broken input, in one place. Replies,
// IOR texts and interface descriptions come from outside: a limit turns an
// input that would take unbounded stack, time or memory into the failure the
// library already gives for the nearest case. Each stands well above what any
// real server or description needs. (C++ only; a host needs none of them.)
#ifndef ORBELLE_LIMITS_H
#define ORBELLE_LIMITS_H

#include <cstddef>
#include <cstdint>

namespace limits {

// -- TypeCodes and values (BAD_TYPECODE or MARSHAL beyond) --

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
// words in the library's interfaces; staying below 2^31 keeps sums and
// alignment from wrapping.
constexpr uint64_t max_value_size = 0x7FFFFFFF;
// A decoded value may take more memory than wire bytes (pointers, words for
// booleans, the unused alternatives of a union). A block is refused when it
// exceeds both this floor and value_memory_ratio times the bytes left in the
// message, so that a short message cannot claim gigabytes while any value
// that really fits is still read.
constexpr uint64_t value_memory_floor = 16u << 20;
constexpr uint64_t value_memory_ratio = 16;

// -- Messages (COMM_FAILURE beyond) --

// The largest GIOP body accepted at all: far above what any server sends to
// this client (omniORB refuses messages over 2 MiB by default), and low
// enough that the size plus the header never overflows 32 bits.
constexpr uint32_t max_body_size = 256u << 20;

// -- Calls (COMM_FAILURE beyond) --

// Times one call is built and sent again after its first Request: for a
// location forward, a CloseConnection, or an idle connection found closed.
// A server that forwards to itself or closes every connection would
// otherwise keep a virtual user sending for ever; real forwarding chains are
// one or two links long.
constexpr uint32_t max_call_restarts = 32;

// -- Interface descriptions ("invalid csv record" beyond) --

// Longest token a description may hold. The format's token buffer holds 255
// bytes; a longer token is refused rather than cut, since a cut name would
// silently name something else.
constexpr size_t max_csv_token_length = 255;
// Deepest nesting of type records. Parsing, walking and releasing a type
// each recurse once per level, so the limit keeps the stack bounded; no type
// of a real interface comes anywhere near it.
constexpr int max_csv_type_depth = 200;
// Most elements that nested arrays may multiply to along one path. Every
// element becomes at least one record for the script, so beyond this a
// description asks for more memory than any script could fill by hand.
constexpr uint64_t max_csv_array_elements = uint64_t{1} << 20;

// -- List files (the search ends beyond) --

// The list file format allows lines of this many characters; a longer line
// ends the search as the end of the file does.
constexpr size_t max_list_line = 999;

// -- Scripts of orbelle-run (the runner's checks; nothing of the library) --

// Mistakes listed for one run before the list stops. A script that is wrong
// in more places was most likely written for another interface; the first
// fifty show that, and a screenful more would only bury them.
constexpr size_t max_script_mistakes = 50;
// Names a misspelled name is compared with when the nearest are looked for.
// Lists of long sequences hold millions of names that differ only in their
// indexes; the first ones already hold every spelling a script can mean,
// and fifty mistakes against this many names cost well under a second.
constexpr size_t max_suggestion_candidates = 5000;
// Longest pattern of "check NAME ~ REGEX", the most its counted
// repetitions ({n}, {n,m}) may multiply to, and the longest text it is
// matched against. A pattern is run as an automaton whose states it counts
// (repetitions copy theirs), in time of states times text, so that no
// pattern can make a check take more than a few milliseconds.
constexpr size_t max_check_pattern = 1000;
constexpr size_t max_check_repetition = 1000;
constexpr size_t max_check_subject = 4096;

// -- Captures read by orbelle-record (the bytes are reported lost beyond) --

// Bytes of one direction of a TCP connection held while the bytes before
// them are missing. A capture reorders a few segments at most; a hole that
// this much data has passed is not going to fill, and is reported.
constexpr size_t max_capture_held_bytes = 4u << 20;
// GIOP 1.2 messages of one direction whose fragments are still coming.
// Clients interleave the fragments of a few requests at most.
constexpr size_t max_capture_fragmented = 64;
// Answered calls held before they are written, so that a value a reply gave
// can still be saved when a later request sends it back. Clients use a
// returned id or reference within a few calls; beyond this many a reused
// value is written as it is, and references are bound by their address.
constexpr size_t max_recorded_calls_held = 4096;

}  // namespace limits

inline bool value_block_allowed(uint64_t bytes, uint32_t stream_left) {
    return bytes <= limits::value_memory_floor || bytes / limits::value_memory_ratio <= stream_left;
}

// Value memory that all the values read from one message of this many bytes
// may take together: the floor, or the ratio times the message. Without it,
// a sequence of anys could repeat a small claim until the claims add up to
// gigabytes.
inline uint64_t value_memory_allowance(uint64_t message_length) {
    uint64_t by_ratio = limits::value_memory_ratio * message_length;
    return by_ratio > limits::value_memory_floor ? by_ratio : limits::value_memory_floor;
}

#endif
