// Counts the heap blocks the library takes during two-way calls whose
// messages fit a stream's embedded memory. malloc, calloc, realloc, free and
// operator new are replaced in this program; only the calling thread is
// counted (the scripted peer runs in a thread of its own), and the host's
// own vumalloc is counted apart: a new text per out record is the host's
// rule, not the library's allocation.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "tests/unit/gateway/road.h"

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace {
__thread bool counting = false;
long library_blocks = 0;
long host_blocks = 0;

void note() {
    if (counting) ++library_blocks;
}

void *host_malloc(size_t n) {
    bool was = counting;
    counting = false;
    if (was) ++host_blocks;
    void *p = __libc_malloc(n);
    counting = was;
    return p;
}
void *host_realloc(void *p, size_t n) { return __libc_realloc(p, n); }
void host_free(void *p) { __libc_free(p); }
void host_print(const char *) {}
}  // namespace

extern "C" {
void *malloc(size_t n) {
    note();
    return __libc_malloc(n);
}
void *calloc(size_t n, size_t size) {
    note();
    return __libc_calloc(n, size);
}
void *realloc(void *p, size_t n) {
    note();
    return __libc_realloc(p, n);
}
void free(void *p) { __libc_free(p); }
}

void *operator new(size_t n) {
    note();
    if (void *p = __libc_malloc(n != 0 ? n : 1)) return p;
    throw std::bad_alloc();
}
void *operator new[](size_t n) { return operator new(n); }
void operator delete(void *p) noexcept { __libc_free(p); }
void operator delete[](void *p) noexcept { __libc_free(p); }
void operator delete(void *p, size_t) noexcept { __libc_free(p); }
void operator delete[](void *p, size_t) noexcept { __libc_free(p); }

namespace {

using road::answer;
using road::Parms;

constexpr int warm_up_calls = 5;
constexpr int counted_calls = 1000;

using Allocations = road::Road;

// add(long, long) and a short sequence of longs in and out: every message
// fits the embedded memory, so the only blocks are the host's new texts,
// one per out record read.
TEST_F(Allocations, TwoWayCallsOfSmallMessagesTakeNoHeapBlockInTheLibrary) {
    struct Case {
        const char *operation;
        int elements;  // of the sequence; 0: add(long, long)
    } cases[] = {{"add", 0}, {"count", 6}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.operation);
        Parms p;
        long outs_per_call;
        if (c.elements == 0) {
            p.add(PARM_OUT, 3, "^add", "0");
            p.add(PARM_IN, 3, "a", "40");
            p.add(PARM_IN, 3, "b", "2");
            outs_per_call = 1;
        } else {
            p.sequence(PARM_IN, "values", c.elements, "7");
            p.sequence(PARM_OUT, "back", c.elements);
            outs_per_call = 1 + c.elements;
        }
        peer::ScriptedPeer peer;
        peer.accept();
        for (int i = 0; i < warm_up_calls + counted_calls; ++i)
            peer.read_message().send_for(answer([&c](peer::Writer &w) {
                if (c.elements == 0) {
                    w.ulong(42);
                    return;
                }
                w.ulong(static_cast<uint32_t>(c.elements));
                for (int e = 0; e < c.elements; ++e) w.ulong(static_cast<uint32_t>(e));
            }));
        peer.start();
        iiop_req &req = request(bind(peer.port()), IIOP_TWOWAY, c.operation, p);

        set_debug_level(0);
        iiop_record init = hostkit::make_record(IIOP_INIT);
        init.u.init = iiop_init_args{host_malloc, host_realloc, host_free, host_print};
        ASSERT_EQ(host.call(init), IIOP_OK);
        iiop_record r = hostkit::make_record(IIOP_INVOKE);
        r.u.invoke.req = &req;
        r.timeout_ms = 2000;
        for (int i = 0; i < warm_up_calls; ++i) ASSERT_EQ(host.call(r), IIOP_OK);

        library_blocks = host_blocks = 0;
        int failed = 0;
        counting = true;
        for (int i = 0; i < counted_calls; ++i) failed += host.call(r) != IIOP_OK;
        counting = false;

        EXPECT_EQ(failed, 0);
        EXPECT_EQ(library_blocks, 0);
        EXPECT_EQ(host_blocks, outs_per_call * counted_calls);
        EXPECT_STREQ(p.value(c.elements == 0 ? "^add" : "back[5]"), c.elements == 0 ? "42" : "5");
        ASSERT_TRUE(peer.wait());
        host.init();
    }
}

}  // namespace
