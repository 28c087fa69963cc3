#include "tests/interop/echo_fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace interop {

namespace {
// The server prints its references well within this on a loaded machine.
constexpr int kStartLimitMs = 15000;

// Reads lines from fd until both references are known or time runs out.
void read_references(int fd, std::string &echo, std::string &forward) {
    std::string text;
    char buf[4096];
    int waited = 0;
    while ((echo.empty() || forward.empty()) && waited < kStartLimitMs) {
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) {
            waited += 100;
            continue;
        }
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
        size_t nl;
        while ((nl = text.find('\n')) != std::string::npos) {
            std::string line = text.substr(0, nl);
            text.erase(0, nl + 1);
            if (line.rfind("ECHO ", 0) == 0) echo = line.substr(5);
            if (line.rfind("FORWARD ", 0) == 0) forward = line.substr(8);
        }
    }
}

[[noreturn]] void exec_argv(const std::vector<std::string> &args) {
    std::vector<char *> v;
    for (const auto &a : args) v.push_back(const_cast<char *>(a.c_str()));
    v.push_back(nullptr);
    execvp(v[0], v.data());
    _exit(127);
}
}  // namespace

uint16_t free_port() {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a);
    getsockname(fd, reinterpret_cast<sockaddr *>(&a), &len);
    close(fd);
    return ntohs(a.sin_port);
}

std::string capture(const std::vector<std::string> &argv) {
    int out[2];
    if (pipe(out) != 0) return {};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        close(out[0]);
        close(out[1]);
        setenv("OMNIORB_CONFIG", "/dev/null", 1);
        exec_argv(argv);
    }
    close(out[1]);
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(out[0], buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    close(out[0]);
    int status;
    waitpid(pid, &status, 0);
    return text;
}

EchoServer::EchoServer(const std::vector<std::string> &extra, int cpu) {
    port_ = free_port();
    std::vector<std::string> args;
    if (cpu >= 0) args = {"taskset", "-c", std::to_string(cpu)};
    args.push_back(ORBELLE_ECHO_SERVER);
    for (const char *a : {"-ORBendPoint", "", "-ORBmaxGIOPVersion", "1.0"}) args.push_back(a);
    args[args.size() - 3] = "giop:tcp:127.0.0.1:" + std::to_string(port_);
    for (const auto &a : extra) args.push_back(a);

    int out[2];
    if (pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(out[1], 1);
        close(out[0]);
        close(out[1]);
        setenv("OMNIORB_CONFIG", "/dev/null", 1);
        exec_argv(args);
    }
    close(out[1]);
    read_references(out[0], ior_, forward_);
    close(out[0]);
}

EchoServer::~EchoServer() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        int status;
        waitpid(pid_, &status, 0);
    }
}

}  // namespace interop
