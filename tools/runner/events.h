// The event stream: one JSON object per line for every call, check,
// transaction and iteration, for tools that aggregate runs.
#ifndef ORBELLE_RUNNER_EVENTS_H
#define ORBELLE_RUNNER_EVENTS_H

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace runner {

struct Event {
    int64_t t = 0;  // milliseconds since the epoch, when the event ended
    int vu = 1;
    int iter = 1;
    const char *kind = "call";  // call, check, transaction, iteration
    std::string name;           // as in the summary table
    std::string script;
    int line = 0;
    double ms = 0;
    // Under a rate: how long after it was due the iteration started
    // (iterations and transactions only); negative when not measured.
    double wait_ms = -1;
    bool ok = true;
    // On failure: the library's status and exception index (calls only)
    // and what went wrong.
    bool has_status = false;
    int status = 0, index = 0;
    std::string error;
};

// Milliseconds since the epoch, now.
int64_t epoch_ms();

// One line of JSON, without its line end. Text that is not UTF-8 has its
// bad bytes replaced by U+FFFD so that the line stays valid JSON.
std::string to_json(const Event &event);
// The same, appended to out.
void append_json(std::string &out, const Event &event);

class EventWriter {
public:
    EventWriter() = default;
    ~EventWriter();
    EventWriter(const EventWriter &) = delete;
    EventWriter &operator=(const EventWriter &) = delete;

    // Opens "-" (standard output, which from then on leads to standard
    // error for everything else), "fd:N" (a descriptor the parent opened) or
    // a file path, truncated. False with a message.
    bool open(const std::string &where, std::string &error);
    bool is_open() const { return stream_ != nullptr; }
    // Writes the event as one line and flushes it; a batched writer
    // flushes when its last flush is flush_every_ms old, when its buffer
    // is full, and at flush().
    void write(const Event &event);
    void flush();
    // A load run's users write batched: a system call every tenth of a
    // second (or 64 KiB) rather than per event or iteration, for a reader
    // that takes them in batches anyway. They flush before they wait.
    void set_batched(bool batched);
    static constexpr int64_t flush_every_ms = 100;

private:
    FILE *stream_ = nullptr;
    bool owned_ = false;
    bool batched_ = false;
    int64_t flushed_ms_ = 0;
    std::string line_;  // the line being written, its buffer kept
    static constexpr size_t buffer_bytes = 1 << 16;
    std::unique_ptr<char[]> buffer_;  // a batched stream's, freed after it
};

}  // namespace runner

#endif
