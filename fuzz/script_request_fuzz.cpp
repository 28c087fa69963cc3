// A script's texts into a Request: an operation of the demo bank's
// descriptions, its list made by the door with every sequence length set,
// and the input's lines as the texts of its in and inout records, in order
// (numbers, characters, enumerators, byte notation, reference texts, however
// malformed). The server answers with an empty Reply.
//   byte 0  the operation (an index into every operation described)
//   byte 1  bits 0-1 the sequence lengths; bit 2 the first line is the
//           Principal; bit 3 the last line goes out raw, as the text of an
//           opaque record "*"; bit 4 the door's other operations too;
//           bit 5 tracing off
//   rest    the texts, one a line
#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    set_debug_level((data[1] & 0x20) != 0 ? 0 : 5);
    std::istringstream lines(std::string(reinterpret_cast<const char *>(data) + 2, size - 2));
    std::string principal, line;
    if ((data[1] & 4) != 0) std::getline(lines, principal);
    {
        const fuzz::Operation &op = fuzz::operation(data[0]);
        fuzz::ScriptCall call(op, data[1] & 3, IIOP_TWOWAY);
        for (ScriptParm *p = call.req.parms; p != nullptr; p = p->next) {
            if ((p->flags & PARM_IN) == 0 || !std::getline(lines, line)) continue;
            std::free(p->strval);
            p->strval = strdup(line.c_str());
        }
        if ((data[1] & 8) != 0 && std::getline(lines, line)) call.add_opaque(line);
        if ((data[1] & 4) != 0) call.req.principal = &principal[0];
        void *obj = fuzz::bind_to(fuzz::kServerPort, op.repo_id.c_str());
        call.target.objref = obj;
        fuzz::wire().answers[fuzz::kServerPort] = {{0, 0, std::string()}};
        fuzz::door(IIOP_INVOKE, call.req);
        if ((data[1] & 0x10) != 0)
            for (int32_t other : {int32_t{IIOP_GET_EXCEPTION}, int32_t{IIOP_MAKE_IOR},
                                  int32_t{IIOP_TIMEOUT}, 0, 99})
                fuzz::door(other, call.req);
        fuzz::release(obj);
    }
    fuzz::wire_reset();
    return 0;
}
