#include "gateway/naming.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "data/environment.h"
#include "gateway/connections.h"
#include "gateway/report.h"
#include "giop/objref.h"
#include "giop/orb.h"
#include "tests/support.h"
#include "trace/host_slots.h"
#include "trace/trace.h"

namespace {
const std::string zanth = std::string(ORBELLE_BINARY_DIR) + "/zanth";
const std::string naming = "iiop:1.0//127.0.0.1:1/NameService";
const std::string object = "iiop:1.0//127.0.0.1:2/object";
char repository_id[] = "IDL:A:1.0";
char instance_id[] = "one";
char ior[] = "IOR:zz";

std::string hex(const void *p) {
    char text[32];
    std::snprintf(text, sizeof text, PTR_FMT, ptrv(p));
    return text;
}

// What the fake door saw of the request, and how it answers.
struct Seen {
    int32_t op = 0, timeout_ms = -1, flags = 0, result = IIOP_OK;
    iiop_target target{};
    std::string operation;
    std::vector<ScriptParm> parms;
    std::vector<std::string> values;  // "NULL" for a null strval
    objref *answer = nullptr;
    uint16_t naming_port = 0;  // the handle itself is gone after the step
} seen;

// Stands in for request execution: records the request and answers as a
// completed resolve does, putting the reference into the result record and
// the naming service's handle on the connection list.
int32_t fake_door(iiop_record *record) {
    iiop_req *req = record->u.invoke.req;
    seen.op = record->op;
    seen.timeout_ms = record->timeout_ms;
    seen.flags = req->flags;
    seen.target = *req->target;
    seen.naming_port = static_cast<objref *>(req->target->objref)->data->profile.port;
    seen.operation = req->operation;
    for (ScriptParm *p = req->parms; p != nullptr; p = p->next) {
        seen.parms.push_back(*p);
        seen.values.push_back(nz(p->strval));
    }
    Environment local;
    seen.answer = string_to_object(object.c_str(), local);
    req->parms->ptr = seen.answer;
    req->parms->strval = vustrdup(object.c_str());
    if (seen.result != IIOP_OK) record->status_text = vustrdup("failed");
    add_connection(static_cast<objref *>(req->target->objref));
    return seen.result;
}

struct Naming : ::testing::Test {
    Naming() : host(testsupport::linked_host()) {
        set_debug_level(1);
        seen = Seen();
        set_naming_door(fake_door);
        record = hostkit::make_record(IIOP_BIND);
        record.u.bind.repository_id = repository_id;
        record.u.bind.instance_id = instance_id;
        record.u.bind.ior = ior;
    }
    ~Naming() override { set_naming_door(nullptr); }
    int32_t bind(const std::string &modus) {
        record.u.bind.modus = const_cast<char *>(modus.c_str());
        hostkit::clear_printed();
        int32_t result = host.call(record);
        if (result != IIOP_OK) std::free(record.status_text);
        return result;
    }
    void release() {
        iiop_record r = hostkit::make_record(IIOP_RELEASE);
        r.u.release.objref = record.u.bind.objref;
        host.call(r);
        std::free(record.u.bind.bound_modus);
    }

