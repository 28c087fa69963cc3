// The HTTP side of live metrics: a listening socket the parent watches in
// its epoll, and one short answer per connection. Linux only, as load mode.
#ifndef ORBELLE_RUNNER_METRICS_HTTP_H
#define ORBELLE_RUNNER_METRICS_HTTP_H

#include <cstdint>
#include <functional>
#include <string>

namespace runner {

// Reads "HOST:PORT": HOST an IPv4 address or localhost, PORT from 0 (any
// free port) to 65535. False with a message.
bool parse_listen_address(const std::string &text, uint32_t &address, uint16_t &port,
                          std::string &error);

class MetricsHttp {
public:
    MetricsHttp() = default;
    ~MetricsHttp();
    MetricsHttp(const MetricsHttp &) = delete;
    MetricsHttp &operator=(const MetricsHttp &) = delete;

    // Listens on text (HOST:PORT). False with a message.
    bool listen(const std::string &text, std::string &error);
    int fd() const { return fd_; }
    uint16_t port() const { return port_; }
    // Answers every connection waiting: GET /metrics (or /) with the text
    // body() makes, anything else with 404. A client gets a tenth of a
    // second to send its request and take the answer, so that a slow one
    // cannot hold up the run.
    void serve(const std::function<std::string()> &body);

private:
    int fd_ = -1;
    uint16_t port_ = 0;
};

}  // namespace runner

#endif
