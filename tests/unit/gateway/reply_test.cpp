#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/unit/gateway/road.h"

namespace {

using road::Parms;

// Reply reading follows sequences by their names: each case is one call with
// the list the script prepared and the longs the wire holds.
struct Reply : road::Road {
    // Runs the list against a Reply whose body is the given longs.
    void run(Parms &p, std::vector<uint32_t> wire) {
        peer::ScriptedPeer peer;
        peer.accept().read_message().send_for(road::answer([wire](peer::Writer &w) {
            for (uint32_t v : wire) w.ulong(v);
        }));
        peer.start();
        hostkit::clear_printed();
        ASSERT_EQ(invoke(request(bind(peer.port()), IIOP_TWOWAY, "op", p)), IIOP_OK) << text;
        ASSERT_TRUE(peer.wait());
    }
    static std::vector<std::string> values(const Parms &p) {
        std::vector<std::string> out;
        for (ScriptParm *q = p.head; q != nullptr; q = q->next)
            out.push_back(q->strval != nullptr ? q->strval : "NULL");
        return out;
    }
    static bool traced(const std::string &line) { return hostkit::printed_contains(line); }
};

using V = std::vector<std::string>;

TEST_F(Reply, ShorterSequencesPassOverTheSurplusAndEndAtTheNextRecordOutside) {
    Parms p;
    p.sequence(PARM_OUT, "s", 3);
    p.sequence(PARM_OUT, "t", 1);
    run(p, {2, 10, 20, 1, 30});
    EXPECT_EQ(values(p), (V{"2", "10", "20", "old", "1", "30"}));
    EXPECT_TRUE(
        traced("vu_do_call:  WARNING -- returned sequence shorter than script is prepared for"));
    EXPECT_TRUE(traced("vu_do_call:  (A) done with sequence 's'"));
    EXPECT_TRUE(traced("vu_do_call:  skipping this parameter"));

    Parms q;
    q.sequence(PARM_OUT, "s", 3);
    q.add(PARM_OUT, 3, "y", "old");
    run(q, {2, 10, 20, 99});
    EXPECT_EQ(values(q), (V{"2", "10", "20", "old", "99"}));
    EXPECT_TRUE(traced("vu_do_call:  (B) done with sequence 's'"));
}

TEST_F(Reply, NestedSequencesCountTheOuterElementByItsFirstRecordOnTop) {
    Parms p;
    p.add(PARM_OUT, 3, "x^length", "2", 19);
    for (const char *e : {"x[0]", "x[1]"}) {
        std::string base = e;
        p.add(PARM_OUT, 3, (base + ".y^length").c_str(), "1", 19);
        p.add(PARM_OUT, 3, (base + ".y[0]").c_str(), "old", 19);
        p.add(PARM_OUT, 3, (base + ".z").c_str(), "old", 19);
    }
    run(p, {2, 1, 5, 6, 1, 7, 8});
    EXPECT_EQ(values(p), (V{"2", "1", "5", "6", "1", "7", "8"}));
}

TEST_F(Reply, AStructElementCountsAgainWhenItsRecordsResumeAfterANestedSequence) {
    Parms p;
    p.add(PARM_OUT, 3, "x^length", "2", 19);
    for (const char *e : {"x[0]", "x[1]"}) {
        std::string base = e;
        p.add(PARM_OUT, 3, (base + ".a").c_str(), "old", 19);
        p.add(PARM_OUT, 3, (base + ".y^length").c_str(), "1", 19);
        p.add(PARM_OUT, 3, (base + ".y[0]").c_str(), "old", 19);
        p.add(PARM_OUT, 3, (base + ".z").c_str(), "old", 19);
    }
    p.add(PARM_OUT, 3, "after", "old");
    // x[0].z counts as the second element, so x[1] seems to lie beyond the
    // wire's two: its records are passed over and "after" reads x[1].a.
    run(p, {2, 1, 1, 5, 6, 2, 1, 7, 8});
    EXPECT_EQ(values(p), (V{"2", "1", "1", "5", "6", "old", "1", "old", "old", "2"}));
    EXPECT_TRUE(traced("vu_do_call:  2 members processed"));
    EXPECT_TRUE(traced("vu_do_call:  3 members processed"));
}

TEST_F(Reply, LengthsThatDisagreeAreTracedAndReadAsTheStepsSay) {
    Parms zero_zero, zero_two, two_zero, struct_elements, prefix;
    zero_zero.sequence(PARM_OUT, "s", 0);
    zero_zero.add(PARM_OUT, 3, "after", "old");
    run(zero_zero, {0, 77});
    EXPECT_EQ(values(zero_zero), (V{"0", "77"}));
    EXPECT_FALSE(traced("WARNING"));
    EXPECT_FALSE(traced("ERROR"));

    // The elements' bytes are read by whatever record comes next.
    zero_two.sequence(PARM_OUT, "s", 0);
    zero_two.add(PARM_OUT, 3, "after", "old");
    run(zero_two, {2, 10, 20});
    EXPECT_EQ(values(zero_two), (V{"2", "10"}));
    EXPECT_TRUE(
        traced("vu_do_call:  ERROR -- returned sequence longer than script is prepared for"));

    // An empty sequence where the script expected some ends the reading.
    two_zero.sequence(PARM_OUT, "s", 2);
    two_zero.add(PARM_OUT, 3, "after", "old");
    run(two_zero, {0, 77});
    EXPECT_EQ(values(two_zero), (V{"0", "old", "old", "old"}));
    EXPECT_TRUE(traced("vu_do_call:  seq len 0"));

    struct_elements.add(PARM_OUT, 3, "s^length", "2", 19);
    for (const char *n : {"s[0].a", "s[0].b", "s[1].a", "s[1].b"})
        struct_elements.add(PARM_OUT, 3, n, "old", 19);
    struct_elements.add(PARM_OUT, 3, "after", "old");
    run(struct_elements, {1, 1, 2, 99});
    EXPECT_EQ(values(struct_elements), (V{"1", "1", "2", "old", "old", "99"}));

    // "ab" begins like "a", so a's frame stays below it.
    prefix.sequence(PARM_OUT, "a", 1);
    prefix.sequence(PARM_OUT, "ab", 1);
    run(prefix, {1, 5, 1, 6});
    EXPECT_EQ(values(prefix), (V{"1", "5", "1", "6"}));
    EXPECT_FALSE(traced("(A) done with sequence 'a'"));
}

TEST_F(Reply, InRecordsAndMissingLengthsDoNotDisturbTheReading) {
    Parms p;
    p.add(PARM_OUT, 3, "s^length", nullptr, 19);
    p.add(PARM_IN, 3, "s[0]", "in", 19);
    p.add(PARM_INOUT, 3, "v", "3");
    run(p, {1, 44});
    EXPECT_EQ(values(p), (V{"1", "in", "44"}));
    EXPECT_TRUE(traced("vu_do_call:  No sequence length in script"));
    EXPECT_TRUE(traced("vu_do_call:  Check for possible mismatch between IDL and script"));
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
    EXPECT_STREQ(p.value("s[99999]"), "299997");
    EXPECT_STREQ(p.tail->strval, "5");
}

}  // namespace