    hostkit::Host host;
    testsupport::TempDir dir;
    iiop_record record{};
};

TEST_F(Naming, ResolveGoesThroughTheDoorWithHandMadeRecordsInWireOrder) {
    ASSERT_EQ(bind("NameService(" + naming + ")"), IIOP_OK);
    EXPECT_EQ(record.u.bind.objref, seen.answer);
    EXPECT_STREQ(record.u.bind.bound_modus, ("NameService(" + naming + ")").c_str());

    EXPECT_EQ(seen.op, IIOP_INVOKE);
    EXPECT_EQ(seen.timeout_ms, 0);
    EXPECT_EQ(seen.flags, IIOP_TWOWAY);
    EXPECT_EQ(seen.operation, "resolve");
    EXPECT_EQ(seen.target.repoid, repository_id);
    EXPECT_EQ(seen.target.instance_id, instance_id);
    EXPECT_EQ(seen.target.ior, ior);
    const void *ns = seen.target.objref;
    EXPECT_EQ(seen.naming_port, 1);
    const struct {
        int32_t flags, type;
        const char *name, *value;
    } expected[] = {{PARM_OUT, 14, "IIOP_RESULT", "NULL"},
                    {PARM_IN, 3, "sequence length", "1"},
                    {PARM_IN, 18, "instance_id", "one"},
                    {PARM_IN, 18, "kind", ""}};
    ASSERT_EQ(seen.parms.size(), 4u);
    for (size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(seen.parms[i].flags, expected[i].flags) << i;
        EXPECT_EQ(seen.parms[i].type, expected[i].type) << i;
        EXPECT_STREQ(seen.parms[i].name, expected[i].name) << i;
        EXPECT_EQ(seen.values[i], expected[i].value) << i;
        EXPECT_EQ(seen.parms[i].supertype + seen.parms[i].valuesize, 0) << i;
        EXPECT_EQ(seen.parms[i].ptr, nullptr) << i;
    }
    EXPECT_NE(seen.values[2].c_str(), instance_id);  // a copy

    std::vector<std::string> out = hostkit::printed();
    std::vector<std::string> tail(out.end() - 14, out.end());
    EXPECT_EQ(tail, (std::vector<std::string>{
                        "get_ior:  NameService modus\n",
                        "attempt_to_bind: string_to_object(\"NameService\")\n",
                        "attempt_to_bind:  NameService " + naming + "\n",
                        "attempt_to_bind:  NameService objectref " + hex(ns) + "\n",
                        "finished req\n",
                        "finished first_parm\n",
                        "finished first_parm_a\n",
                        "finished second_parm\n",
                        "finished third_parm\n",
                        "calling entry\n",
                        "add_connection:  " + hex(ns) + "\n",
                        "entry done, parm->data=" + hex(seen.answer) + "\n",
                        "got objectref " + hex(seen.answer) + "\n",
                        "done freeing\n",
                    }));
    // The naming service's handle left the list again.
    Environment local;
    objref *probe = string_to_object(naming.c_str(), local);
    EXPECT_EQ(connections_at_host(probe), 0u);
    release_objref(probe, local);
    release();
}

TEST_F(Naming, FailedResolveOrBadServiceReferenceFallsToTheNextAlternative) {
    seen.result = IIOP_STATUS_SYSTEM_EXCEPTION;
    ASSERT_EQ(bind("NameService(" + naming + ") | NameService(IOR:0) | IOR"),
              IIOP_STATUS_GATEWAY_FAILURE);
    EXPECT_TRUE(hostkit::printed_contains("entry done, parm->data=0x0\n"));
    EXPECT_TRUE(hostkit::printed_contains("attempt_to_bind:  Bad NameService IOR\n"));
    EXPECT_EQ(record.u.bind.objref, nullptr);

    // With the real door the resolve fails too, and the host sees no exception from it.
    set_naming_door(nullptr);
    record.u.bind.ior = const_cast<char *>(object.c_str());
    ASSERT_EQ(bind("NameService(" + naming + ") | IOR"), IIOP_OK);
    EXPECT_STREQ(record.u.bind.bound_modus, "IOR");
    EXPECT_TRUE(hostkit::printed_contains("entry done, parm->data=0x0\n"));
    release();
}

TEST_F(Naming, AgentNamingServiceIsAskedForTheRecordsInstance) {
    dir.write("agents", "14000 IDL:omg.org/CosNaming/NamingContext:1.0 ns " + naming + "\n");
    setenv("ZANTH_AGENT_DIRECTORY", (dir.path() + "/agents").c_str(), 1);
    setenv("ZANTH_HOME", zanth.c_str(), 1);
    ASSERT_EQ(bind("VisibrokerNameService(ns)"), IIOP_OK);
    EXPECT_EQ(record.u.bind.objref, seen.answer);
    EXPECT_STREQ(record.u.bind.bound_modus, "VisibrokerNameService(ns)");
    EXPECT_EQ(seen.naming_port, 1);
    EXPECT_EQ(seen.values.at(2), "one");
    release();
}
}  // namespace
