// From a capture to a script: a client's calls on the demo's interfaces,
// in messages the test chooses, read back as the commands that repeat them.
#include "tools/recorder/recording.h"

#include <gtest/gtest.h>

#include <sstream>

#include "orbelle/limits.h"
#include "tests/support.h"
#include "tests/unit/recorder/capture_writer.h"
#include "tools/recorder/script_writer.h"

using testsupport::expect_has;
using testsupport::expect_lacks;

using namespace recorder;
using capwrite::Giop;
using capwrite::giop_start;
using capwrite::Packet;
using capwrite::sized;

namespace {

const capwrite::Host client = capwrite::v4(1, 40000), server = capwrite::v4(2, 2809);

// A conversation on one connection, written as a capture.
class Conversation {
public:
    void from_client(const Giop &message, int64_t at_ms) { send(true, sized(message), at_ms); }
    void from_server(const Giop &message, int64_t at_ms) { send(false, sized(message), at_ms); }
    // A message in segments, each as it is.
    void from_client(const std::string &bytes, int64_t at_ms) { send(true, bytes, at_ms); }
    void from_server(const std::string &bytes, int64_t at_ms) { send(false, bytes, at_ms); }
    // The network's doing: the last segment again, the last two swapped.
    void resend_last() { packets_.push_back(packets_.back()); }
    // The first segment after the two that open the connection lost.
    void lose_first() { packets_.erase(packets_.begin() + 2); }
    void swap_last_two() { std::iter_swap(packets_.end() - 2, packets_.end() - 1); }
    std::string capture() const { return capwrite::pcap_file(DLT_EN10MB, packets_); }

private:
    static Packet packet(bool up, uint32_t seq, uint8_t flags, const std::string &m, int64_t us) {
        const capwrite::Host &from = up ? client : server, &to = up ? server : client;
        return {us, capwrite::frame(DLT_EN10MB, capwrite::ip_tcp(from, to, seq, flags, m))};
    }
    void send(bool up, const std::string &m, int64_t at_ms) {
        uint32_t &seq = up ? up_ : down_;
        packets_.push_back(packet(up, seq, 0x10, m, at_ms * 1000));
        seq += static_cast<uint32_t>(m.size());
    }
    std::vector<Packet> packets_ = {packet(true, 99, 0x02, "", 0),
                                    packet(false, 4999, 0x12, "", 0)};
    uint32_t up_ = 100, down_ = 5000;
};

Giop request10(uint32_t id, const std::string &key, const std::string &op, bool twoway = true) {
    Giop g = giop_start(0, false, 0);
    g.ulong(0).ulong(id).octet(twoway ? 1 : 0).octets(key).string(op).octets("");
    return g;
}

Giop reply10(uint32_t id, uint32_t status = 0) {
    Giop g = giop_start(0, false, 1);
    g.ulong(0).ulong(id).ulong(status);
    return g;
}

// A reference to key on the capture's server, as a server writes it.
Giop ior(Giop g, const std::string &type_id, const std::string &key) {
    return g.string(type_id).ulong(1).ulong(0).octets(capwrite::iiop_profile(key));
}

// The bank conversation: a reference and an id handed out and used again,
// a fragmented 1.2 exchange in little-endian order, a user exception, a
// sequence of structs, a pause, a one-way call, a probe and a union.
std::string bank_capture() {
    Conversation c;
    c.from_client(request10(1, "bank-key", "find_account").string("1001"), 1000);
    c.from_server(ior(reply10(1), "IDL:Banking/Account:1.0", "acc-1001"), 1001);

    // _get_number in GIOP 1.2, little-endian, the Request in two fragments.
    Giop first = giop_start(2, true, 0, 2);
    first.ulong(2).octet(3).octet(0).octet(0).octet(0).ushort(0).octets("acc-1001");
    Giop last = giop_start(2, true, 7);
    last.ulong(2).raw(std::string("\x0c\x00\x00\x00_get_number\x00", 16)).ulong(0);
    c.from_client(sized(first) + sized(last), 1002);
    c.from_server(giop_start(2, true, 1).ulong(2).ulong(0).ulong(0).align(8).string("ACC-7781"),
                  1003);

    c.from_client(request10(3, "bank-key", "find_account").string("ACC-7781"), 1004);
    c.from_server(reply10(3, 1).string("IDL:Banking/UnknownAccount:1.0").string("ACC-7781"), 1005);

    c.from_client(request10(4, "acc-1001", "statement").ulong(2), 1006);
    Giop r4 = reply10(4);
    r4.ulong(1).ulong(7).string("2024-01-31").string("Salary").ulong(0);
    r4.align(8).raw(std::string("\x40\xa4\x50\x00\x00\x00\x00\x00", 8)).ulong(1);
    r4.align(8).raw(std::string("\x40\xb3\x88\x00\x00\x00\x00\x00", 8));
    c.from_server(r4, 1007);

    // Two seconds later: a new step.
    c.from_client(request10(5, "bank-key", "audit", false).string("who").string("ev ent"), 3007);
    c.from_client(request10(6, "bank-key", "_is_a").string("IDL:Banking/Bank:1.0"), 3008);
    c.from_server(reply10(6).octet(1), 3009);
    c.from_client(request10(7, "bank-key", "transfer").raw("no union here"), 3010);
    return c.capture();
}

// The writer and the recording of the latest record(), for what they hold
// besides the script.
std::unique_ptr<ScriptWriter> last_writer;
std::unique_ptr<Recording> last_recording;

std::string record(const std::string &capture, RecordOptions options, WriteOptions write = {}) {
    testsupport::TempDir dir;
    dir.write("c.pcap", capture);
    options.dir = testsupport::data_path("../../demo");
    write.source = "c.pcap";
    std::ostringstream body, out;
    last_writer = std::make_unique<ScriptWriter>(write, body);
    last_recording = std::make_unique<Recording>(options, *last_writer);
    Recording *rec = last_recording.get();
    std::string error;
    EXPECT_TRUE(rec->read(dir.path() + "/c.pcap", error)) << error;
    rec->finish();
    last_writer->finish();
    last_writer->header(*rec, out);
    return out.str() + body.str();
}

}  // namespace

