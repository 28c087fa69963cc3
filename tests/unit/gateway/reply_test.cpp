#include <iterator>
#include <sstream>
#include <utility>

#include "tests/unit/gateway/road.h"

namespace {

using road::Parms;
using V = std::vector<std::string>;

// The words of text, split at sep ("" gives none).
V split(const std::string &text, char sep = ' ') {
    V out;
    std::istringstream in(text);
    for (std::string w; std::getline(in, w, sep);)
        if (!w.empty()) out.push_back(w);
    return out;
}

// Reply reading follows sequences by their names: each case is one call with
// the list the script prepared and the longs the wire holds.
struct Reply : road::Road {
    // Runs the list against a Reply whose body is the given longs.
    int32_t reply_with(Parms &p, const std::vector<uint32_t> &wire) {
        peer::ScriptedPeer peer;
        peer.accept().read_message().send_for(road::answer([wire](peer::Writer &w) {
            for (uint32_t v : wire) w.ulong(v);
        }));
        hostkit::clear_printed();
        int32_t status = invoke(request(bind(peer), IIOP_TWOWAY, "op", p));
        EXPECT_TRUE(peer.wait());
        return status;
    }
    void run(Parms &p, const std::vector<uint32_t> &wire) {
        EXPECT_EQ(reply_with(p, wire), IIOP_OK) << text;
    }
    // Out records of long from "name" or "name=text" words ("old" when no
    // text); names with ^ or [ are sequence members.
    static void fill(Parms &p, const std::string &layout) {
        for (const std::string &w : split(layout)) {
            size_t eq = w.find('=');
            std::string name = w.substr(0, eq);
            std::string value = eq == std::string::npos ? "old" : w.substr(eq + 1);
            bool member = name.find_first_of("^[") != std::string::npos;
            p.add(PARM_OUT, 3, name.c_str(), value.c_str(), member ? 19 : 0);
        }
    }
    static std::vector<uint32_t> longs(const std::string &text) {
        std::vector<uint32_t> out;
        for (const std::string &w : split(text)) out.push_back(std::stoul(w));
        return out;
    }
    static bool traced(const std::string &line) { return hostkit::printed_contains(line); }
};

TEST_F(Reply, SequencesAreFollowedByNameWhateverTheLengthsSay) {
    // The lines each case traces and those it must not trace are split at |.
    struct Case {
        const char *what, *records, *wire, *values, *traced = "", *not_traced = "";
    } cases[] = {
        {"script 3, wire 2, then t^length", "s^length=3 s[0] s[1] s[2] t^length=1 t[0]",
         "2 10 20 1 30", "2 10 20 old 1 30",
         "vu_do_call:  WARNING -- returned sequence shorter than script is prepared for|"
         "vu_do_call:  (A) done with sequence 's'|vu_do_call:  skipping this parameter"},
        {"script 3, wire 2, then a plain record", "s^length=3 s[0] s[1] s[2] y", "2 10 20 99",
         "2 10 20 old 99", "vu_do_call:  (B) done with sequence 's'"},
        {"nested: the outer element counts by its first record on top",
         "x^length=2 x[0].y^length=1 x[0].y[0] x[0].z x[1].y^length=1 x[1].y[0] x[1].z",
         "2 1 5 6 1 7 8", "2 1 5 6 1 7 8"},
        // x[0].z counts as the second element, so x[1] seems to lie beyond the
        // wire's two: its records are passed over and "after" reads x[1].a.
        {"a struct element counts again when its records resume",
         "x^length=2 x[0].a x[0].y^length=1 x[0].y[0] x[0].z x[1].a x[1].y^length=1 x[1].y[0] "
         "x[1].z after",
         "2 1 1 5 6 2 1 7 8", "2 1 1 5 6 old 1 old old 2",
         "vu_do_call:  2 members processed|vu_do_call:  3 members processed"},
        {"script 0, wire 0", "s^length=0 after", "0 77", "0 77", "", "WARNING|ERROR"},
        // The elements' bytes are read by whatever record comes next.
        {"script 0, wire 2", "s^length=0 after", "2 10 20", "2 10",
         "vu_do_call:  ERROR -- returned sequence longer than script is prepared for"},
        // An empty sequence where the script expected some ends the reading.
        {"script 2, wire 0", "s^length=2 s[0] s[1] after", "0 77", "0 old old old",
         "vu_do_call:  seq len 0"},
        {"script 2, wire 1, struct elements", "s^length=2 s[0].a s[0].b s[1].a s[1].b after",
         "1 1 2 99", "1 1 2 old old 99"},
        // Ten sequences, each the only element of the one outside it; the
        // plain record behind them ends the innermost only.
        {"ten nested sequences",
         "s^length=1 s[0]^length=1 s[0][0]^length=1 s[0][0][0]^length=1 "
         "s[0][0][0][0]^length=1 s[0][0][0][0][0]^length=1 s[0][0][0][0][0][0]^length=1 "
         "s[0][0][0][0][0][0][0]^length=1 s[0][0][0][0][0][0][0][0]^length=1 "
         "s[0][0][0][0][0][0][0][0][0]^length=1 s[0][0][0][0][0][0][0][0][0][0] after",
         "1 1 1 1 1 1 1 1 1 1 5 9", "1 1 1 1 1 1 1 1 1 1 5 9",
         "vu_do_call:  (B) done with sequence 's[0][0][0][0][0][0][0][0][0]'",
         "(B) done with sequence 's[0][0][0][0][0][0][0][0]'"},
        // "ab" begins like "a", so a's frame stays below it.
        {"a sequence ab after a sequence a", "a^length=1 a[0] ab^length=1 ab[0]", "1 5 1 6",
         "1 5 1 6", "", "(A) done with sequence 'a'"},
    };
    // Untraced, plain values take a way of their own: the values must not
    // differ.
    for (int level : {1, 0}) {
        set_debug_level(level);
        for (const Case &c : cases) {
            Parms p;
            fill(p, c.records);
            run(p, longs(c.wire));
            EXPECT_EQ(p.values(), split(c.values)) << c.what << ", trace level " << level;
            if (level == 0) continue;
            for (const std::string &line : split(c.traced, '|'))
                EXPECT_TRUE(traced(line)) << c.what << ": " << line;
            for (const std::string &line : split(c.not_traced, '|'))
                EXPECT_FALSE(traced(line)) << c.what;
        }
    }
}

// Untraced, the elements that follow a length record are read in a run of
// their own; whatever the names, the run must end where the traced way would
// read differently, so both ways leave the same texts and the same outcome.
TEST_F(Reply, ElementRunsReadWhatTheTracedWayReads) {
    struct Case {
        const char *records;
        std::vector<uint32_t> wire;
    } cases[] = {
        {"s^length=3 s[0] s[0] s[1] s[2] after", {3, 1, 2, 3, 4, 5}},
        {"s^length=4 s[0] s[1]x s[] s[b] s[2 s[3] after", {4, 1, 2, 3, 4, 5, 6, 7}},
        {"s^length=2 s[0] s[1] s[2] s[3] after", {2, 1, 2, 3}},
        {"s^length=3 s[0] t[1] s[2] after", {3, 1, 2, 3, 4}},
        {"s^length=5 s[0] s[1] s[2]", {5, 1}},  // the Reply runs out inside the run
        {"s^length=2 s[1] s[0] s[10] s[01] after", {2, 1, 2, 3, 4, 5}},
        {"s^length=4294967295 s[0] s[1] after", {0xffffffffu, 1, 2, 3}},
        {"x^length=2 x[0].y^length=2 x[0].y[0] x[0].y[1] x[1].y^length=1 x[1].y[0] after",
         {2, 2, 1, 2, 1, 3, 4}},
        {"s^length=2 s[0]^length=1 s[0][0] s[1]^length=2 s[1][0] s[1][1] after",
         {2, 1, 1, 2, 2, 3, 4}},
        {"s^length=2 s[0]^length=0 s[0][0] s[1] after", {2, 0, 5, 6, 7}},
        // An expected name repeated, and expected names around one that is not.
        {"s^length=3 s[0] s[1] s[1] s[2] after", {3, 1, 2, 3, 4}},
        {"s^length=4 s[0] s[01] s[2] s[3] after", {4, 1, 2, 3, 4, 5}},
    };
    for (const Case &c : cases) {
        std::pair<int32_t, V> seen[2];  // the outcome and the texts
        for (int level : {1, 0}) {
            set_debug_level(level);
            Parms p;
            fill(p, c.records);
            // An in record inside the run stays as the script wrote it.
            if (ScriptParm *in = hostkit::find(p.head, "s[3]")) in->flags = PARM_IN;
            seen[level] = {reply_with(p, c.wire), p.values()};
        }
        EXPECT_EQ(seen[0], seen[1]) << c.records;
    }
    set_debug_level(0);
}

// Untraced, a run knows the name it expects next and writes numbers straight
// into the host's block: across every width of index and of number, for each
// type read as four bytes, and for a basename too long to be expected, the
// texts must be those the traced way writes.
TEST_F(Reply, ElementRunsWriteEveryWidthOfIndexAndNumber) {
    const uint32_t numbers[] = {0,          1,          9,          10,         99,
                                100,        999999999,  1000000000, 0x7fffffff, 0x80000000,
                                0xffffffff, 0xfffffff6, 0xffffff9c, 4294967286u};
    struct Layout {
        std::string base;
        int32_t type;
        int n;
    } layouts[] = {{"s", 3, 1005}, {"u", 5, 120}, {"e", 17, 12}, {std::string(200, 'b'), 3, 12}};
    for (const Layout &l : layouts) {
        std::vector<uint32_t> wire{static_cast<uint32_t>(l.n)};
        V want{std::to_string(l.n)};
        for (int i = 0; i < l.n; ++i) {
            uint32_t w = numbers[i % std::size(numbers)];
            wire.push_back(w);
            want.push_back(l.type == 5 ? std::to_string(w)
                                       : std::to_string(static_cast<int32_t>(w)));
        }
        wire.push_back(77);
        want.push_back("77");
        for (int level : {1, 0}) {
            set_debug_level(level);
            Parms p;
            p.add(PARM_OUT, 3, (l.base + "^length").c_str(), std::to_string(l.n).c_str(), 19);
            for (int i = 0; i < l.n; ++i)
                p.add(PARM_OUT, l.type, (l.base + "[" + std::to_string(i) + "]").c_str(),
                      i % 2 == 0 ? "old" : nullptr, 19);
            p.add(PARM_OUT, 3, "after", "old");
            run(p, wire);
            EXPECT_EQ(p.values(), want) << l.base << " " << l.type << ", trace level " << level;
        }
    }
    set_debug_level(0);
}

TEST_F(Reply, InRecordsMissingLengthsAndNamelessRecordsDoNotDisturbTheReading) {
    Parms p{{PARM_OUT, 3, "s^length", nullptr, 19},
            {PARM_IN, 3, "s[0]", "in", 19},
            {PARM_INOUT, 3, "v", "3"}};
    run(p, {1, 44});
    EXPECT_EQ(p.values(), (V{"1", "in", "44"}));
    EXPECT_TRUE(traced("vu_do_call:  No sequence length in script"));
    EXPECT_TRUE(traced("vu_do_call:  Check for possible mismatch between IDL and script"));

    // A record without a name ends the sequence in progress.
    Parms q;
    fill(q, "s^length=1 s[0] x");
    std::free(q.tail->name);
    q.tail->name = nullptr;
    run(q, {1, 5, 9});
    EXPECT_EQ(q.values(), (V{"1", "5", "9"}));
    EXPECT_TRUE(traced("vu_do_call:  (B) done with sequence 's'"));
}

TEST_F(Reply, AHundredThousandElementSequenceIsReadInOnePass) {
    constexpr int n = 100000;
    Parms p;
    p.sequence(PARM_OUT, "s", n);
    p.add(PARM_OUT, 3, "after", "old");
    std::vector<uint32_t> wire{n};
    for (uint32_t i = 0; i < n; ++i) wire.push_back(i * 3);
    wire.push_back(5);
    set_debug_level(0);
    run(p, wire);
    EXPECT_EQ(p.values({"s[99999]", "after"}), (V{"299997", "5"}));
}

}  // namespace
