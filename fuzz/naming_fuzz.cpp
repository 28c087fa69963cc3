// The naming service's answer to the resolve a bind sends: the bind names a
// naming service on the scripted network, whose Reply body is the input.
// What the bind makes of it (a handle, or the next alternative) is released.
//   byte 0  bit 0 a big-endian Reply; bits 1-2 the reply status
//   rest    the Reply body
#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    fuzz::wire().answers[fuzz::kNamingPort] = {
        {0, static_cast<uint32_t>((data[0] >> 1) & 3),
         std::string(reinterpret_cast<const char *>(data) + 1, size - 1), (data[0] & 1) == 0}};
    fuzz::release(fuzz::bind("IDL:Banking/Account:1.0", "savings/42",
                             "NameService(iiop:1.0//127.0.0.1:7003/NameService) | IOR", ""));
    fuzz::wire_reset();
    return 0;
}
