// The byte notation both ways: the input as script text, however malformed,
// into bytes; and the input as bytes into text and back, which must give the
// same bytes.
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/fuzz_common.h"
#include "script/asciify.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::silent_host();
    std::string text(reinterpret_cast<const char *>(data), size);
    size_t count = 0;
    std::free(un_asciify(text.c_str(), &count));

    char *notation = asciify(data, static_cast<long>(size));
    unsigned char *back = un_asciify(notation, &count);
    if (count != size || (size > 0 && std::memcmp(back, data, size) != 0)) __builtin_trap();
    std::free(back);
    std::free(notation);
    return 0;
}
