#include "gateway/connections.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "data/environment.h"
#include "giop/objref.h"
#include "giop/orb.h"
#include "tests/support.h"
#include "trace/trace.h"

namespace {
struct Handles {
    objref *make(const std::string &address) {
        objref *obj = string_to_object(("iiop:1.0//" + address + "/k").c_str(), env);
        made[count++] = obj;
        return obj;
    }
    ~Handles() {
        for (int i = 0; i < count; ++i) {
            remove_connection(made[i]);
            release_objref(made[i], env);
        }
    }
    Environment env;
    objref *made[8] = {};
    int count = 0;
};

TEST(ConnectionList, CountsHandlesOnTheListByExactHostTextAndPortOfTheirOwnProfile) {
    testsupport::linked_host();  // the kit's print slot captures the trace
    set_debug_level(1);
    Handles h;
    objref *a = h.make("127.0.0.1:5"), *b = h.make("127.0.0.1:5");
    objref *by_name = h.make("localhost:5"), *other_port = h.make("127.0.0.1:6");
    EXPECT_EQ(connections_at_host(a), 0u);

    add_connection(a);
    add_connection(a);  // once only
    char line[64];
    std::snprintf(line, sizeof line, "add_connection:  " PTR_FMT "\n", ptrv(a));
    EXPECT_EQ(hostkit::printed(), std::vector<std::string>(2, line));
    EXPECT_EQ(connections_at_host(a), 1u);
    EXPECT_EQ(connections_at_host(b), 1u);  // not on the list, counted by address
    add_connection(b);
    add_connection(by_name);
    add_connection(other_port);
    EXPECT_EQ(connections_at_host(a), 2u);
    EXPECT_EQ(connections_at_host(by_name), 1u);

    // A location forward does not move a handle to another address.
    auto *forward = static_cast<iiop_profile *>(std::calloc(1, sizeof(iiop_profile)));
    forward->host = strdup("127.0.0.1");
    forward->port = 6;
    b->data->forward_profile = forward;
    EXPECT_EQ(connections_at_host(b), 2u);
    EXPECT_EQ(connections_at_host(other_port), 1u);

    remove_connection(a);
    remove_connection(a);  // not on the list any more: nothing happens
    EXPECT_EQ(connections_at_host(b), 1u);
    EXPECT_FALSE(on_connection_list(a));

    objref nil{nullptr, 1};
    add_connection(&nil);
    EXPECT_FALSE(on_connection_list(&nil));
    EXPECT_EQ(connections_at_host(&nil), 0u);
}
}  // namespace
