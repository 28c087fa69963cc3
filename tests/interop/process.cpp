#include "tests/interop/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <sstream>
#include <thread>

namespace interop {

namespace {
// A server that ignores SIGTERM this long is killed.
constexpr int kStopLimitMs = 5000;

std::string read_all(int fd) {
    std::string text;
    char buf[4096];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) text.append(buf, static_cast<size_t>(n));
    return text;
}
}  // namespace

uint16_t free_port() {
    // Below the kernel's ephemeral range (32768 up), so that no outgoing
    // connection of a test running beside this one can take the port between
    // this look and the server's bind; a port that is bound now is passed over.
    static std::mt19937 pick(std::random_device{}() ^ static_cast<unsigned>(getpid()));
    std::uniform_int_distribution<int> in_range(20000, 32767);
    uint16_t port = 0;
    for (int attempt = 0; attempt < 100 && port == 0; ++attempt) {
        int fd = socket(AF_INET, SOCK_STREAM, 0);
        int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(static_cast<uint16_t>(in_range(pick)));
        if (bind(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0) port = ntohs(a.sin_port);
        close(fd);
    }
    return port;
}

bool connects(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    bool ok = connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
    close(fd);
    return ok;
}

std::string find_program(const std::string &name) {
    const char *path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "/usr/bin:/usr/sbin");
    std::string dir;
    while (std::getline(dirs, dir, ':'))
        if (access((dir + "/" + name).c_str(), X_OK) == 0) return dir + "/" + name;
    return {};
}

pid_t spawn(const std::vector<std::string> &argv, int out_fd, int err_fd) {
    pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int null_fd = open("/dev/null", O_RDWR);
    dup2(out_fd >= 0 ? out_fd : null_fd, 1);
    dup2(err_fd >= 0 ? err_fd : null_fd, 2);
    setenv("OMNIORB_CONFIG", "/dev/null", 1);
    std::vector<char *> v;
    for (const auto &a : argv) v.push_back(const_cast<char *>(a.c_str()));
    v.push_back(nullptr);
    execvp(v[0], v.data());
    _exit(127);
}

bool read_lines(int fd, const std::function<bool(const std::string &)> &on_line,
                const std::function<void()> &tick) {
    std::string text;
    char buf[4096];
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kStartLimitMs);
    while (std::chrono::steady_clock::now() < end) {
        if (tick) tick();
        pollfd p{fd, POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        ssize_t n = read(fd, buf, sizeof buf);
        if (n <= 0) return false;
        text.append(buf, static_cast<size_t>(n));
        for (size_t nl; (nl = text.find('\n')) != std::string::npos; text.erase(0, nl + 1))
            if (on_line(text.substr(0, nl))) return true;
    }
    return false;
}

void end_process(pid_t &pid, int signal) {
    if (pid <= 0) return;
    kill(pid, signal);
    for (int waited = 0; waitpid(pid, nullptr, WNOHANG) == 0; waited += 5) {
        if (waited > kStopLimitMs) kill(pid, SIGKILL);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid = -1;
}

std::string run_program(const std::vector<std::string> &argv, std::string *err, int *status) {
    int out[2];
    FILE *errors = std::tmpfile();  // a file never blocks the child as a full pipe would
    if (errors == nullptr || pipe(out) != 0) return {};
    pid_t pid = spawn(argv, out[1], fileno(errors));
    close(out[1]);
    std::string text = read_all(out[0]);
    close(out[0]);
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    std::rewind(errors);
    if (err) *err = read_all(fileno(errors));
    std::fclose(errors);
    if (status) *status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    return text;
}

bool Server::start(const std::vector<std::string> &argv, const std::string &ready) {
    if (pid_ > 0) return true;
    int out[2];
    if (pipe(out) != 0) return false;
    pid_ = spawn(argv, out[1]);
    close(out[1]);
    out_fd_ = out[0];
    bool up = read_lines(out_fd_, [&](const std::string &line) {
        size_t blank = line.find(" IOR:");
        if (blank != std::string::npos) refs_[line.substr(0, blank)] = line.substr(blank + 1);
        return line == ready;
    });
    if (!up) stop(SIGKILL);
    return up;
}

void Server::stop(int signal) {
    end_process(pid_, signal);
    if (out_fd_ >= 0) close(out_fd_);
    out_fd_ = -1;
}

void Server::signal(int signal) const {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    // A stop takes effect some time after kill returns: wait until it has.
    if (signal == SIGSTOP) waitpid(pid_, nullptr, WUNTRACED);
}

const std::string &Server::ior(const std::string &name) const {
    static const std::string none;
    auto it = refs_.find(name);
    return it == refs_.end() ? none : it->second;
}

}  // namespace interop
