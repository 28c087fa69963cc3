// Every limit against hostile input, tried at its value and one past it:
// the first must be accepted, the second refused the usual way.
#include "orbelle/limits.h"

#include <functional>

#include "data/any.h"
#include "data/decoder.h"
#include "data/stdtypes.h"
#include "gateway/getior.h"
#include "tests/unit/data/tc_builder.h"
#include "tests/unit/gateway/road.h"
#include "tests/unit/repository/pirtest.h"

namespace {

using tcb::Bytes;
using tcb::Enc;
using tcb::Held;

const tcb::Tc le;

// Wire bytes in a 16-aligned block, opened for reading.
struct Input {
    explicit Input(const Bytes &wire) : bytes(wire.size() + 16, 0) {
        unsigned char *at = bytes.data();
        at += (16 - reinterpret_cast<uintptr_t>(at) % 16) % 16;
        std::memcpy(at, wire.data(), wire.size());
        cdr.read_in_place(at, static_cast<uint32_t>(wire.size()));
        cdr.origin = at;
    }
    std::vector<unsigned char> bytes;
    CDR cdr;
};

// Whether the size of the type is answered without an exception.
bool sized(const Bytes &wire) {
    Held tc(wire);
    Environment env;
    tc->valueSize(env);
    return !env.has_exception();
}

// n struct levels, the innermost holding a long.
Bytes nested_structs(uint64_t n) {
    Bytes t = le.simple(tk_long);
    for (uint64_t i = 0; i < n; ++i) t = le.structure("IDL:S:1.0", {{"m", t}});
    return t;
}

// One struct of n long members.
Bytes wide_struct(uint64_t n) {
    std::vector<std::pair<std::string, Bytes>> members(n, {"m", le.simple(tk_long)});
    return le.structure("IDL:W:1.0", members);
}

// An any holding n anys inside each other, the innermost holding a long.
bool decodes_nested_anys(uint64_t n) {
    Enc wire(false, false);
    for (uint64_t i = 0; i < n; ++i) wire.tc(le.simple(tk_any));
    wire.tc(le.simple(tk_long)).ulong(7);
    Input in(wire.bytes());
    Environment env;
    alignas(16) unsigned char value[64] = {0};
    int ok = decoder(tc_any(), value, nullptr, &in.cdr, env);
    if (ok) destroy_any(value);
    return ok == 1;
}

// A union whose value block holds a 1 MiB array, sent as its octet arm.
Bytes roomy_union() {
    return le.union_of(le.simple(tk_boolean), tk_boolean, -1,
                       {{1, le.simple(tk_octet)}, {0, le.array(le.simple(tk_octet), 1u << 20)}});
}

// Bytes of value memory one any holding roomy_union takes, its record in
// the sequence included.
uint64_t roomy_any_memory() {
    Held u(roomy_union());
    Environment env;
    return uint64_t{u->valueSize(env)} + tc_any()->valueSize(env);
}

// A short message holding a sequence of n anys, each a roomy_union: every
// block is allowed alone, so only their sum can refuse them.
bool decodes_roomy_anys(uint64_t n) {
    Enc wire(false, false);
    wire.ulong(static_cast<uint32_t>(n));
    for (uint64_t i = 0; i < n; ++i) wire.tc(roomy_union()).octet(1).octet(7);
    Input in(wire.bytes());
    Held seq(le.sequence(le.simple(tk_any)));
    Environment env;
    alignas(16) unsigned char value[64] = {0};
    int ok = decoder(seq.get(), value, nullptr, &in.cdr, env);
    Environment local;
    freeValue(seq.get(), value, nullptr, nullptr, local);
    return ok == 1;
}

// A list file whose only line, n characters long, names the instance.
bool list_line_read(uint64_t n) {
    testsupport::TempDir dir;
    std::string line = "A," + std::string(n - 2, 'x');
    dir.write("list", line + "\n");
    iiop_record record = road::bind_record(nullptr, nullptr, "A", "one");
    std::string alternative = "filed(" + dir.path() + "/list)";
    return get_ior(&record, alternative.c_str()) == line.substr(2);
}

bool csv_accepted(const std::string &text) { return pirtest::parse_failure(text).empty(); }

// A two-way call to a server that answers n times with a forward to itself,
// then with a long: whether the call gets the long.
struct Door : road::Road {
    void TestBody() override {}
    bool heard_after_forwards(uint64_t n) {
        peer::ScriptedPeer peer;
        uint16_t port = peer.port();
        peer.accept();
        for (uint64_t i = 0; i < n; ++i)
            peer.read_message().send_for(road::answer(
                [port](peer::Writer &w) { road::put_ior(w, "IDL:T:1.0", port, "key"); }, 3));
        peer.read_message().send_for(peer::answer_long(5));
        road::Parms p("r");
        iiop_req &req = request(bind(peer), IIOP_TWOWAY, "op", p);
        hostkit::clear_printed();
        if (invoke(req) == IIOP_OK) return std::strcmp(p.value("r"), "5") == 0;
        EXPECT_EQ(text, "IDL:omg.org/CORBA/COMM_FAILURE:1.0");
        EXPECT_TRUE(hostkit::printed_contains("vu_do_call:  sent " + std::to_string(n) +
                                              " times without a reply, giving up"));
        return false;
    }
};

struct Edge {
    const char *limit;
    uint64_t value;
    std::function<bool(uint64_t)> accepted;
};

TEST(Limits, EachLimitAcceptsItsValueAndRefusesOneMore) {
    // The library starts up (slots, ORB) as a host would start it.
    [[maybe_unused]] hostkit::Host host = testsupport::linked_host();
    inittypecodes();
    fill_value_table();
    const uint64_t floor = limits::value_memory_floor;
    const uint32_t left = 4u << 20;  // bytes left in the message
    const Edge edges[] = {
        // n TypeCodes inside each other: n - 1 structs around a long.
        {"max_typecode_depth", limits::max_typecode_depth,
         [](uint64_t n) { return sized(nested_structs(n - 1)); }},
        {"max_typecode_steps", limits::max_typecode_steps,
         [](uint64_t n) { return sized(wide_struct(n)); }},
        {"max_value_depth", limits::max_value_depth,
         // The any read first is a level, and each any inside it.
         [](uint64_t n) { return decodes_nested_anys(n - 1); }},
        {"max_value_size", limits::max_value_size,
         [](uint64_t n) { return sized(le.array(le.simple(tk_octet), static_cast<uint32_t>(n))); }},
        {"value_memory_floor (nothing left in the message)", floor,
         [](uint64_t n) { return value_block_allowed(n, 0); }},
        {"value_memory_ratio (bytes per byte left)",
         limits::value_memory_ratio * left + limits::value_memory_ratio - 1,
         [](uint64_t n) { return value_block_allowed(n, left); }},
        {"value_memory_allowance (a message's values together)", floor / roomy_any_memory(),
         decodes_roomy_anys},
        {"max_csv_token_length", limits::max_csv_token_length,
         [](uint64_t n) {
             return csv_accepted("att i " + std::string(n, 'n') + " normal . long");
         }},
        {"max_csv_type_depth", static_cast<uint64_t>(limits::max_csv_type_depth),
         [](uint64_t n) {
             std::string t = "opr a b normal res ";
             for (uint64_t i = 1; i < n; ++i) t += ". sequence 0 ";
             return csv_accepted(t + ". long");
         }},
        {"max_csv_array_elements", limits::max_csv_array_elements,
         [](uint64_t n) {
             return csv_accepted("opr a b normal res . array " + std::to_string(n) + " . long");
         }},
        {"max_list_line", limits::max_list_line, list_line_read},
        {"max_call_restarts", limits::max_call_restarts,
         [](uint64_t n) { return Door().heard_after_forwards(n); }},
    };
    for (const Edge &e : edges) {
        EXPECT_TRUE(e.accepted(e.value)) << e.limit << " at " << e.value;
        EXPECT_FALSE(e.accepted(e.value + 1)) << e.limit << " at " << e.value + 1;
    }
}

}  // namespace
