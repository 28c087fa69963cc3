// The service contexts ahead of a Reply's id are passed over whole, each one
// its id and its counted data, in either byte order.
#include <gtest/gtest.h>

#include <utility>

#include "tests/unit/giop/giop_fixture.h"

namespace {

using Context = std::pair<uint32_t, std::string>;

TEST(ReplyContexts, ThoseAheadOfTheIdArePassedOver) {
    const std::vector<Context> none, one{{1, "abc"}},
        two{{0x4F4D0001u, std::string(8, '\x7f')}, {3, ""}};
    for (bool little : {true, false}) {
        for (const auto *contexts : {&none, &one, &two}) {
            SCOPED_TRACE(std::to_string(contexts->size()) + (little ? " little" : " big"));
            giop_test::Call c;
            c.peer.accept().read_message().send_for([&](const peer::Request &r) {
                peer::Writer w(little);
                w.ulong(static_cast<uint32_t>(contexts->size()));
                for (const Context &ctx : *contexts) w.ulong(ctx.first).octets(ctx.second);
                w.ulong(r.request_id).ulong(0).ulong(0x12345678u);
                return peer::message(1, w.bytes(), little);
            });
            c.peer.wait_forever();
            c.begin();
            GIOP::Invocation inv(c.ref->data, "echo", 1);
            EXPECT_EQ(c.call(inv), NO_EXCEPTION) << giop_test::id_of(c.env);
            uint32_t result = 0;
            EXPECT_TRUE(inv.stream.get_long(&result));
            EXPECT_EQ(result, 0x12345678u);
        }
    }
}

}  // namespace
