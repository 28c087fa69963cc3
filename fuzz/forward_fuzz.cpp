// A location forward and the Request sent again: the server answers a
// script's two-way call with LOCATION_FORWARD and a reference from the
// input; a second scripted server (port 7002) answers the Request built anew
// with the rest of the input. A forward back to the first server finds it
// gone, as its answers are used up.
//   byte 0  the operation (an index into every operation described)
//   byte 1  bits 0-1 the sequence lengths; bit 2 big-endian Replies;
//           bits 3-4 the second reply's status
//   rest    the forward's body and the second Reply's body (fuzz::split)
#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    const fuzz::Operation &op = fuzz::operation(data[0]);
    bool little = (data[1] & 4) == 0;
    std::string forward, second;
    fuzz::split(data + 2, size - 2, &forward, &second);
    {
        fuzz::ScriptCall call(op, data[1] & 3, IIOP_TWOWAY);
        void *obj = fuzz::bind_to(fuzz::kServerPort, op.repo_id.c_str());
        call.target.objref = obj;
        fuzz::wire().answers[fuzz::kServerPort] = {{0, 3, forward, little}};
        fuzz::wire().answers[fuzz::kForwardPort] = {
            {0, static_cast<uint32_t>((data[1] >> 3) & 3), second, little}};
        fuzz::door(IIOP_INVOKE, call.req);
        fuzz::release(obj);
    }
    fuzz::wire_reset();
    return 0;
}
