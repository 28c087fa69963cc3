// Counts the heap blocks the library takes during two-way calls whose
// messages fit a stream's embedded memory. malloc, calloc, realloc, free and
// operator new are replaced in this program; only the calling thread is
// counted (the scripted peer runs in a thread of its own), and the host's
// own vumalloc is counted apart: a new text per out record is the host's
// rule, not the library's allocation.

#include <new>
#include <tuple>

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
    for (int elements : {0, 6}) {  // of the sequence; 0: add(long, long)
        SCOPED_TRACE(elements);
        Parms p;
        if (elements == 0) {
            p.add({{PARM_OUT, 3, "^add", "0"}, {PARM_IN, 3, "a", "40"}, {PARM_IN, 3, "b", "2"}});
        } else {
            p.sequence(PARM_IN, "values", elements, "7");
            p.sequence(PARM_OUT, "back", elements);
        }
        peer::ScriptedPeer peer;
        peer.accept();
        for (int i = 0; i < warm_up_calls + counted_calls; ++i)
            peer.read_message().send_for(answer([elements](peer::Writer &w) {
                if (elements > 0) w.ulong(static_cast<uint32_t>(elements));
                for (int e = 0; e < elements; ++e) w.ulong(static_cast<uint32_t>(e));
                if (elements == 0) w.ulong(42);
            }));
        iiop_req &req = request(bind(peer), IIOP_TWOWAY, elements == 0 ? "add" : "count", p);

        set_debug_level(0);
        iiop_record init = hostkit::make_record(IIOP_INIT);
        init.u.init = iiop_init_args{host_malloc, host_realloc, host_free, host_print};
        ASSERT_EQ(host.call(init), IIOP_OK);
        for (int i = 0; i < warm_up_calls; ++i) ASSERT_EQ(invoke(req), IIOP_OK);

        library_blocks = host_blocks = 0;
        int failed = 0;
        counting = true;
        for (int i = 0; i < counted_calls; ++i) failed += invoke(req) != IIOP_OK;
        counting = false;

        // One new text per out record read.
        EXPECT_EQ(std::make_tuple(failed, library_blocks, host_blocks),
                  std::make_tuple(0, 0L, (1L + elements) * counted_calls));
        EXPECT_STREQ(p.value(elements == 0 ? "^add" : "back[5]"), elements == 0 ? "42" : "5");
        ASSERT_TRUE(peer.wait());
        host.init();
    }
}

}  // namespace
