// Starting, watching and stopping the helper programs of the interop tests
// and benchmarks: omniORB servers, omniNames, tshark.
#ifndef ORBELLE_TESTS_INTEROP_PROCESS_H
#define ORBELLE_TESTS_INTEROP_PROCESS_H

#include <sys/types.h>

#include <csignal>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace interop {

// A server is up well within this on a loaded two-core machine.
constexpr int kStartLimitMs = 15000;

// A TCP port on 127.0.0.1 that nothing listened on a moment ago.
uint16_t free_port();
// Opens and closes a TCP connection to the port on 127.0.0.1 (which puts a
// few packets on the loopback interface); true when it was accepted.
bool connects(uint16_t port);
// Path of a program found on PATH, or the empty text.
std::string find_program(const std::string &name);
// Starts argv (searched on PATH) with OMNIORB_CONFIG cleared; its standard
// output goes to out_fd and its standard error to err_fd (-1: /dev/null).
// The child dies with the test process.
pid_t spawn(const std::vector<std::string> &argv, int out_fd, int err_fd = -1);
// Hands each line read from fd to on_line until it returns true (then true),
// or until end of file or kStartLimitMs (then false). tick runs at each
// wait of 100 ms.
bool read_lines(int fd, const std::function<bool(const std::string &)> &on_line,
                const std::function<void()> &tick = {});
// Sends the signal and reaps the child, killing it if it lingers; pid
// becomes -1.
void end_process(pid_t &pid, int signal);
// Runs argv to its end: its standard output, its standard error in *err and
// its exit status (-1 when killed) in *status.
std::string run_program(const std::vector<std::string> &argv, std::string *err = nullptr,
                        int *status = nullptr);

// A server that prints a "NAME IOR:..." line for each of its objects and then
// a ready line; stopped with SIGTERM when it goes.
class Server {
public:
    Server() = default;
    ~Server() { stop(SIGTERM); }
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    // Starts argv (unless running) and keeps the references it prints until
    // the line ready; false, and the server killed, when that does not come.
    bool start(const std::vector<std::string> &argv, const std::string &ready);
    // Sends the signal and reaps the server. SIGTERM lets omniORB close its
    // connections; SIGKILL drops them as a crash would.
    void stop(int signal);
    // Sends a signal and leaves the server be; after SIGSTOP the server is
    // frozen when this returns.
    void signal(int signal) const;
    bool running() const { return pid_ > 0; }
    // The reference printed for name; empty when none was.
    const std::string &ior(const std::string &name) const;

private:
    pid_t pid_ = -1;
    int out_fd_ = -1;  // kept open so that a late line never meets a closed pipe
    std::map<std::string, std::string> refs_;
};

}  // namespace interop

#endif
