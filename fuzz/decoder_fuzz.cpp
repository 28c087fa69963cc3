// Decodes arbitrary bytes as values of a set of TypeCodes, or of a TypeCode
// read from the input itself; whatever decodes is encoded again and
// released, so leaks and bad frees show too.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "data/any.h"
#include "data/decoder.h"
#include "data/encoder.h"
#include "data/stdtypes.h"
#include "fuzz/fuzz_common.h"
#include "orbelle/limits.h"

namespace {

// Largest value block one input may ask for. The library accepts up to its
// value memory floor however short the message, which is right for a server
// but makes a fuzz input that declares array<long, 4000000> cost a
// millisecond of page faults for no new coverage.
constexpr uint32_t max_fuzz_value = 64u << 10;

// Little-endian words.
std::vector<unsigned char> words(std::initializer_list<uint32_t> w) {
    std::vector<unsigned char> out;
    for (uint32_t v : w)
        for (int i = 0; i < 4; ++i) out.push_back(static_cast<unsigned char>(v >> (8 * i)));
    return out;
}

struct Fixed {
    int32_t kind;
    std::vector<unsigned char> body;
};

const std::vector<Fixed> &fixed_types() {
    static const std::vector<Fixed> types = {
        // sequence<long>, sequence<string>, sequence<any>, sequence<sequence<octet>>
        {tk_sequence, words({1, tk_long, 0})},
        {tk_sequence, words({1, tk_string, 0, 0})},
        {tk_sequence, words({1, tk_any, 0})},
        {tk_sequence, words({1, tk_sequence, 12, 1, tk_octet, 0, 0})},
        // struct { long; string; boolean; double }: id "", name "", 4 members named ""
        {tk_struct, words({1, 1, 0, 1, 0, 4, 1, 0, tk_long, 1, 0, tk_string, 0, 1, 0, tk_boolean, 1,
                           0, tk_double})},
        // union switch(long) { 1: string; 2: any; default(0): long }
        {tk_union, words({1,         1, 0, 1, 0, tk_long, 2, 3, 1, 1,      0,
                          tk_string, 0, 2, 1, 0, tk_any,  0, 1, 0, tk_long})},
        // array<wstring, 2>
        {tk_array, words({1, tk_wstring, 0, 2})},
    };
    return types;
}

void decode_and_release(TypeCode *tc, CDR &in) {
    Environment env;
    uint32_t size = tc->valueSize(env);
    if (env.has_exception() || size > max_fuzz_value || !value_block_allowed(size, in.space_left))
        return;
    void *value = std::calloc(size != 0 ? size : 1, 1);
    if (decoder(tc, value, nullptr, &in, env)) {
        CDR out;
        encoder(tc, value, nullptr, &out, env);
    }
    Environment local;
    freeValue(tc, value, nullptr, nullptr, local);
    std::free(value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::typecodes_ready();
    if (size < 2 || size > (1u << 20)) return 0;
    fuzz::AlignedInput input(data + 2, size - 2, data[0] & 1);
    CDR &in = input.stream;
    if ((data[0] & 2) == 0) {
        const Fixed &f = fixed_types()[data[1] % fixed_types().size()];
        TypeCode tc(f.kind, static_cast<uint32_t>(f.body.size()), f.body.data(), 0);
        decode_and_release(&tc, in);
    } else {
        Environment env;
        TypeCode *tc = nullptr;
        if (decoder(tc_TypeCode(), &tc, nullptr, &in, env)) {
            decode_and_release(tc, in);
            TypeCode::release(tc);
        }
    }
    return 0;
}
