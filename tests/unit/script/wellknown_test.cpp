#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "orbelle/orbelle.h"
#include "script/parms.h"
#include "tests/support.h"

namespace {

// The list as "name flags type" words; any other field set shows as "!".
std::vector<std::string> records_of(ScriptParm *list) {
    std::vector<std::string> out;
    for (ScriptParm *p = list; p != nullptr; p = p->next)
        out.push_back(std::string(p->name) + " " + std::to_string(p->flags) + " " +
                      std::to_string(p->type) +
                      (p->supertype || p->strval || p->ptr || p->valuesize ? "!" : ""));
    hostkit::free_list(list);
    return out;
}

TEST(WellKnown, EachOperationGivesItsFixedList) {
    hostkit::Host host = testsupport::linked_host();
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"_is_a", {"^is_a 2 8", "logical_type_id 1 18"}},
        {"_non_existent", {"^non_existent 2 8"}},
        {"_get_interface", {"^get_interface 2 14"}},
        {"_get_implementation", {"^get_implementation 2 14"}}};
    for (const auto &c : cases) {
        iiop_req req;
        iiop_target target;
        // no description file is needed, nor an interface id
        EXPECT_EQ(host.get_parms(req, target, nullptr, c.first), 0);
        EXPECT_EQ(records_of(req.parms), c.second) << c.first;
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
