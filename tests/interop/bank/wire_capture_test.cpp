// A session with the bank captured on the loopback interface and read back
// by Wireshark's GIOP dissector, which must find every message well formed.
// Skipped where tshark is not installed or cannot capture.
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
#include <sstream>
#include <thread>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// tshark reports that it captures within this on a loaded machine.
constexpr int kCaptureStartLimitMs = 15000;

// Runs a program and returns its standard output; standard error and the
// exit status go to err and status when given.
std::string run_program(const std::vector<std::string> &argv, std::string *err = nullptr,
                        int *status = nullptr) {
    int out[2], errp[2];
    if (pipe(out) != 0 || pipe(errp) != 0) return {};
    pid_t pid = fork();
    if (pid == 0) {
        dup2(out[1], 1);
        dup2(errp[1], 2);
        for (int fd : {out[0], out[1], errp[0], errp[1]}) close(fd);
        std::vector<char *> v;
        for (const auto &a : argv) v.push_back(const_cast<char *>(a.c_str()));
        v.push_back(nullptr);
        execv(v[0], v.data());
        _exit(127);
    }
    close(out[1]);
    close(errp[1]);
    std::string text, errors;
    char buf[4096];
    pollfd fds[2] = {{out[0], POLLIN, 0}, {errp[0], POLLIN, 0}};
    int open_fds = 2;
    while (open_fds > 0 && poll(fds, 2, 30000) > 0) {
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            ssize_t n = read(fds[i].fd, buf, sizeof buf);
            if (n <= 0) {
                close(fds[i].fd);
                fds[i].fd = -1;
                --open_fds;
            } else {
                (i == 0 ? text : errors).append(buf, static_cast<size_t>(n));
            }
        }
    }
    for (const auto &f : fds)
        if (f.fd >= 0) close(f.fd);
    int wstatus = 0;
    waitpid(pid, &wstatus, 0);
    if (err) *err = errors;
    if (status) *status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
    return text;
}

// Opens and closes a TCP connection to the port, which puts a few packets on
// the loopback interface.
void knock(uint16_t port) {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.sin_port = htons(port);
    connect(fd, reinterpret_cast<sockaddr *>(&a), sizeof a);
    close(fd);
}

// A tshark capture of one TCP port on the loopback interface, written to a
// file. tshark also prints a line per packet, by which the capture shows
// that it has begun: it says "Capturing on" a little before it sees packets.
class Capture {
public:
    Capture(const std::string &tshark, uint16_t port, const std::string &file) {
        int out[2];
        if (pipe(out) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            dup2(out[1], 1);
            dup2(out[1], 2);
            close(out[0]);
            close(out[1]);
            std::string filter = "tcp port " + std::to_string(port);
            execl(tshark.c_str(), tshark.c_str(), "-i", "lo", "-f", filter.c_str(), "-w",
                  file.c_str(), "-P", "-l", static_cast<char *>(nullptr));
            _exit(127);
        }
        close(out[1]);
        out_fd_ = out[0];
        auto start = std::chrono::steady_clock::now();
        char buf[1024];
        while (!capturing_ && std::chrono::steady_clock::now() - start <
                                  std::chrono::milliseconds(kCaptureStartLimitMs)) {
            knock(port);
            pollfd p{out_fd_, POLLIN, 0};
            if (poll(&p, 1, 100) <= 0) continue;
            ssize_t n = read(out_fd_, buf, sizeof buf);
            if (n <= 0) break;
            messages_.append(buf, static_cast<size_t>(n));
            capturing_ = messages_.find(" TCP ") != std::string::npos;
        }
    }
    ~Capture() { stop(); }

    bool capturing() const { return capturing_; }
    const std::string &messages() const { return messages_; }

