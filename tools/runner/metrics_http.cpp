#include "tools/runner/metrics_http.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace runner {
namespace {

// The most of a request read: a scraper's request line and headers are a
// few hundred bytes.
constexpr size_t max_request = 8192;

void set_timeouts(int fd) {
    timeval tv{0, 100000};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

void send_all(int fd, const std::string &text) {
    for (size_t sent = 0; sent < text.size();) {
        ssize_t n = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) return;
        sent += static_cast<size_t>(n);
    }
}

}  // namespace

bool parse_listen_address(const std::string &text, uint32_t &address, uint16_t &port,
                          std::string &error) {
    size_t colon = text.rfind(':');
    std::string host = colon == std::string::npos ? "" : text.substr(0, colon);
    std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
    in_addr a{};
    bool ok = !digits.empty() && digits.size() <= 5 &&
              digits.find_first_not_of("0123456789") == std::string::npos &&
              std::stol(digits) <= 65535;
    if (ok && host == "localhost") host = "127.0.0.1";
    ok = ok && inet_pton(AF_INET, host.c_str(), &a) == 1;
    if (!ok) {
        error = "--metrics takes HOST:PORT, an IPv4 address or localhost and a port (0: any)";
        return false;
    }
    address = a.s_addr;
    port = static_cast<uint16_t>(std::stol(digits));
    return true;
}

MetricsHttp::~MetricsHttp() {
    if (fd_ >= 0) close(fd_);
}

bool MetricsHttp::listen(const std::string &text, std::string &error) {
    uint32_t address = 0;
    uint16_t port = 0;
    if (!parse_listen_address(text, address, port, error)) return false;
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    int on = 1;
    sockaddr_in sa{};
    sa.sin_family = AF_INET;
    sa.sin_addr.s_addr = address;
    sa.sin_port = htons(port);
    socklen_t len = sizeof sa;
    if (fd_ < 0 || setsockopt(fd_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(fd_, reinterpret_cast<sockaddr *>(&sa), sizeof sa) != 0 || ::listen(fd_, 16) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr *>(&sa), &len) != 0) {
        error = "cannot serve metrics on " + text + ": " + std::strerror(errno);
        return false;
    }
    port_ = ntohs(sa.sin_port);
    return true;
}

void MetricsHttp::serve(const std::function<std::string()> &body) {
    for (;;) {
        int client = accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return;  // none left waiting (or an error of this one)
        set_timeouts(client);
        std::string request;
        char buf[2048];
        while (request.find("\r\n\r\n") == std::string::npos && request.size() < max_request) {
            ssize_t n = recv(client, buf, sizeof buf, 0);
            if (n <= 0) break;
            request.append(buf, static_cast<size_t>(n));
        }
        bool ours = request.rfind("GET /metrics ", 0) == 0 ||
                    request.rfind("GET /metrics?", 0) == 0 || request.rfind("GET / ", 0) == 0;
        std::string text = ours ? body() : "not found: metrics are at /metrics\n";
        send_all(client, std::string(ours ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 404 Not Found\r\n") +
                             "Content-Type: text/plain; version=0.0.4; charset=utf-8\r\n"
                             "Content-Length: " +
                             std::to_string(text.size()) + "\r\nConnection: close\r\n\r\n" + text);
        close(client);
    }
}

}  // namespace runner
