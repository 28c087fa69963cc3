#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orbelle/orbelle.h"
#include "script/parms.h"
#include "tests/support.h"

namespace {

struct Expected {
    const char *name;
    int32_t flags;
    int32_t type;
};

void expect_list(ScriptParm *list, const std::vector<Expected> &want) {
    ScriptParm *p = list;
    for (const Expected &e : want) {
        ASSERT_NE(p, nullptr) << e.name;
        EXPECT_STREQ(p->name, e.name);
        EXPECT_EQ(p->flags, e.flags) << e.name;
        EXPECT_EQ(p->type, e.type) << e.name;
        EXPECT_EQ(p->supertype, 0) << e.name;
        EXPECT_EQ(p->strval, nullptr) << e.name;
        EXPECT_EQ(p->ptr, nullptr) << e.name;
        EXPECT_EQ(p->valuesize, 0) << e.name;
        p = p->next;
    }
    EXPECT_EQ(p, nullptr);
}

TEST(WellKnown, EachOperationGivesItsFixedList) {
    hostkit::Host host = testsupport::linked_host();
    struct Case {
        const char *operation;
        std::vector<Expected> records;
    } cases[] = {
        {"_is_a", {{"^is_a", 2, 8}, {"logical_type_id", 1, 18}}},
        {"_non_existent", {{"^non_existent", 2, 8}}},
        {"_get_interface", {{"^get_interface", 2, 14}}},
        {"_get_implementation", {{"^get_implementation", 2, 14}}},
    };
    for (const Case &c : cases) {
        iiop_req req;
        iiop_target target;
        // no description file is needed, nor an interface id
        EXPECT_EQ(host.get_parms(req, target, nullptr, c.operation), 0);
        expect_list(req.parms, c.records);
        hostkit::free_list(req.parms);
    }
}

TEST(WellKnown, OnlyExactNamesAreWellKnown) {
    for (const char *name : {"_is_a", "_non_existent", "_get_interface", "_get_implementation"})
        EXPECT_TRUE(is_well_known_operation(name)) << name;
    for (const char *name : {"_is_ab", "_IS_A", "_is", "is_a", "_non_existent ", "_Get_interface",
                             "_get_implementations", "", "^is_a"})
        EXPECT_FALSE(is_well_known_operation(name)) << name;
    EXPECT_FALSE(is_well_known_operation(nullptr));
}

TEST(WellKnown, GetParmsTracesEachRecord) {
    hostkit::Host host = testsupport::linked_host();
    set_debug_level(5);
    iiop_req req;
    iiop_target target;
    host.get_parms(req, target, "IDL:Thing:1.0", "_is_a");
    const auto &lines = hostkit::printed();
    ASSERT_EQ(lines.size(), 13u);
    EXPECT_EQ(lines[0], "_iiop_get_parms:  operation '_is_a', repoid 'IDL:Thing:1.0'\n");
    EXPECT_EQ(lines[1], "_iiop_get_parms:  calling PirGetOperationDetails\n");
    EXPECT_EQ(lines[2], "   well-known operation return value name '^is_a'\n");
    EXPECT_EQ(lines[3], "   setting supertype 0\n");
    EXPECT_EQ(lines[4], "   setting supertype done\n");
    EXPECT_EQ(lines[5], "   well-known operation parameter name 'logical_type_id'\n");
    EXPECT_EQ(lines[6], "   setting supertype 0\n");
    EXPECT_EQ(lines[7], "   setting supertype done\n");
    EXPECT_EQ(lines[8], "_iiop_get_parms: name '^is_a'\n");
    char expected[64];
    std::snprintf(expected, sizeof expected, "   about to get next, parmptr = 0x%lx\n",
                  static_cast<unsigned long>(reinterpret_cast<uintptr_t>(req.parms)));
    EXPECT_EQ(lines[9], expected);
    EXPECT_EQ(lines[10], "_iiop_get_parms: name 'logical_type_id'\n");
    EXPECT_EQ(lines[12], "_iiop_get_parms: returning IIOP_OK\n");
    hostkit::free_list(req.parms);
}

}  // namespace
