#include "tests/interop/bank/bank_servers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>
#include <vector>

namespace bank {

namespace {
// A server is up well within this on a loaded two-core machine.
constexpr int kStartLimitMs = 15000;
// A server that ignores SIGTERM this long is killed.
constexpr int kStopLimitMs = 5000;

using clock_type = std::chrono::steady_clock;

int elapsed_ms(clock_type::time_point since) {
    return static_cast<int>(
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - since).count());
}

// Starts argv with OMNIORB_CONFIG cleared; its standard output goes to
// out_fd (or /dev/null when -1). The child dies with the test process.
pid_t spawn(const std::vector<std::string> &argv, int out_fd) {
    pid_t pid = fork();
    if (pid != 0) return pid;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int null_fd = open("/dev/null", O_RDWR);
    dup2(out_fd >= 0 ? out_fd : null_fd, 1);
    dup2(null_fd, 2);
    setenv("OMNIORB_CONFIG", "/dev/null", 1);
    std::vector<char *> v;
    for (const auto &a : argv) v.push_back(const_cast<char *>(a.c_str()));
    v.push_back(nullptr);
    execv(v[0], v.data());
    _exit(127);
}

bool accepts_connections(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    bool ok = connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a) == 0;
    close(fd);
    return ok;
}

// Sends the signal and reaps the child; kills it if it lingers.
void end_process(pid_t &pid, int signal) {
    if (pid <= 0) return;
    kill(pid, signal);
    auto start = clock_type::now();
    int status;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (elapsed_ms(start) > kStopLimitMs) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    pid = -1;
}

std::string endpoint(uint16_t port) { return "giop:tcp:127.0.0.1:" + std::to_string(port); }
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

std::string find_program(const std::string &name) {
    const char *path = std::getenv("PATH");
    std::istringstream dirs(path ? path : "/usr/bin:/usr/sbin");
    std::string dir;
    while (std::getline(dirs, dir, ':')) {
        std::string candidate = dir + "/" + name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

NameServer::NameServer(const std::string &dir) {
    std::string program = find_program("omniNames");
    if (program.empty()) return;
    std::string data = dir + "/names";
    mkdir(data.c_str(), 0700);
    port_ = free_port();
    pid_ = spawn({program, "-start", std::to_string(port_), "-always", "-datadir", data, "-errlog",
                  data + "/err.log", "-ORBendPoint", endpoint(port_), "-ORBmaxGIOPVersion", "1.0"},
                 -1);
    auto start = clock_type::now();
    while (!accepts_connections(port_)) {
        if (elapsed_ms(start) > kStartLimitMs || waitpid(pid_, nullptr, WNOHANG) != 0) {
            end_process(pid_, SIGKILL);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

NameServer::~NameServer() { end_process(pid_, SIGTERM); }

std::string NameServer::reference() const {
    return "iiop:1.0//127.0.0.1:" + std::to_string(port_) + "/NameService";
}

BankServer::BankServer(const std::string &dir, uint16_t naming_port)
    : dir_(dir), list_file_(dir + "/bank.iorlist"), naming_port_(naming_port), port_(free_port()) {
    start();
}

BankServer::~BankServer() { stop(SIGTERM); }

bool BankServer::start() {
    if (pid_ > 0) return true;
    std::vector<std::string> args = {
        ORBELLE_BANK_SERVER, "-ORBendPoint", endpoint(port_), "-ORBmaxGIOPVersion", "1.0",
        "-iorlist",          list_file_};
    if (naming_port_ != 0) {
        args.push_back("-register");
        args.push_back("-ORBInitRef");
        args.push_back("NameService=corbaloc::1.0@127.0.0.1:" + std::to_string(naming_port_) +
                       "/NameService");
    }
    int out[2];
    if (pipe(out) != 0) return false;
    pid_ = spawn(args, out[1]);
    close(out[1]);

    // One "NAME IOR:..." line per object, then the ready line.
    std::string text;
    bool ready = false;
    auto start = clock_type::now();
    char buf[4096];
    while (!ready && elapsed_ms(start) < kStartLimitMs) {
        pollfd p{out[0], POLLIN, 0};
        if (poll(&p, 1, 100) <= 0) continue;
        ssize_t n = read(out[0], buf, sizeof buf);
        if (n <= 0) break;
        text.append(buf, static_cast<size_t>(n));
        size_t nl;
        while ((nl = text.find('\n')) != std::string::npos) {
            std::string line = text.substr(0, nl);
            text.erase(0, nl + 1);
            if (line == "bank_server: ready") ready = true;
            size_t blank = line.find(" IOR:");
            if (blank != std::string::npos) refs_[line.substr(0, blank)] = line.substr(blank + 1);
        }
    }
    out_fd_ = out[0];
    if (!ready) stop(SIGKILL);
    return ready;
}

void BankServer::stop(int signal) {
    end_process(pid_, signal);
    if (out_fd_ >= 0) close(out_fd_);
    out_fd_ = -1;
}

std::string BankServer::ior(const std::string &name) const {
    auto it = refs_.find(name);
    return it == refs_.end() ? std::string() : it->second;
}

}  // namespace bank