    // Ends the capture; the file is complete afterwards.
    void stop() {
        if (pid_ > 0) {
            kill(pid_, SIGINT);
            // Keep reading so that tshark never blocks on a full pipe.
            char buf[4096];
            while (read(out_fd_, buf, sizeof buf) > 0) {
            }
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
        if (out_fd_ >= 0) close(out_fd_);
        out_fd_ = -1;
    }

private:
    pid_t pid_ = -1;
    int out_fd_ = -1;
    bool capturing_ = false;
    std::string messages_;
};

// Calls of every kind that put different GIOP messages on the wire: plain and
// nested values, sequences, the union, both exception kinds, a one-way
// Request and a location forward. Returns the count of Requests sent.
int run_session(Client &client, const BankServer &server) {
    void *diag = client.bind_ior(kDiagnosticsId, server.ior("Diagnostics"));
    if (diag == nullptr) return 0;
    int requests = 0;
    auto call = [&](const std::string &op, const std::map<std::string, std::string> &values,
                    int32_t flags = IIOP_TWOWAY, const std::map<std::string, std::string> &l = {}) {
        Call c(client, diag, kDiagnosticsId, op, l);
        for (const auto &v : values) c.set(v.first, v.second);
        c.invoke(flags);
        ++requests;
    };
    call("echo_long", {{"a", "7"}, {"c", "8"}});
    call("echo_string", {{"a", "x`60`y"}, {"c", "two`0a`lines"}});
    call("echo_money",
         {{"a.amount", "1.5"}, {"a.currency", "1"}, {"c.amount", "2"}, {"c.currency", "2"}});
    call("echo_route", {{"a^discriminator", "10"},
                        {"a:mandate.creditor", "A"},
                        {"a:mandate.reference", "R"},
                        {"a:mandate.limit", "3"},
                        {"c^discriminator", "10"},
                        {"c:mandate.creditor", "B"},
                        {"c:mandate.reference", "S"},
                        {"c:mandate.limit", "4"}});
    call("echo_longs", {{"a[0]", "1"}, {"a[1]", "2"}, {"c[0]", "3"}, {"c[1]", "4"}}, IIOP_TWOWAY,
         {{"a^length", "2"}, {"b^length", "2"}, {"c^length", "2"}, {"^echo_longs^length", "2"}});
    call("fail", {{"which", "1"}});
    call("fail", {{"which", "4"}});
    call("note", {{"n", "5"}}, IIOP_ONEWAY);
    call("notes_total", {});

    void *fwd = client.bind_ior(kBankId, server.ior("Forward/Bank"));
    Call name(client, fwd, kBankId, "_get_name");
    name.invoke();
    requests += 2;  // the Request and its repeat at the forward address
    return requests;
}

TEST_F(BankTest, WiresharkReadsEveryGiopMessageWithoutMalformedPackets) {
    std::string tshark = find_program("tshark");
    if (tshark.empty()) GTEST_SKIP() << "tshark is not installed";
    std::string file = dir_.path() + "/session.pcapng";
    Capture capture(tshark, server_.port(), file);
    if (!capture.capturing()) GTEST_SKIP() << "tshark cannot capture here: " << capture.messages();

    int requests = run_session(client_, server_);
    ASSERT_GT(requests, 0) << "the session did not run";
    // Let the last Reply reach the capture before it stops.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    capture.stop();

    std::string decode = "tcp.port==" + std::to_string(server_.port()) + ",giop";
    std::string err;
    int status = -1;
    std::string bad = run_program(
        {tshark, "-r", file, "-d", decode, "-Y", "_ws.malformed || _ws.expert.severity >= warning"},
        &err, &status);
    ASSERT_EQ(status, 0) << "tshark could not read the capture: " << err;
    EXPECT_EQ(bad, "") << "packets Wireshark finds malformed or worth a warning";

    // One line per frame with the types of its GIOP messages: 0 Request,
    // 1 Reply; one-way Requests are answered by nothing.
    std::string types = run_program(
        {tshark, "-r", file, "-d", decode, "-Y", "giop", "-T", "fields", "-e", "giop.type"});
    int request_count = 0, reply_count = 0, other = 0;
    std::istringstream lines(types);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream items(line);
        std::string item;
        while (std::getline(items, item, ',')) {
            if (item == "0")
                ++request_count;
            else if (item == "1")
                ++reply_count;
            else
                ++other;
        }
    }
    EXPECT_EQ(request_count, requests) << "GIOP Requests Wireshark read\n" << types << err;
    EXPECT_EQ(reply_count, requests - 1) << "GIOP Replies Wireshark read (one call was one-way)";
    EXPECT_EQ(other, 0) << types;
}

}  // namespace
}  // namespace bank
