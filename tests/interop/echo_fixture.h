// Starts the omniORB echo server on a free loopback port for one test or
// benchmark and stops it again.
#ifndef ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H
#define ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H

#include <csignal>
#include <string>
#include <vector>

#include "tests/interop/process.h"

namespace interop {

class EchoServer {
public:
    // extra: further -ORB options. cpu >= 0 pins the server to that CPU.
    explicit EchoServer(const std::vector<std::string> &extra = {}, int cpu = -1);
    ~EchoServer() { end_process(pid_, SIGTERM); }
    EchoServer(const EchoServer &) = delete;
    EchoServer &operator=(const EchoServer &) = delete;

    bool running() const { return !ior_.empty(); }
    uint16_t port() const { return port_; }
    const std::string &ior() const { return ior_; }              // the echo object
    const std::string &forward_ior() const { return forward_; }  // forwards to it

private:
    pid_t pid_ = -1;
    uint16_t port_ = 0;
    std::string ior_;
    std::string forward_;
};

}  // namespace interop

#endif
