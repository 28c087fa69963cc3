#include "repository/pirinstance.h"

#include <gtest/gtest.h>

#include <map>

#include "repository/pirapi.h"
#include "tests/unit/repository/pirtest.h"

using namespace pirtest;

namespace {
// Records every call as "operation type supertype flg stlNam stfNam subNam";
// answers lengths by subNam and one member position.
class Recorder : public PirPrimitiveCallback {
public:
    std::vector<std::string> calls;
    std::map<std::string, uint32_t> lengths;
    uint32_t member = 0;

    void NewPrimitive(PirPrimitive &p) override {
        add("NP", p);
        p.val = "v";
        p.stfNam += "!";  // a rename reaches the instance
    }
    void NewSequence(PirPrimitive &p) override { add("NS", p); }
    void NewUnion(PirPrimitive &p) override { add("NU", p); }
    uint32_t NewSequenceLength(PirPrimitive &p) override {
        return add("NSL", p), lengths[p.subNam];
    }
    uint32_t NewUnionDiscriminator(PirPrimitive &p) override { return add("NUD", p), member; }

private:
    void add(const char *op, const PirPrimitive &p) {
        calls.push_back(std::string(op) + " " + std::to_string(p.type) + " " +
                        std::to_string(p.supertype) + " " + std::to_string(p.flg) + " " + p.stlNam +
                        " " + p.stfNam + " " + p.subNam + " " + std::to_string(p.index));
    }
};
}  // namespace

TEST(PirCreateInstance, InstancesMirrorTheValueAndAreReleasedOnFailure) {
    Tree ifc = parse_text(
        "opr o x normal res . void par in s . sequence 3 . struct 2 a long b array 2 . short "
        "par in t x struct 1 y union . long 1 z alias");
    PirParNod *s = PirGetFirstParameter(PirGetOperation(ifc.get(), "x"));
    Recorder rec;
    rec.lengths["s^length"] = 2;
    PirInstance *top = PirCreateInstance(PirGetParameterType(s), &rec);
    EXPECT_EQ(top->count, 2);
    ASSERT_EQ(top->children.size(), 2u);
    PirInstance *second = top->children[1];
    EXPECT_EQ(std::make_tuple(second->index, second->parent, second->stlNam + " " + second->stfNam),
              std::make_tuple(1, top, "s[] s[1]"));
    PirInstance *leaf = second->children.at(1)->children.at(1);
    EXPECT_EQ(leaf->stlNam + " " + leaf->stfNam + " " + leaf->val, "s[].b[] s[1].b[1]! v");
    EXPECT_EQ(leaf->count, -1);
    PirFreeInstance(top);

    // A name behind the parameter's joins it directly; an alias is a leaf.
    rec.calls.clear();
    PirFreeInstance(PirCreateInstance(PirGetParameterType(PirGetNextParameter(s)), &rec));
    EXPECT_EQ(rec.calls.back(), "NP 21 16 0 tx.y:z tx.y:z  0");

    rec.lengths["s^length"] = 4;  // past the bound of 3
    EXPECT_EQ(failure_of([&] { PirCreateInstance(PirGetParameterType(s), &rec); }),
              "invalid sequence length");
}
