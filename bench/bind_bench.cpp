// Cost of binding and releasing with tracing off: one reference text, a modus
// of many failing alternatives, and release with many other handles of the
// same address on the connection list (its cost must not grow with them).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "gateway/connections.h"
#include "host/kit/hostkit.h"

namespace {
const char reference[] = "iiop:1.0//127.0.0.1:1/benchmark-key";

hostkit::Host quiet_host() {
    hostkit::Host host(&_iiop_entry);
    host.init();
    hostkit::set_capture(false);
    return host;
}

void *bind(hostkit::Host &host, const char *modus) {
    iiop_record record = hostkit::make_record(IIOP_BIND);
    record.u.bind.repository_id = const_cast<char *>("IDL:A:1.0");
    record.u.bind.instance_id = const_cast<char *>("one");
    record.u.bind.ior = const_cast<char *>(reference);
    record.u.bind.modus = const_cast<char *>(modus);
    if (host.call(record) != IIOP_OK) std::abort();
    std::free(record.u.bind.bound_modus);
    return record.u.bind.objref;
}

void release(hostkit::Host &host, void *obj) {
    iiop_record record = hostkit::make_record(IIOP_RELEASE);
    record.u.release.objref = obj;
    host.call(record);
}

void BM_BindAndRelease(benchmark::State &state) {
    hostkit::Host host = quiet_host();
    for (auto _ : state) release(host, bind(host, "IOR"));
}
BENCHMARK(BM_BindAndRelease);

// Every failing alternative prints its catalogue line, as at level 0.
void BM_BindAfterFailingAlternatives(benchmark::State &state) {
    hostkit::Host host = quiet_host();
    std::string modus;
    for (int64_t i = 0; i < state.range(0); ++i) modus += "nothing|";
    modus += "IOR";
    for (auto _ : state) release(host, bind(host, modus.c_str()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_BindAfterFailingAlternatives)->Arg(10)->Arg(1000);

void BM_ReleaseAmongHandlesOfOneAddress(benchmark::State &state) {
    hostkit::Host host = quiet_host();
    std::vector<void *> others;
    for (int64_t i = 0; i < state.range(0); ++i) {
        others.push_back(bind(host, "IOR"));
        add_connection(static_cast<objref *>(others.back()));
    }
    for (auto _ : state) {
        void *obj = bind(host, "IOR");
        add_connection(static_cast<objref *>(obj));
        release(host, obj);
    }
    for (void *obj : others) release(host, obj);
}
BENCHMARK(BM_ReleaseAmongHandlesOfOneAddress)->Arg(1)->Arg(100)->Arg(10000);
}  // namespace
