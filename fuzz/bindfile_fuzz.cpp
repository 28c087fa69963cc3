// A list file feeding a bind: the input is the file that FILE(list) reads
// (lines "repository id,reference text") and at the same time the directory
// of the agent stand-ins that the Visibroker alternatives load (lines "port
// repository-id instance-id reference-text"). A reference found for the
// naming alternative is asked to resolve, and the scripted naming service at
// port 7003 answers with a reference to port 7001. A bound handle makes one
// call, which the scripted server at port 7001 answers, and is released.
#include <fstream>

#include "fuzz/fuzz_script.h"

namespace {
// The agent stand-ins of the build tree, beside the fuzz target's folder.
void agents_ready() {
    static const bool ready = [] {
        std::string exe = std::filesystem::canonical("/proc/self/exe").string();
        std::string build = exe.substr(0, exe.rfind("/bin/"));
        setenv("ZANTH_HOME", (build + "/zanth").c_str(), 1);
        setenv("ZANTH_AGENT_DIRECTORY", (fuzz::workdir().path + "/list").c_str(), 1);
        return true;
    }();
    (void)ready;
}

std::string resolved_reply() {
    // The reference of a resolve: type id, one IIOP 1.0 profile to port 7001.
    static const char profile[] =
        "\x01\x01\x00\x00\x0a\x00\x00\x00"
        "127.0.0.1\x00\x59\x1b\x03\x00\x00\x00key";
    static const char head[] =
        "\x18\x00\x00\x00"
        "IDL:Banking/Account:1.0\x00\x01\x00\x00\x00\x00\x00\x00\x00";
    std::string r(head, sizeof head - 1);
    r += std::string(1, static_cast<char>(sizeof profile - 1)) + std::string(3, '\0');
    return r + std::string(profile, sizeof profile - 1);
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::wire_ready();
    agents_ready();
    fuzz::InWorkdir here;
    // Account::_get_balance
    const fuzz::Operation &balance = fuzz::operation(1);
    std::ofstream("list", std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char *>(data), static_cast<std::streamsize>(size));
    fuzz::wire().answers[fuzz::kNamingPort] = {{0, 0, resolved_reply()}};
    void *obj = fuzz::bind(balance.repo_id.c_str(), "one",
                           "FILE(list) | Visibroker(14001) | VisibrokerNameService(one)", nullptr);
    if (obj != nullptr) {
        fuzz::ScriptCall call(balance, 0, IIOP_TWOWAY);
        call.target.objref = obj;
        // A Money: 12.5, currency 2.
        fuzz::wire().answers[fuzz::kServerPort] = {
            {0, 0, std::string("\0\0\0\0\0\0\x29\x40\x02\0\0\0", 12)}};
        fuzz::door(IIOP_INVOKE, call.req);
    }
    fuzz::release(obj);
    fuzz::wire_reset();
    return 0;
}
