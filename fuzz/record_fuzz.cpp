// Captures for orbelle-record: any bytes as a pcap or pcapng file, through
// the capture reader, TCP reassembly, the GIOP framer, header and body
// decoding with the demo's descriptions, and the script writer.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "tools/recorder/recording.h"
#include "tools/recorder/script_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const int fd = memfd_create("capture", 0);
    if (fd < 0) return 0;
    if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) return 0;
    recorder::RecordOptions options;
    options.dir = ORBELLE_SOURCE_DIR "/demo";
    std::ostringstream body, header;
    recorder::WriteOptions write;
    write.checks = true;
    recorder::ScriptWriter writer(write, body);
    recorder::Recording rec(options, writer);
    std::string error;
    if (rec.read("/proc/self/fd/" + std::to_string(fd), error)) {
        rec.finish();
        writer.finish();
        writer.header(rec, header);
    }
    return 0;
}
