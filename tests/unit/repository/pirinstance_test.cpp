#include "repository/pirinstance.h"

#include <gtest/gtest.h>

#include <map>

#include "repository/pirapi.h"
#include "tests/support.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

namespace {
struct Call {
    std::string op;
    int32_t type, supertype;
    uint32_t flg;
    std::string stl, stf, sub;
    int32_t index;
    bool operator==(const Call &o) const {
        return op == o.op && type == o.type && supertype == o.supertype && flg == o.flg &&
               stl == o.stl && stf == o.stf && sub == o.sub;
    }
};

std::ostream &operator<<(std::ostream &out, const Call &c) {
    return out << c.op << " " << c.type << " " << c.supertype << " " << c.flg << " '" << c.stl
               << "' '" << c.stf << "' '" << c.sub << "'";
}

// Records every call; lengths by subNam (default 0), one member answer.
class Recorder : public PirPrimitiveCallback {
public:
    std::vector<Call> calls;
    std::map<std::string, uint32_t> lengths;
    uint32_t member = 0;
    std::string rename;  // new stfNam given to every leaf when not empty

    void NewPrimitive(PirPrimitive &p) override {
        add("NewPrimitive", p);
        p.val = "v" + std::to_string(calls.size());
        p.auxNum = 7;
        if (!rename.empty()) p.stfNam = rename;
    }
    void NewSequence(PirPrimitive &p) override { add("NewSequence", p); }
    void NewUnion(PirPrimitive &p) override { add("NewUnion", p); }
    uint32_t NewSequenceLength(PirPrimitive &p) override {
        add("NewSequenceLength", p);
        return lengths[p.subNam];
    }
    uint32_t NewUnionDiscriminator(PirPrimitive &p) override {
        add("NewUnionDiscriminator", p);
        return member;
    }

private:
    void add(const char *op, const PirPrimitive &p) {
        calls.push_back({op, p.type, p.supertype, p.flg, p.stlNam, p.stfNam, p.subNam, p.index});
    }
};

// Walks the type of the first parameter (or, without one, the result) of the
// first operation of text.
std::vector<Call> walk(const std::string &text, Recorder &rec, PirInstance **kept = nullptr) {
    Tree ifc = parse_text(text);
    auto *opr = child<PirOprNod>(ifc.get(), 0);
    PirParNod *par = PirGetFirstParameter(opr);
    PirTypNod *typ = par ? PirGetParameterType(par) : PirGetResultType(PirGetResult(opr));
    PirInstance *ins = PirCreateInstance(typ, &rec);
    if (kept) {
        // The instance keeps pointers into the tree; keep both alive.
        *kept = ins;
        ifc.release();
    } else {
        PirFreeInstance(ins);
    }
    return rec.calls;
}

std::string walk_failure(const std::string &text, Recorder &rec) {
    try {
        walk(text, rec);
    } catch (PirException e) {
        return e.msg;
    }
    return "";
}

std::vector<std::string> leaves(const std::vector<Call> &calls, bool stateful) {
    std::vector<std::string> out;
    for (const auto &c : calls)
        if (c.op == "NewPrimitive") out.push_back(stateful ? c.stf : c.stl);
    return out;
}

using S = std::vector<std::string>;
}  // namespace

TEST(PirCreateInstance, UnionWalkAsksForDiscriminatorThenWalksTheMember) {
    Recorder rec;
    rec.member = 1;
    rec.lengths["choice:b^length"] = 2;
    PirIntNod *ifc =
        PirReadInterfaceFile(testsupport::data_path("idl/Bank-Teller-Account.csv").c_str());
    PirOprNod *transfer = PirGetOperation(ifc, "transfer");
    PirParNod *to = PirGetFirstParameter(transfer);
    PirFreeInstance(PirCreateInstance(PirGetParameterType(to), &rec));
    EXPECT_EQ(rec.calls,
              (std::vector<Call>{{"NewPrimitive", 18, 15, 0, "to.bank", "to.bank", "", 0},
                                 {"NewPrimitive", 3, 15, 0, "to.branch", "to.branch", "", 1}}));
    rec.calls.clear();
    PirParNod *choice = PirGetNextParameter(to);
    PirFreeInstance(PirCreateInstance(PirGetParameterType(choice), &rec));
    std::vector<Call> expected = {
        {"NewUnion", 16, 0, 0, "choice", "choice", "", 0},
        {"NewPrimitive", 3, 16, 1, "choice^discriminator", "choice^discriminator", "", 0},
        {"NewUnionDiscriminator", 16, 0, 0, "choice", "choice", "choice^discriminator", 0},
        {"NewSequence", 19, 16, 0, "choice:b", "choice:b", "", 1},
        {"NewSequenceLength", 19, 16, 0, "choice:b", "choice:b", "choice:b^length", 1},
        {"NewPrimitive", 10, 19, 0, "choice:b[]", "choice:b[0]", "", 0},
        {"NewPrimitive", 10, 19, 0, "choice:b[]", "choice:b[1]", "", 1},
    };
    EXPECT_EQ(rec.calls, expected);
    EXPECT_EQ(rec.calls[3].index, 1);  // member position, not counting the discriminator
    PirFreeInterface(ifc);
}

