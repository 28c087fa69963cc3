// Set-up shared by the fuzz targets.
#ifndef ORBELLE_FUZZ_COMMON_H
#define ORBELLE_FUZZ_COMMON_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "data/cdr.h"
#include "data/stdtypes.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace fuzz {

// Once per process: the standard TypeCodes and the value table.
inline void typecodes_ready() {
    static const bool ready = (inittypecodes(), fill_value_table(), true);
    (void)ready;
}

// Once per process: every trace line formatted but printed nowhere, and no
// agent library found, so the agent kinds fail without loading anything.
inline void silent_host() {
    static const bool ready =
        (unsetenv("ZANTH_HOME"), set_debug_level(5),
         set_host_slots({std::malloc, std::realloc, std::free, [](const char *) {}}), true);
    (void)ready;
}

// Bytes copied to a 16-aligned block, as a message body lies, and opened
// as a stream whose alignment counts from their first byte.
struct AlignedInput {
    std::vector<unsigned char> block;
    unsigned char *at;
    CDR stream;
    AlignedInput(const uint8_t *data, size_t size, bool swap) : block(size + 16) {
        at = block.data() + (16 - reinterpret_cast<uintptr_t>(block.data()) % 16) % 16;
        std::memcpy(at, data, size);
        stream.cursor = at;
        stream.origin = at;
        stream.space_left = static_cast<uint32_t>(size);
        stream.swap = swap ? 1 : 0;
    }
};

}  // namespace fuzz

#endif
