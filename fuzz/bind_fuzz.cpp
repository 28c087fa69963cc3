// Bind and release from arbitrary bytes: the input up to its first newline is
// the modus, the rest the record's ior. Slashes in the modus become
// underscores, so FILE alternatives can only read plain files of the working
// directory, never devices elsewhere; naming services are never contacted.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_common.h"
#include "gateway/naming.h"

namespace {
// The naming service's resolve never goes to the network: it fails as a
// request to an unreachable server would.
int32_t unreachable(iiop_record *) { return IIOP_STATUS_SYSTEM_EXCEPTION; }
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::silent_host();
    set_naming_door(unreachable);
    std::string input(reinterpret_cast<const char *>(data), size);
    size_t newline = input.find('\n');
    std::string modus = input.substr(0, newline);
    std::string ior = newline == std::string::npos ? std::string() : input.substr(newline + 1);
    std::replace(modus.begin(), modus.end(), '/', '_');

    fuzz::release(fuzz::bind("IDL:A:1.0", "one", modus.c_str(), ior.c_str()));
    return 0;
}
