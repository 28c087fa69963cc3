// A scripted GIOP server for wire tests. It listens on 127.0.0.1 on a free
// port and runs a list of steps in a thread of its own: accept, read whole
// GIOP messages (recording every byte), send bytes chosen by the test, pause,
// close. Canned messages are built with the writer below in either byte order.
#ifndef ORBELLE_TESTS_PEER_H
#define ORBELLE_TESTS_PEER_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace peer {

// Writes CDR values with alignment counted from the start of a GIOP message
// (the 12-byte header comes first) or of an encapsulation (origin 0).
class Writer {
public:
    explicit Writer(bool little = true, size_t origin = 12) : little_(little), origin_(origin) {}
    Writer &octet(uint8_t v) { return put(v, 1); }
    Writer &ushort(uint16_t v) { return put(v, 2); }
    Writer &ulong(uint32_t v) { return put(v, 4); }
    // Length with NUL, characters, NUL.
    Writer &string(const std::string &text) { return octets(text + '\0'); }
    Writer &octets(const std::string &bytes) {  // length, then bytes
        return ulong(static_cast<uint32_t>(bytes.size())).raw(bytes);
    }
    Writer &raw(const std::string &bytes) {  // bytes as they are, no length
        out_ += bytes;
        return *this;
    }
    Writer &align(size_t n);
    const std::string &bytes() const { return out_; }

private:
    Writer &put(uint64_t v, size_t width);
    bool little_;
    size_t origin_;
    std::string out_;
};

// A GIOP 1.x header for a body; size defaults to the body's length.
std::string message(uint8_t type, const std::string &body, bool little = true, uint8_t minor = 0);
std::string message_with_size(uint8_t type, uint32_t size, const std::string &body,
                              bool little = true);

// A Reply: empty service context, the id, the status, then what body writes.
std::string reply(uint32_t request_id, uint32_t status,
                  const std::function<void(Writer &)> &body = nullptr, bool little = true);
std::string system_exception_reply(uint32_t request_id, const std::string &id, uint32_t minor,
                                   uint32_t completed, bool little = true);
std::string close_connection(bool little = true);
std::string message_error(bool little = true);

// The fields of a GIOP 1.0 Request as a client wrote it (own byte order).
struct Request {
    bool valid = false;
    bool little = true;
    uint32_t size = 0;
    uint32_t contexts = 0;
    uint32_t request_id = 0;
    uint8_t response_expected = 0;
    std::string key;
    std::string operation;  // without its NUL
    std::string principal;
    size_t args_offset = 0;  // offset of the first argument in the message
};
Request parse_request(const std::string &msg);

// A Reply (own byte order) holding one long.
std::string long_reply(uint32_t request_id, uint32_t value);
// Steps' answers to the latest Request: a Reply of status whose body the
// writer fills, or one holding a long.
std::function<std::string(const Request &)> answer(std::function<void(Writer &)> body = nullptr,
                                                   uint32_t status = 0);
std::function<std::string(const Request &)> answer_long(uint32_t value);

// An IIOP 1.0 profile body (an encapsulation) addressing key at host:port.
std::string iiop_profile(const std::string &host, uint16_t port, const std::string &key,
                         bool little = true);

// An IIOP 1.0 IOR (a CDR encapsulation, byte-order octet first) with one
// profile, in either byte order; and its "IOR:" text.
std::string ior_bytes(const std::string &type_id, const std::string &host, uint16_t port,
                      const std::string &key, bool little = true);
std::string ior_text(const std::string &bytes);

class ScriptedPeer {
public:
    ScriptedPeer();
    ~ScriptedPeer();
    ScriptedPeer(const ScriptedPeer &) = delete;
    ScriptedPeer &operator=(const ScriptedPeer &) = delete;

    uint16_t port() const { return port_; }

    // Steps, run in order once start() is called.
    // Takes the next connection; the current one is closed unless kept
    // (kept ones stay open until the peer is destroyed).
    ScriptedPeer &accept(bool keep_current = false);
    ScriptedPeer &read_message();  // one whole GIOP message, recorded
    ScriptedPeer &send(const std::string &bytes);
    // Sends what make returns, given the latest message read.
    ScriptedPeer &send_for(std::function<std::string(const Request &last)> make);
    ScriptedPeer &send_bytewise(const std::string &bytes);  // one byte per write
    ScriptedPeer &pause(int ms);
    ScriptedPeer &close();         // closes the current connection
    ScriptedPeer &read_to_eof();   // records everything until the client closes
    ScriptedPeer &wait_forever();  // silence until the peer is destroyed

    void start();
    // Waits up to ms for the steps to finish; true when they did.
    bool wait(int ms = 5000);

    // Valid after wait() returned true.
    const std::vector<std::string> &messages() const { return messages_; }
    const std::string &received() const { return received_; }
    int connections() const { return connections_; }
    const std::string &failure() const { return failure_; }  // empty when all went well

private:
    // One step; false when it failed.
    using Step = std::function<bool(Request &last)>;
    ScriptedPeer &add(Step step);
    void run();
    bool read_exact(char *to, size_t n);
    bool wait_readable(int fd);
    bool send_all(const std::string &bytes);

    int listen_fd_ = -1;
    int conn_fd_ = -1;
    std::vector<int> kept_fds_;
    uint16_t port_ = 0;
    std::vector<Step> steps_;
    std::thread thread_;
    std::atomic<bool> stop_{false};
    std::atomic<bool> done_{false};
    std::vector<std::string> messages_;
    std::string received_;
    int connections_ = 0;
    std::string failure_;
};

// A loopback port nothing listens on: a peer's, once the peer is gone.
inline uint16_t closed_port() { return ScriptedPeer().port(); }

}  // namespace peer

#endif
