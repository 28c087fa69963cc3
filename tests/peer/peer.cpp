#include "tests/peer/peer.h"

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
// The few calls below in their Winsock spelling.
#define SOCK_CLOEXEC 0
#define MSG_NOSIGNAL 0
#define poll WSAPoll
namespace {
int close(int fd) { return closesocket(static_cast<SOCKET>(fd)); }
int accept4(int fd, sockaddr *address, socklen_t *length, int) {
    return static_cast<int>(::accept(static_cast<SOCKET>(fd), address, length));
}
// Winsock is up before the first socket of a test program.
const bool winsock_up = [] {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}();
}  // namespace
#else
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

namespace peer {

namespace {
// How often a blocked peer looks at its stop flag.
constexpr int kPollSliceMs = 20;
// A peer that waits longer than this for a client has lost the test.
constexpr int kStepLimitMs = 8000;

uint32_t load32(const std::string &s, size_t at, bool little) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) {
        uint32_t b = static_cast<uint8_t>(s[at + i]);
        v |= little ? b << (8 * i) : b << (8 * (3 - i));
    }
    return v;
}
}  // namespace

Writer &Writer::put(uint64_t v, size_t width) {
    align(width);
    for (size_t i = 0; i < width; ++i) {
        size_t shift = little_ ? i : width - 1 - i;
        out_.push_back(static_cast<char>((v >> (8 * shift)) & 0xff));
    }
    return *this;
}

Writer &Writer::align(size_t n) {
    while ((origin_ + out_.size()) % n != 0) out_.push_back('\0');
    return *this;
}

std::string message_with_size(uint8_t type, uint32_t size, const std::string &body, bool little) {
    std::string m = "GIOP";
    m.push_back(1);
    m.push_back(0);
    m.push_back(little ? 1 : 0);
    m.push_back(static_cast<char>(type));
    Writer w(little, 8);
    w.ulong(size);
    return m + w.bytes() + body;
}

std::string message(uint8_t type, const std::string &body, bool little, uint8_t minor) {
    std::string m = message_with_size(type, static_cast<uint32_t>(body.size()), body, little);
    m[5] = static_cast<char>(minor);
    return m;
}

std::string reply(uint32_t request_id, uint32_t status, const std::function<void(Writer &)> &body,
                  bool little) {
    Writer w(little);
    w.ulong(0).ulong(request_id).ulong(status);
    if (body) body(w);
    return message(1, w.bytes(), little);
}

std::string system_exception_reply(uint32_t request_id, const std::string &id, uint32_t minor,
                                   uint32_t completed, bool little) {
    return reply(
        request_id, 2, [&](Writer &w) { w.string(id).ulong(minor).ulong(completed); }, little);
}

std::string close_connection(bool little) { return message(5, "", little); }
std::string message_error(bool little) { return message(6, "", little); }

Request parse_request(const std::string &msg) {
    Request r;
    if (msg.size() < 12 || msg.compare(0, 4, "GIOP") != 0) return r;
    r.little = msg[6] == 1;
    r.size = load32(msg, 8, r.little);
    size_t at = 12;
    auto u32 = [&](uint32_t &v) {
        at = (at + 3) & ~size_t{3};
        if (msg.size() < at + 4) return false;
        v = load32(msg, at, r.little);
        at += 4;
        return true;
    };
    auto seq = [&](std::string &v) {
        uint32_t n;
        if (!u32(n) || msg.size() - at < n) return false;
        v = msg.substr(at, n);
        at += n;
        return true;
    };
    if (!u32(r.contexts) || r.contexts != 0 || !u32(r.request_id) || msg.size() < at + 1) return r;
    r.response_expected = static_cast<uint8_t>(msg[at++]);
    std::string op;
    if (!seq(r.key) || !seq(op) || op.empty() || !seq(r.principal)) return r;
    r.operation = op.substr(0, op.size() - 1);
    r.args_offset = at;
    r.valid = true;
    return r;
}

std::string iiop_profile(const std::string &host, uint16_t port, const std::string &key,
                         bool little) {
    Writer profile(little, 0);
    profile.octet(little ? 1 : 0).octet(1).octet(0).string(host).ushort(port).octets(key);
    return profile.bytes();
}

std::string long_reply(uint32_t request_id, uint32_t value) {
    return reply(request_id, 0, [value](Writer &w) { w.ulong(value); });
}

std::function<std::string(const Request &)> answer(std::function<void(Writer &)> body,
                                                   uint32_t status) {
    return [body, status](const Request &r) { return reply(r.request_id, status, body); };
}

std::function<std::string(const Request &)> answer_long(uint32_t value) {
    return [value](const Request &r) { return long_reply(r.request_id, value); };
}

std::string ior_bytes(const std::string &type_id, const std::string &host, uint16_t port,
                      const std::string &key, bool little) {
    Writer w(little, 0);
    w.octet(little ? 1 : 0)
        .string(type_id)
        .ulong(1)
        .ulong(0)
        .octets(iiop_profile(host, port, key, little));
    return w.bytes();
}

std::string ior_text(const std::string &bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string t = "IOR:";
    for (unsigned char c : bytes) {
        t.push_back(digits[c >> 4]);
        t.push_back(digits[c & 15]);
    }
    return t;
}

