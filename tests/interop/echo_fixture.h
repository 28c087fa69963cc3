// Starts the omniORB echo server on a free loopback port for one test or
// benchmark and stops it again.
#ifndef ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H
#define ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

namespace interop {

// A TCP port on 127.0.0.1 that nothing listened on a moment ago.
uint16_t free_port();

// Runs a program with arguments and returns its standard output.
std::string capture(const std::vector<std::string> &argv);

class EchoServer {
public:
    // extra: further -ORB options. cpu >= 0 pins the server to that CPU.
    explicit EchoServer(const std::vector<std::string> &extra = {}, int cpu = -1);
    ~EchoServer();
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
