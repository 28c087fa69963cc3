// The demo bank server and omniNames, started on free loopback ports for one
// test and stopped again when the test ends.
#ifndef ORBELLE_TESTS_INTEROP_BANK_SERVERS_H
#define ORBELLE_TESTS_INTEROP_BANK_SERVERS_H

#include <string>

#include "tests/interop/process.h"

namespace bank {

using interop::find_program;

// The references a server publishes: IIOP 1.0 profiles (-ORBmaxGIOPVersion
// 1.0), or omniORB's default, IIOP 1.2 profiles with tagged components.
enum class Profiles { kIiop10, kDefault };

// omniNames with a fresh data folder below dir.
class NameServer {
public:
    explicit NameServer(const std::string &dir, Profiles profiles = Profiles::kIiop10);
    ~NameServer();
    NameServer(const NameServer &) = delete;
    NameServer &operator=(const NameServer &) = delete;

    bool running() const { return pid_ > 0; }
    uint16_t port() const { return port_; }
    // The naming service's reference as text that the library binds.
    std::string reference() const;

private:
    pid_t pid_ = -1;
    uint16_t port_ = 0;
};

// The demo's bank_server. Its objects live on fixed keys, so a restart on the
// same port serves the same references: "Bank", "Diagnostics",
// "Account/1001", "Account/1002", "SavingsAccount/1003", "Forward/Bank" and
// "Forward/Diagnostics".
class BankServer : public interop::Server {
public:
    // dir: where the list file goes. naming_port: nonzero registers Bank and
    // Diagnostics with the naming service on that port.
    explicit BankServer(const std::string &dir, uint16_t naming_port = 0,
                        Profiles profiles = Profiles::kIiop10);

    // Starts the server on port() and waits for it to be ready.
    bool start();
    uint16_t port() const { return port_; }
    // The "repository id,IOR" list file the server wrote.
    const std::string &list_file() const { return list_file_; }

private:
    std::string list_file_;
    uint16_t naming_port_;
    Profiles profiles_;
    uint16_t port_ = interop::free_port();
};

}  // namespace bank

#endif
