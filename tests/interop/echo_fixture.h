// Starts the omniORB echo server on a free loopback port for one test or
// benchmark and stops it again.
#ifndef ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H
#define ORBELLE_TESTS_INTEROP_ECHO_FIXTURE_H

#include <string>
#include <vector>

#include "tests/interop/process.h"

namespace interop {

class EchoServer : public Server {
public:
    // extra: further -ORB options. cpu >= 0 pins the server to that CPU.
    explicit EchoServer(const std::vector<std::string> &extra = {}, int cpu = -1) {
        std::vector<std::string> args;
        if (cpu >= 0) args = {"taskset", "-c", std::to_string(cpu)};
        args.insert(args.end(),
                    {ORBELLE_ECHO_SERVER, "-ORBendPoint",
                     "giop:tcp:127.0.0.1:" + std::to_string(port_), "-ORBmaxGIOPVersion", "1.0"});
        args.insert(args.end(), extra.begin(), extra.end());
        start(args, "echo_server: ready");
    }

    uint16_t port() const { return port_; }
    const std::string &ior() const { return Server::ior("ECHO"); }             // the echo object
    const std::string &forward_ior() const { return Server::ior("FORWARD"); }  // forwards to it

private:
    uint16_t port_ = free_port();
};

}  // namespace interop

#endif
