// A Reply read into a script's parameters: an operation of the demo bank's
// descriptions, its list made by the door with every sequence length set,
// and a two-way call whose Reply body is the input. Values land in the
// script's texts: strings and octets in byte notation, references as handles.
//   byte 0  the operation (an index into every operation described)
//   byte 1  bits 0-1 the sequence lengths (0-3); bit 2 a big-endian Reply;
//           bits 3-4 the reply status, or 3: the rest is the whole stream
//           the server sends, headers and all; bit 5 tracing off; bit 6 an
//           opaque record "*" at the end of the list takes what is left
//   rest    the Reply body
#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    set_debug_level((data[1] & 0x20) != 0 ? 0 : 5);
    const fuzz::Operation &op = fuzz::operation(data[0]);
    uint32_t status = (data[1] >> 3) & 3;
    {
        fuzz::ScriptCall call(op, data[1] & 3, IIOP_TWOWAY);
        if ((data[1] & 0x40) != 0) call.add_opaque("");
        void *obj = fuzz::bind_to(fuzz::kServerPort, op.repo_id.c_str());
        call.target.objref = obj;
        fuzz::wire().answers[fuzz::kServerPort] = {
            {0, status, std::string(reinterpret_cast<const char *>(data) + 2, size - 2),
             (data[1] & 4) == 0, status == 3}};
        fuzz::door(IIOP_INVOKE, call.req);
        fuzz::release(obj);
    }
    fuzz::wire_reset();
    return 0;
}
