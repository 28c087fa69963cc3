#include "tests/interop/bank/bank_servers.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

namespace bank {

namespace {
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

std::string endpoint(uint16_t port) { return "giop:tcp:127.0.0.1:" + std::to_string(port); }

// omniORB's options for the profiles it publishes.
std::vector<std::string> profile_options(Profiles profiles) {
    if (profiles == Profiles::kDefault) return {};
    return {"-ORBmaxGIOPVersion", "1.0"};
}
}  // namespace

NameServer::NameServer(const std::string &dir, Profiles profiles) {
    std::string program = find_program("omniNames");
    if (program.empty()) return;
    std::string data = dir + "/names";
    mkdir(data.c_str(), 0700);
    port_ = interop::free_port();
    std::vector<std::string> args = {
        program, "-start",  std::to_string(port_), "-always",      "-datadir",
        data,    "-errlog", data + "/err.log",     "-ORBendPoint", endpoint(port_)};
    for (const std::string &option : profile_options(profiles)) args.push_back(option);
    pid_ = interop::spawn(args, -1);
    // Polled every 20 ms: up within the start limit, or given up.
    for (int waited = 0; !accepts_connections(port_); waited += 20) {
        if (waited > interop::kStartLimitMs || waitpid(pid_, nullptr, WNOHANG) != 0) {
            interop::end_process(pid_, SIGKILL);
            return;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

NameServer::~NameServer() { interop::end_process(pid_, SIGTERM); }

std::string NameServer::reference() const {
    return "iiop:1.0//127.0.0.1:" + std::to_string(port_) + "/NameService";
}

BankServer::BankServer(const std::string &dir, uint16_t naming_port, Profiles profiles)
    : dir_(dir),
      list_file_(dir + "/bank.iorlist"),
      naming_port_(naming_port),
      profiles_(profiles),
      port_(interop::free_port()) {
    start();
}

BankServer::~BankServer() { stop(SIGTERM); }

bool BankServer::start() {
    if (pid_ > 0) return true;
    std::vector<std::string> args = {ORBELLE_BANK_SERVER, "-ORBendPoint", endpoint(port_),
                                     "-iorlist", list_file_};
    for (const std::string &option : profile_options(profiles_)) args.push_back(option);
    if (naming_port_ != 0)
        args.insert(args.end(), {"-register", "-ORBInitRef",
                                 "NameService=corbaloc::1.0@127.0.0.1:" +
                                     std::to_string(naming_port_) + "/NameService"});
    int out[2];
    if (pipe(out) != 0) return false;
    pid_ = interop::spawn(args, out[1]);
    close(out[1]);
    out_fd_ = out[0];
    // One "NAME IOR:..." line per object, then the ready line.
    bool ready = interop::read_lines(out_fd_, [this](const std::string &line) {
        size_t blank = line.find(" IOR:");
        if (blank != std::string::npos) refs_[line.substr(0, blank)] = line.substr(blank + 1);
        return line == "bank_server: ready";
    });
    if (!ready) stop(SIGKILL);
    return ready;
}

void BankServer::stop(int signal) {
    interop::end_process(pid_, signal);
    if (out_fd_ >= 0) close(out_fd_);
    out_fd_ = -1;
}

void BankServer::signal(int signal) const {
    if (pid_ <= 0) return;
    kill(pid_, signal);
    // A stop takes effect some time after kill returns: wait until it has.
    int status;
    if (signal == SIGSTOP) waitpid(pid_, &status, WUNTRACED);
}

std::string BankServer::ior(const std::string &name) const {
    auto it = refs_.find(name);
    return it == refs_.end() ? std::string() : it->second;
}

}  // namespace bank
