// Writes a recording as a script that orbelle-run runs as it stands: one
// bind per object before its first call, params/set/invoke per call, and
// values the client got from a reply and sent back later saved and used as
// ${VAR}. Calls come in as the recording lets them go; the header, which
// counts what the whole capture held, is written last, before the body.
#ifndef ORBELLE_RECORDER_SCRIPT_WRITER_H
#define ORBELLE_RECORDER_SCRIPT_WRITER_H

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "tools/recorder/recording.h"

namespace recorder {

struct WriteOptions {
    std::string source;       // the captures' names, for the header
    bool checks = false;      // a check for every recorded reply value
    bool think = false;       // the recorded pauses as think lines
    int64_t pause_ms = 1000;  // a pause this long starts a new transaction
    // A data file for the in values a user varies per run: each string and
    // number of an operation's in values becomes a column, the recorded
    // value its row; the script reads it as ${recorded.COLUMN}.
    std::string data_file;
};

struct WriteCounts {
    uint64_t calls = 0;
    uint64_t undecoded = 0;  // kept as comments
    uint64_t binds = 0;
    uint64_t saved = 0;  // values and references used again as ${VAR}
};

class ScriptWriter : public CallWriter {
public:
    // The commands go to body as the calls come.
    ScriptWriter(WriteOptions options, std::ostream &body)
        : options_(std::move(options)), body_(body) {}
    void write_call(const Recording &rec, const RecordedCall &call) override;
    // Closes the last transaction.
    void finish();
    // The header comment: the captures, their time, what was left out;
    // the data line when there is a data file.
    void header(const Recording &rec, std::ostream &out) const;
    // The data file's text: the columns and the recorded row.
    std::string data_text() const;
    const WriteCounts &counts() const { return counts_; }

private:
    void bind_line(const Recording &rec, size_t object);
    // The word for an in value: its data column when it goes to the data file.
    std::string in_word(const RecordedCall &call, size_t k);

    WriteOptions options_;
    std::ostream &body_;
    WriteCounts counts_;
    // The interface each object was last bound with; empty while unbound.
    std::vector<std::string> bound_;
    int64_t last_us_ = 0;
    int step_ = 0;
    bool open_ = false;
    // Data columns by operation and flat name, and their recorded values.
    std::map<std::pair<std::string, std::string>, std::string> column_of_;
    std::vector<std::pair<std::string, std::string>> columns_;
    std::map<std::string, int> column_names_;
};

}  // namespace recorder

#endif
