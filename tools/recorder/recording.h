// What a client did, read from its traffic: each Request matched with its
// Reply by connection and request id, both bodies decoded with the
// descriptions, and the interface of every object key found (from the
// reply that handed the reference out, a naming service's resolve, the
// operations called on it, or the user's word). Calls go to a writer in the
// order they were sent, once answered and once the calls held behind them
// (limits::max_recorded_calls_held) had their chance to send a returned
// value back: memory follows the open requests and that window, not the
// capture.
#ifndef ORBELLE_RECORDER_RECORDING_H
#define ORBELLE_RECORDER_RECORDING_H

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/recorder/body_decoder.h"
#include "tools/recorder/capture.h"
#include "tools/recorder/giop_framer.h"
#include "tools/recorder/giop_headers.h"
#include "tools/recorder/tcp_reassembly.h"

namespace recorder {

struct RecordOptions {
    std::string dir = ".";                       // holds idl/
    std::vector<std::string> servers;            // "HOST:PORT"; empty: every server
    std::string client;                          // a client's address; empty: every client
    std::map<std::string, std::string> objects;  // object key (notation) -> repository id
};

// Where an object's reference came from.
enum class Origin { Address, Reply, Naming };

struct RecordedObject {
    std::string key;  // the object key's bytes
    Endpoint server;
    bool server_known = false;  // server is where requests for it went
    std::string repoid;         // empty until known
    bool given = false;         // the user named the interface (--object)
    Origin origin = Origin::Address;
    size_t from_call = 0;     // Origin::Reply: the call whose reply held it
    std::string from_value;   //   and the value's flat name
    std::string naming_name;  // Origin::Naming: the one name component
    std::string naming_ior;   //   and the naming service's reference
    std::string name;         // in the script, given when it is first needed
    bool saved = false;       // Origin::Reply: saved and bound after its call
};

struct RecordedCall {
    size_t index = 0;   // 0, 1, ... in the order the requests were sent
    size_t object = 0;  // index into Recording::objects
    std::string operation;
    uint64_t connection = 0;
    uint32_t request_id = 0;
    bool response_expected = true;
    uint8_t minor = 0;
    int64_t sent_us = 0;
    int64_t replied_us = 0;
    bool replied = false;
    uint32_t reply_status = 0;
    std::string exception_id;
    std::vector<FlatValue> ins;
    std::vector<FlatValue> outs;
    // Why the call cannot be written as commands, with its raw body; empty
    // when it can.
    std::string problem;
    std::string raw_body;
    // How each in value is written: its text, or ${VAR} of a value or
    // reference that an earlier reply gave.
    std::vector<std::string> in_words;
    // Reply values a later request sends back: flat name and variable.
    std::vector<std::pair<std::string, std::string>> saves;
    // Objects whose reference this reply gave, saved and bound after it.
    std::vector<size_t> binds_after;
    bool complete = false;  // answered, one-way, or no answer is coming
};

class Recording;

// Receives the calls in the order they were sent.
class CallWriter {
public:
    virtual ~CallWriter() = default;
    virtual void write_call(const Recording &rec, const RecordedCall &call) = 0;
};

struct LeftOut {
    uint64_t naming = 0;   // naming service calls (the binds resolve)
    uint64_t probes = 0;   // _is_a, _non_existent
    uint64_t locates = 0;  // LocateRequests
    uint64_t cancels = 0;
    uint64_t forwarded = 0;      // requests answered with a forward (sent again)
    uint64_t unanswered = 0;     // two-way requests whose reply the capture lacks
    uint64_t other_servers = 0;  // messages filtered out
};

class Recording : private StreamSink {
public:
    Recording(RecordOptions options, CallWriter &writer);
    ~Recording() override;
    // Reads one capture; false with error set when it cannot be read.
    bool read(const std::string &path, std::string &error);
    // Ends the connections still open and writes the calls held.
    void finish();

    std::vector<RecordedObject> objects;
    uint64_t calls_recorded = 0;
    LeftOut left_out;
    CaptureCounts capture_counts;
    FramerCounts framer_counts;
    uint64_t connections = 0;
    uint64_t bytes_lost = 0;
    int64_t first_us = 0;
    int64_t last_us = 0;
    std::vector<std::string> notes;  // holes and other events worth a comment

private:
    struct Conn;
    void on_data(const Connection &c, int dir, const uint8_t *bytes, size_t n,
                 int64_t time_us) override;
    void on_gap(const Connection &c, int dir, uint64_t lost, int64_t time_us) override;
    void on_close(const Connection &c) override;
    void on_message(Conn &conn, int dir, GiopMessage &&m);
    void on_request(Conn &conn, const Endpoint &server, const GiopMessage &m, const GiopHeader &h);
    void on_reply(Conn &conn, const GiopMessage &m, const GiopHeader &h);
    bool wanted(const Endpoint &client, const Endpoint &server) const;
    size_t object_for(const Endpoint &server, const std::string &key, bool server_known);
    // The interface for a key first seen with operation: where the
    // operation is defined, among the descriptions in dir/idl.
    std::string interface_of_operation(const std::string &operation) const;
    void learn_references(RecordedCall &call);
    // The words of a request's in values, with ${VAR} for what an earlier
    // reply gave while its call is still held.
    void correlate(RecordedCall &call);
    // A held call by its index; null once written.
    RecordedCall *held(size_t index);
    // Writes the calls at the front that are complete (all of them when
    // all is set), keeping the window's worth behind.
    void flush(bool all);
    void name_object(RecordedObject &o);

    RecordOptions options_;
    Descriptions descriptions_;
    Reassembler reassembler_;
    std::map<uint64_t, std::unique_ptr<Conn>> conns_;
    // Operation name -> the interfaces of dir/idl that hold it.
    std::multimap<std::string, std::string> operations_;
    std::map<std::string, size_t> object_by_key_;  // port + key
    CallWriter &writer_;
    std::deque<RecordedCall> held_;  // sent, not yet written
    size_t first_held_ = 0;          // index of held_.front()
    // Reply values that may be ids, while their call is held: text -> call
    // index and flat name.
    std::unordered_map<std::string, std::pair<size_t, std::string>> seen_;
    std::map<std::string, int> names_used_;
};

}  // namespace recorder

#endif
