#include "tests/interop/echo_fixture.h"

#include <unistd.h>

namespace interop {

EchoServer::EchoServer(const std::vector<std::string> &extra, int cpu) {
    port_ = free_port();
    std::vector<std::string> args;
    if (cpu >= 0) args = {"taskset", "-c", std::to_string(cpu)};
    for (const std::string &a : {std::string(ORBELLE_ECHO_SERVER), std::string("-ORBendPoint"),
                                 "giop:tcp:127.0.0.1:" + std::to_string(port_),
                                 std::string("-ORBmaxGIOPVersion"), std::string("1.0")})
        args.push_back(a);
    args.insert(args.end(), extra.begin(), extra.end());
    int out[2];
    if (pipe(out) != 0) return;
    pid_ = spawn(args, out[1]);
    close(out[1]);
    // The server prints "ECHO IOR:..." and "FORWARD IOR:..." once it serves.
    read_lines(out[0], [this](const std::string &line) {
        if (line.rfind("ECHO ", 0) == 0) ior_ = line.substr(5);
        if (line.rfind("FORWARD ", 0) == 0) forward_ = line.substr(8);
        return !ior_.empty() && !forward_.empty();
    });
    close(out[0]);
}

}  // namespace interop
