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

    // Tracing names each record it hands over.
    hostkit::Host host = testsupport::linked_host();
    set_debug_level(5);
    iiop_req req;
    iiop_target target;
    host.get_parms(req, target, "IDL:Thing:1.0", "_is_a");
    EXPECT_EQ(hostkit::printed().front(),
              "_iiop_get_parms:  operation '_is_a', repoid 'IDL:Thing:1.0'\n");
    EXPECT_TRUE(
        hostkit::printed_contains("   well-known operation parameter name 'logical_type_id'"));
    EXPECT_EQ(hostkit::printed().back(), "_iiop_get_parms: returning IIOP_OK\n");
    hostkit::free_list(req.parms);
}

}  // namespace
