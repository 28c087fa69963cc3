// Treats arbitrary bytes as a TypeCode's encapsulation (and as a TypeCode in
// a stream) and asks every question the engine answers about it.
#include <cstdint>

#include "data/stdtypes.h"
#include "data/typecode.h"
#include "fuzz/fuzz_common.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::typecodes_ready();
    if (size < 2 || size > (1u << 20)) return 0;
    auto length = static_cast<uint32_t>(size - 1);
    fuzz::AlignedInput input(data + 1, length, data[0] & 1);
    unsigned char *at = input.at;
    Environment env;

    // The bytes as one TypeCode in a stream.
    CDR &s = input.stream;
    uint32_t align = 0;
    TypeCode target;
    TypeCode::nestedSize((data[0] & 2) ? &target : nullptr, s, &align, env);
    s.cursor = at;
    s.space_left = length;
    TypeCode::skipTypeCode(s);

    // The bytes as the encapsulation of a TypeCode of the kind the first
    // byte names.
    TypeCode tc(static_cast<int32_t>(data[0] % 28), length, at, 0);
    tc.valueSize(env);
    tc.repositoryId(env);
    uint32_t count = tc.paramCount(env);
    if (count > 64) count = 64;
    for (uint32_t i = 0; i < count + 1; ++i) {
        tc.paramLong(i, env);
        TypeCode::release(tc.paramType(i, env));
    }
    return 0;
}
