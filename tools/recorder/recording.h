// What a client did, read from its traffic: each Request matched with its
// Reply by connection and request id, both bodies decoded with the
// descriptions, and the interface of every object key found (from the
// reply that handed the reference out, a naming service's resolve, the
// operations called on it, or the user's word).
#ifndef ORBELLE_RECORDER_RECORDING_H
#define ORBELLE_RECORDER_RECORDING_H

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
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
};

struct RecordedCall {
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
    explicit Recording(RecordOptions options);
    ~Recording() override;
    // Reads one capture; false with error set when it cannot be read.
    bool read(const std::string &path, std::string &error);
    // Ends the connections still open.
    void finish();

    std::vector<RecordedObject> objects;
    std::vector<RecordedCall> calls;
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
    void learn_references(size_t call_index);

    RecordOptions options_;
    Descriptions descriptions_;
    Reassembler reassembler_;
    std::map<uint64_t, std::unique_ptr<Conn>> conns_;
    // Operation name -> the interfaces of dir/idl that hold it.
    std::multimap<std::string, std::string> operations_;
    std::map<std::string, size_t> object_by_key_;  // port + key
};

}  // namespace recorder

#endif