// Options: checks of the reply values (references and saved ids left
// out), pauses as think lines, servers and clients filtered, an object's
// interface given by hand.
TEST(Recording, OptionsShapeTheScript) {
    std::string script =
        record(bank_capture(), {}, {"", /*checks=*/true, /*think=*/true, 1000, ""});
    expect_has(script, {"\ncheck ^statement[0].text Salary\n",
                        "\ncheck ^statement[0].amount.amount 2600.000000\n",
                        "\ncheck ^statement[0].kind 0\n", "\nthink 2000\n"});
    expect_lacks(script, {"check ^find_account", "check ^_get_number"});

    // In values to a data file: strings and numbers, one column per
    // operation and name, the recorded value its row; ids sent back stay
    // variables.
    script = record(bank_capture(), {}, {"", false, false, 1000, "some/where/values.csv"});
    expect_has(script,
               {"\ndata values.csv as recorded\n", "\nset number ${recorded.find_account_number}\n",
                "\nset number ${get_number_2}\n", "\nset event ${recorded.audit_event}\n"});
    EXPECT_EQ(last_writer->data_text(),
              "find_account_number,statement_max_entries,audit_who,audit_event\n"
              "1001,2,who,ev ent\n");

    // Servers and a client filtered; an object's interface given.
    script = record(bank_capture(), {".", {"127.0.0.2:9999"}, "", {}});
    expect_lacks(script, {"params"});
    expect_has(script, {"12 messages of other hosts"});
    expect_has(record(bank_capture(), {".", {"127.0.0.2:2809"}, "127.0.0.1", {}}),
               {"params bank find_account"});
    expect_has(record(bank_capture(), {".", {}, "", {{"bank-key", "IDL:Banking/Diagnostics:1.0"}}}),
               {"# not decoded: find_account on diagnostics"});
}

// A naming service's resolve becomes a bind through it, by the name the
// client resolved; the capture's retransmitted and reordered segments and
// a Reply split across two segments change nothing.
TEST(Recording, NamingResolvesBecomeBindsAndTheNetworkChangesNothing) {
    Conversation c;
    c.from_client(request10(1, "NameService", "resolve").ulong(1).string("Bank").string(""), 1);
    c.resend_last();
    std::string reply = sized(ior(reply10(1), "IDL:Banking/Bank:1.0", "bank-key"));
    c.from_server(reply.substr(0, 20), 2);
    c.from_server(reply.substr(20), 2);
    c.swap_last_two();
    c.from_client(request10(2, "bank-key", "_get_name"), 3);
    c.from_client(request10(3, "bank-key", "audit_count"), 4);
    c.swap_last_two();
    c.resend_last();
    c.from_server(reply10(2).string("Harbour Bank"), 5);
    c.from_server(reply10(3).ulong(4), 6);
    std::string script = record(c.capture(), {});
    const std::string naming =
        reference_text("IDL:omg.org/CosNaming/NamingContext:1.0", "127.0.0.2", 2809, "NameService");
    expect_has(script, {"\nbind bank IDL:Banking/Bank:1.0 Bank \"NameService(" + naming +
                            ")\"\nparams bank _get_name\ninvoke\nparams bank audit_count\n",
                        "1 naming service calls"});
    EXPECT_EQ(std::make_pair(last_recording->calls_recorded, last_recording->left_out.unanswered),
              std::make_pair(uint64_t{2}, uint64_t{0}));
}

// A value a reply gave is saved when a request sends it back while the
// reply's call is still held, and written as it is one call later.
TEST(Recording, ValuesAreSavedWithinTheHeldCallsOnly) {
    for (size_t fillers : {limits::max_recorded_calls_held - 1, limits::max_recorded_calls_held}) {
        Conversation c;
        c.from_client(request10(1, "acc-1", "_get_number"), 1);
        c.from_server(reply10(1).string("ACC-7781"), 2);
        for (uint32_t i = 0; i < fillers; ++i)
            c.from_client(request10(2 + i, "bank-key", "audit", false).string("w").string("e"), 3);
        c.from_client(request10(99999, "bank-key", "find_account").string("ACC-7781"), 4);
        std::string script = record(c.capture(), {});
        const bool held = fillers < limits::max_recorded_calls_held;
        (held ? expect_has : expect_lacks)(script, {"\nset number ${get_number_1}\n"});
        (held ? expect_lacks : expect_has)(script, {"\nset number ACC-7781\n"});
    }
}

// A capture that lost bytes says so; a truncated capture keeps what came
// before; requests without a reply are counted.
TEST(Recording, LossesAreReportedNotGuessed) {
    std::string whole = bank_capture();
    expect_has(record(whole.substr(0, whole.size() - 30), {}), {"(read up to there)"});

    // The first request's segment lost: its bytes are missing before the next.
    Conversation lost;
    lost.from_client(request10(1, "bank-key", "find_account").string("1001"), 1);
    lost.from_client(request10(2, "bank-key", "audit_count"), 2);
    lost.lose_first();
    expect_has(record(lost.capture(), {}),
               {"bytes missing from the capture", "params bank audit_count",
                "# 1 requests have no reply in the capture"});
}
