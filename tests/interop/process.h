// Starting, watching and stopping the helper programs of the interop tests
// and benchmarks: omniORB servers, omniNames, tshark.
#ifndef ORBELLE_TESTS_INTEROP_PROCESS_H
#define ORBELLE_TESTS_INTEROP_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace interop {

// A server is up well within this on a loaded two-core machine.
constexpr int kStartLimitMs = 15000;

// A TCP port on 127.0.0.1 that nothing listened on a moment ago.
uint16_t free_port();
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

}  // namespace interop

#endif
