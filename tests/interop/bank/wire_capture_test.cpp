// A session with the bank captured on the loopback interface and read back
// by Wireshark's GIOP dissector, which must find every message well formed.
// Skipped where tshark is not installed or cannot capture.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>
#include <thread>

#include "tests/interop/bank/bank_fixture.h"

namespace bank {
namespace {

// A tshark capture of one TCP port on the loopback interface, written to a
// file. tshark also prints a line per packet, by which the capture shows
// that it has begun: it says "Capturing on" a little before it sees packets.
class Capture {
public:
    Capture(const std::string &tshark, uint16_t port, const std::string &file) {
        int out[2];
        if (pipe(out) != 0) return;
        pid_ = interop::spawn(
            {tshark, "-i", "lo", "-f", "tcp port " + std::to_string(port), "-w", file, "-P", "-l"},
            out[1], out[1]);
        close(out[1]);
        out_fd_ = out[0];
        capturing_ = interop::read_lines(
            out_fd_,
            [this](const std::string &line) {
                messages_ += line + "\n";
                return line.find(" TCP ") != std::string::npos;
            },
            [port] { interop::connects(port); });
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
            interop::end_process(pid_, SIGINT);
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

// "NAME=TEXT" words as a map.
std::map<std::string, std::string> pairs(const std::string &words) {
    std::map<std::string, std::string> out;
    std::istringstream in(words);
    for (std::string w; in >> w;) out[w.substr(0, w.find('='))] = w.substr(w.find('=') + 1);
    return out;
}

// Calls of every kind that put different GIOP messages on the wire: plain and
// nested values, sequences, the union, both exception kinds, a one-way
// Request and a location forward. Returns the count of Requests sent.
int run_session(Client &client, const BankServer &server) {
    void *diag = client.bind_ior(kDiagnosticsId, server.ior("Diagnostics"));
    if (diag == nullptr) return 0;
    int requests = 0;
    // values and lengths: "NAME=TEXT" words.
    auto call = [&](const std::string &op, const std::string &values, int32_t flags = IIOP_TWOWAY,
                    const std::string &lengths = "") {
        Call c(client, diag, kDiagnosticsId, op, pairs(lengths));
        for (const auto &[name, text] : pairs(values)) c.set(name, text);
        c.invoke(flags);
        ++requests;
    };
    call("echo_long", "a=7 c=8");
    call("echo_string", "a=x`60`y c=two`0a`lines");
    call("echo_money", "a.amount=1.5 a.currency=1 c.amount=2 c.currency=2");
    call("echo_route",
         "a^discriminator=10 a:mandate.creditor=A a:mandate.reference=R a:mandate.limit=3 "
         "c^discriminator=10 c:mandate.creditor=B c:mandate.reference=S c:mandate.limit=4");
    call("echo_longs", "a[0]=1 a[1]=2 c[0]=3 c[1]=4", IIOP_TWOWAY,
         "a^length=2 b^length=2 c^length=2 ^echo_longs^length=2");
    call("fail", "which=1");
    call("fail", "which=4");
    call("note", "n=5", IIOP_ONEWAY);
    call("notes_total", "");

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
    std::string bad = interop::run_program(
        {tshark, "-r", file, "-d", decode, "-Y", "_ws.malformed || _ws.expert.severity >= warning"},
        &err, &status);
    ASSERT_EQ(status, 0) << "tshark could not read the capture: " << err;
    EXPECT_EQ(bad, "") << "packets Wireshark finds malformed or worth a warning";

    // One line per frame with the types of its GIOP messages: 0 Request,
    // 1 Reply; one-way Requests are answered by nothing.
    std::string types = interop::run_program(
        {tshark, "-r", file, "-d", decode, "-Y", "giop", "-T", "fields", "-e", "giop.type"});
    std::replace(types.begin(), types.end(), ',', '\n');
    std::map<std::string, int> kinds;
    std::istringstream items(types);
    for (std::string item; std::getline(items, item);) ++kinds[item];
    // The Requests sent and a Reply to each but the one-way call.
    EXPECT_EQ(kinds, (std::map<std::string, int>{{"0", requests}, {"1", requests - 1}}))
        << "GIOP message types Wireshark read\n"
        << types;
}

}  // namespace
}  // namespace bank
