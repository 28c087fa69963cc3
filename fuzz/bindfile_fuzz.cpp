// A FILE(...) list file feeding a bind: the input is the list, whose line for
// the bind's repository id gives the reference text. A bound handle makes one
// call, which the scripted server at port 7001 answers, and is released.
#include <fstream>

#include "fuzz/fuzz_script.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::wire_ready();
    fuzz::InWorkdir here;
    // Account::_get_balance
    const fuzz::Operation &balance = fuzz::operation(1);
    std::ofstream("list", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    iiop_record r = hostkit::make_record(IIOP_BIND);
    r.u.bind.repository_id = const_cast<char *>(balance.repo_id.c_str());
    r.u.bind.instance_id = const_cast<char *>("one");
    r.u.bind.modus = const_cast<char *>("FILE(list)");
    int32_t status = _iiop_entry(&r);
    std::free(r.u.bind.bound_modus);
    std::free(r.status_text);
    if (status == IIOP_OK) {
        {
            fuzz::ScriptCall call(balance, 0, IIOP_TWOWAY);
            call.target.objref = r.u.bind.objref;
            // A Money: 12.5, currency 2.
            fuzz::wire().answers[fuzz::kServerPort] = {
                {0, 0, std::string("\0\0\0\0\0\0\x29\x40\x02\0\0\0", 12)}};
            fuzz::door(IIOP_INVOKE, call.req);
        }
        fuzz::release(r.u.bind.objref);
    }
    fuzz::wire_reset();
    return 0;
}
