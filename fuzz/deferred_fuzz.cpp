// Replies for deferred requests waiting on the wait list: a script sends two
// deferred requests on one connection (with a time-out already expired, so
// nobody waits), and their Replies come in the other order, so waiting for
// the one hands the other's over to its parameters on the way, or the order
// matches. Then the other is asked for too.
//   bytes 0, 1  the two operations (indexes into every operation described)
//   byte 2      bits 0-1 the sequence lengths; bit 2 big-endian Replies;
//               bits 3-4 and 5-6 the reply statuses of the first and second
//               request; bit 7 asks for the second request's reply first
//   rest        the bodies of the first and the second Reply (fuzz::split)
#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3) return 0;
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    const fuzz::Operation &first_op = fuzz::operation(data[0]);
    const fuzz::Operation &second_op = fuzz::operation(data[1]);
    uint8_t flags = data[2];
    bool little = (flags & 4) == 0;
    std::string first_body, second_body;
    fuzz::split(data + 3, size - 3, &first_body, &second_body);
    {
        fuzz::ScriptCall first(first_op, flags & 3, IIOP_DEFERRED);
        fuzz::ScriptCall second(second_op, flags & 3, IIOP_DEFERRED);
        void *obj = fuzz::bind_to(fuzz::kServerPort, first_op.repo_id.c_str());
        first.target.objref = obj;
        second.target.objref = obj;
        fuzz::wire().answers[fuzz::kServerPort] = {
            {1, static_cast<uint32_t>((flags >> 5) & 3), second_body, little},
            {0, static_cast<uint32_t>((flags >> 3) & 3), first_body, little}};
        first.req.request_id = static_cast<int32_t>(next_request_id);
        fuzz::door(IIOP_INVOKE, first.req, -1);  // sent, nobody waits
        second.req.request_id = static_cast<int32_t>(next_request_id);
        fuzz::door(IIOP_INVOKE, second.req, -1);
        fuzz::door(IIOP_GET_RESPONSE, first.req, 0);  // a poll
        iiop_req *order[2] = {&first.req, &second.req};
        if ((flags & 0x80) != 0) std::swap(order[0], order[1]);
        for (iiop_req *req : order) fuzz::door(IIOP_GET_RESPONSE, *req);
        fuzz::release(obj);
    }
    fuzz::wire_reset();
    return 0;
}
