// Writes a recording as a script that orbelle-run runs as it stands: one
// bind per object, params/set/invoke per call, and values the client got
// from a reply and sent back later saved and used as ${VAR}.
#ifndef ORBELLE_RECORDER_SCRIPT_WRITER_H
#define ORBELLE_RECORDER_SCRIPT_WRITER_H

#include <cstdint>
#include <ostream>
#include <string>

#include "tools/recorder/recording.h"

namespace recorder {

struct WriteOptions {
    std::string source;       // the captures' names, for the header
    bool checks = false;      // a check for every recorded reply value
    bool think = false;       // the recorded pauses as think lines
    int64_t pause_ms = 1000;  // a pause this long starts a new transaction
};

struct WriteCounts {
    uint64_t calls = 0;
    uint64_t undecoded = 0;  // kept as comments
    uint64_t binds = 0;
    uint64_t saved = 0;  // values and references used again as ${VAR}
};

WriteCounts write_script(const Recording &rec, const WriteOptions &options, std::ostream &out);

// A value as one word of a script line: quoted when it holds blanks,
// quotes, backslashes or a '#', or is empty.
std::string script_word(const std::string &text);

}  // namespace recorder

#endif