ScriptedPeer::ScriptedPeer() {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listen_fd_ < 0) throw std::runtime_error("peer: socket");
    int one = 1;
    setsockopt(listen_fd_, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char *>(&one),
               sizeof one);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (::bind(listen_fd_, reinterpret_cast<sockaddr *>(&a), sizeof a) != 0 ||
        ::listen(listen_fd_, 8) != 0 ||
        ::getsockname(listen_fd_, reinterpret_cast<sockaddr *>(&a), &len) != 0) {
        ::close(listen_fd_);
        throw std::runtime_error("peer: bind/listen");
    }
    port_ = ntohs(a.sin_port);
}

ScriptedPeer::~ScriptedPeer() {
    stop_ = true;
    if (thread_.joinable()) thread_.join();
    if (conn_fd_ >= 0) ::close(conn_fd_);
    for (int fd : kept_fds_) ::close(fd);
    ::close(listen_fd_);
}

ScriptedPeer &ScriptedPeer::add(Step step) {
    steps_.push_back(std::move(step));
    return *this;
}

ScriptedPeer &ScriptedPeer::accept(bool keep_current) {
    return add([this, keep_current](Request &) {
        if (conn_fd_ >= 0) {
            if (keep_current)
                kept_fds_.push_back(conn_fd_);
            else
                ::close(conn_fd_);
        }
        conn_fd_ = -1;
        if (!wait_readable(listen_fd_)) return false;
        conn_fd_ = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (conn_fd_ < 0) return false;
        int one = 1;
        setsockopt(conn_fd_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one),
                   sizeof one);
        ++connections_;
        return true;
    });
}

ScriptedPeer &ScriptedPeer::read_message() {
    return add([this](Request &last) {
        std::string m(12, '\0');
        if (!read_exact(&m[0], 12) || m.compare(0, 4, "GIOP") != 0) return false;
        uint32_t size = load32(m, 8, m[6] == 1);
        if (size > (64u << 20)) return false;
        m.resize(12 + size);
        if (!read_exact(&m[12], size)) return false;
        messages_.push_back(m);
        last = parse_request(m);
        return true;
    });
}

ScriptedPeer &ScriptedPeer::send(const std::string &bytes) {
    return add([this, bytes](Request &) { return send_all(bytes); });
}
ScriptedPeer &ScriptedPeer::send_for(std::function<std::string(const Request &)> make) {
    return add([this, make](Request &last) { return send_all(make(last)); });
}
ScriptedPeer &ScriptedPeer::send_bytewise(const std::string &bytes) {
    return add([this, bytes](Request &) {
        for (char c : bytes) {
            if (!send_all(std::string(1, c))) return false;
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        return true;
    });
}
ScriptedPeer &ScriptedPeer::pause(int ms) {
    return add([ms](Request &) {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
        return true;
    });
}
ScriptedPeer &ScriptedPeer::close() {
    return add([this](Request &) {
        if (conn_fd_ >= 0) ::close(conn_fd_);
        conn_fd_ = -1;
        return true;
    });
}
ScriptedPeer &ScriptedPeer::read_to_eof() {
    return add([this](Request &) {
        char buf[4096];
        while (wait_readable(conn_fd_)) {
            ssize_t got = ::recv(conn_fd_, buf, sizeof buf, 0);
            if (got <= 0) break;
            received_.append(buf, static_cast<size_t>(got));
        }
        return true;
    });
}
ScriptedPeer &ScriptedPeer::wait_forever() {
    return add([this](Request &) {
        while (!stop_) std::this_thread::sleep_for(std::chrono::milliseconds(kPollSliceMs));
        return true;
    });
}

void ScriptedPeer::start() {
    thread_ = std::thread([this] { run(); });
}

bool ScriptedPeer::wait(int ms) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!done_ && std::chrono::steady_clock::now() < until)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    if (!done_) return false;
    if (thread_.joinable()) thread_.join();
    return true;
}

bool ScriptedPeer::wait_readable(int fd) {
    auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStepLimitMs);
    while (!stop_) {
        pollfd p{};
        p.fd = fd;
        p.events = POLLIN;
        int rc = ::poll(&p, 1, kPollSliceMs);
        if (rc > 0) return true;
        if (rc < 0 && errno != EINTR) return false;
        if (std::chrono::steady_clock::now() > until) return false;
    }
    return false;
}

bool ScriptedPeer::read_exact(char *to, size_t n) {
    while (n > 0) {
        if (!wait_readable(conn_fd_)) return false;
        ssize_t got = ::recv(conn_fd_, to, n, 0);
        if (got <= 0) return false;
        received_.append(to, static_cast<size_t>(got));
        to += got;
        n -= static_cast<size_t>(got);
    }
    return true;
}

bool ScriptedPeer::send_all(const std::string &bytes) {
    for (size_t at = 0; at < bytes.size();) {
        ssize_t put = ::send(conn_fd_, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
        if (put <= 0) return false;
        at += static_cast<size_t>(put);
    }
    return true;
}

void ScriptedPeer::run() {
    Request last;
    for (size_t i = 0; i < steps_.size() && !stop_; ++i) {
        if (!steps_[i](last)) {
            failure_ = "step " + std::to_string(i) + " failed";
            break;
        }
    }
    done_ = true;
}

}  // namespace peer
