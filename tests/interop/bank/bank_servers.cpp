#include "tests/interop/bank/bank_servers.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>
#include <vector>

namespace bank {

namespace {
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
    for (int waited = 0; !interop::connects(port_); waited += 20) {
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
    : list_file_(dir + "/bank.iorlist"), naming_port_(naming_port), profiles_(profiles) {
    start();
}

bool BankServer::start() {
    std::vector<std::string> args = {ORBELLE_BANK_SERVER, "-ORBendPoint", endpoint(port_),
                                     "-iorlist", list_file_};
    for (const std::string &option : profile_options(profiles_)) args.push_back(option);
    if (naming_port_ != 0)
        args.insert(args.end(), {"-register", "-ORBInitRef",
                                 "NameService=corbaloc::1.0@127.0.0.1:" +
                                     std::to_string(naming_port_) + "/NameService"});
    return Server::start(args, "bank_server: ready");
}

}  // namespace bank
