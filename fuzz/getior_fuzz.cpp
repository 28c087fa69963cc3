// Binding alternatives and IOR list files from arbitrary bytes: the input is
// both the text of one alternative and the content of the list file that a
// FILE alternative reads.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "fuzz/fuzz_common.h"
#include "gateway/getior.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::silent_host();
    char list[] = "/tmp/orbelle-fuzz-list-XXXXXX";
    int fd = mkstemp(list);
    if (fd < 0) return 0;
    bool written = write(fd, data, size) == static_cast<ssize_t>(size);
    close(fd);

    char repository_id[] = "IDL:A:1.0";
    char ior[] = "IOR:";
    iiop_record record{};
    record.op = 2;
    record.u.bind.repository_id = repository_id;
    record.u.bind.ior = ior;
    std::string alternative(reinterpret_cast<const char *>(data), size);
    get_ior(&record, alternative.c_str());
    if (written) get_ior(&record, (std::string("FILE(") + list + ")").c_str());
    unlink(list);
    return 0;
}