TEST(PirCreateInstance, SequencesAskTheirLengthAndRespectTheBound) {
    Recorder empty;
    auto calls = walk("opr o x normal res . void par in s . sequence 0 . long", empty);
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].op, "NewSequence");
    EXPECT_EQ(calls[1].sub, "s^length");

    Recorder nested;
    nested.lengths = {{"a^length", 2}, {"a[0]^length", 1}, {"a[1]^length", 2}};
    calls = walk("opr o x normal res . void par in a . sequence 0 . sequence 0 . short", nested);
    EXPECT_EQ(leaves(calls, true), (S{"a[0][0]", "a[1][0]", "a[1][1]"}));
    EXPECT_EQ(leaves(calls, false), (S{"a[][]", "a[][]", "a[][]"}));

    Recorder at_bound;
    at_bound.lengths["s^length"] = 3;
    EXPECT_EQ(walk_failure("opr o x normal res . void par in s . sequence 3 . long", at_bound), "");
    EXPECT_EQ(leaves(at_bound.calls, true).size(), 3u);
    Recorder past_bound;
    past_bound.lengths["s^length"] = 4;
    EXPECT_EQ(walk_failure("opr o x normal res . void par in s . sequence 3 . long", past_bound),
              "invalid sequence length");
    EXPECT_EQ(past_bound.calls.size(), 2u);  // no element was walked
}

TEST(PirCreateInstance, UnionMemberPositionMustNameAMember) {
    const std::string text =
        "opr o x normal res . void par in u . union . long 3 a short b long c string";
    Recorder last;
    last.member = 2;
    EXPECT_EQ(walk_failure(text, last), "");
    ASSERT_EQ(last.calls.size(), 4u);
    EXPECT_EQ(last.calls[3].stf, "u:c");
    EXPECT_EQ(last.calls[3].type, 18);
    EXPECT_EQ(last.calls[3].index, 2);
    Recorder beyond;
    beyond.member = 3;
    EXPECT_EQ(walk_failure(text, beyond), "invalid union discriminator");
    EXPECT_EQ(beyond.calls.back().op, "NewUnionDiscriminator");
}

TEST(PirCreateInstance, NamesComposeFromSeparatorsAndParameterName) {
    Recorder arr;
    auto calls = walk("opr o x normal res . void par in p . array 3 . long", arr);
    EXPECT_EQ(leaves(calls, true), (S{"p[0]", "p[1]", "p[2]"}));
    EXPECT_EQ(leaves(calls, false), (S{"p[]", "p[]", "p[]"}));
    EXPECT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].supertype, 20);

    Recorder res;
    calls = walk("opr o x normal res . struct 2 m long n sequence 0 . short", res);
    EXPECT_EQ(leaves(calls, true), (S{".m"}));
    EXPECT_EQ(calls[2].sub, ".n^length");

    Recorder named;
    calls = walk("opr o x normal res . void par in p x struct 1 y array 1 z long", named);
    EXPECT_EQ(leaves(calls, true), (S{"px.y[0]z"}));

    Recorder nothing;
    EXPECT_TRUE(walk("opr o x normal res . void par in p . struct 0", nothing).empty());
    Recorder vd;
    calls = walk("opr o x normal res . void", vd);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].type, 1);
    EXPECT_EQ(calls[0].stl, "");

    Recorder alias;
    calls = walk("opr o x normal res . void par in p . alias", alias);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].type, 21);
}

TEST(PirCreateInstance, InstanceTreeMirrorsTheWalkedValue) {
    Recorder rec;
    rec.lengths["s^length"] = 2;
    PirInstance *top = nullptr;
    walk("opr o x normal res . void par in s . sequence 0 . struct 2 a long b array 2 . short", rec,
         &top);
    ASSERT_NE(top, nullptr);
    EXPECT_EQ(top->count, 2);
    EXPECT_EQ(top->parent, nullptr);
    EXPECT_EQ(top->stfNam, "s");
    ASSERT_EQ(top->children.size(), 2u);
    PirInstance *second = top->children[1];
    EXPECT_EQ(second->index, 1);
    EXPECT_EQ(second->count, 2);
    EXPECT_EQ(second->parent, top);
    EXPECT_EQ(second->stfNam, "s[1]");
    EXPECT_EQ(second->stlNam, "s[]");
    PirInstance *b1 = second->children[1]->children[1];
    EXPECT_EQ(b1->stfNam, "s[1].b[1]");
    EXPECT_EQ(b1->count, -1);
    EXPECT_EQ(b1->val, "v" + std::to_string(rec.calls.size()));
    EXPECT_EQ(b1->auxNum, 7);
    PirIntNod *ifc = static_cast<PirIntNod *>(top->typ->parent->parent->parent);
    PirFreeInstance(top);
    PirFreeInterface(ifc);

    // The callback may rename a leaf; the instance keeps the new name.
    Recorder renamer;
    renamer.rename = "other";
    walk("opr o x normal res . void par in p . long", renamer, &top);
    EXPECT_EQ(top->stfNam, "other");
    ifc = static_cast<PirIntNod *>(top->typ->parent->parent->parent);
    PirFreeInstance(top);
    PirFreeInterface(ifc);
}
