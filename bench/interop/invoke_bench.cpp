// A script's iiop_invoke through the door against the omniORB echo server,
// and omniORB's static-stub client making the same calls. Everything runs on
// CPU 0: a wake-up across CPUs would cost more than the round trip itself.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <unistd.h>

#include <cstdlib>
#include <deque>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "host/kit/hostkit.h"
#include "tests/interop/echo_fixture.h"

namespace {

constexpr char repoid[] = "IDL:EchoTest/Echo:1.0";
constexpr int seq_length = 1000;

// One server, one bound object and one working folder for the whole run.
struct Setup {
    Setup() : server({}, 0), host(&_iiop_entry) {
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        CPU_SET(0, &cpus);
        sched_setaffinity(0, sizeof cpus, &cpus);
        char pattern[] = "/tmp/orbelle-bench-XXXXXX";
        dir = mkdtemp(pattern);
        std::system(("mkdir -p " + dir + "/idl && cp " ORBELLE_TEST_DATA "/idl/EchoTest-Echo.csv " +
                     dir + "/idl/")
                        .c_str());
        if (chdir(dir.c_str()) != 0) return;
        host.init();
        hostkit::set_capture(false);
        iiop_record r = hostkit::make_record(IIOP_BIND);
        r.u.bind.repository_id = const_cast<char *>(repoid);
        r.u.bind.instance_id = const_cast<char *>("echo");
        r.u.bind.modus = const_cast<char *>("IOR");
        r.u.bind.ior = const_cast<char *>(server.ior().c_str());
        if (host.call(r) == IIOP_OK) obj = r.u.bind.objref;
    }
    ~Setup() { std::system(("rm -rf " + dir).c_str()); }

    iiop_req &prepare(const char *operation, hostkit::Plist *plist) {
        reqs.emplace_back();
        targets.emplace_back();
        iiop_req &req = reqs.back();
        host.get_parms(req, targets.back(), repoid, operation, plist);
        targets.back().objref = obj;
        req.flags = IIOP_TWOWAY;
        return req;
    }

    interop::EchoServer server;
    hostkit::Host host;
    std::string dir;
    void *obj = nullptr;
    std::deque<iiop_req> reqs;
    std::deque<iiop_target> targets;
};

Setup &setup() {
    static Setup s;
    return s;
}

void run(benchmark::State &state, iiop_req &req) {
    iiop_record r = hostkit::make_record(IIOP_INVOKE);
    r.u.invoke.req = &req;
    r.timeout_ms = 5000;
    for (auto _ : state) {
        if (setup().host.call(r) != IIOP_OK) {
            state.SkipWithError("iiop_invoke failed");
            break;
        }
    }
}

void BM_InvokeEchoLong(benchmark::State &state) {
    if (setup().obj == nullptr) return state.SkipWithError("no echo server");
    static iiop_req &req = setup().prepare("echoLong", nullptr);
    hostkit::set_value(req.parms, "value", "123456");
    run(state, req);
}

void BM_InvokeEchoSeq1000(benchmark::State &state) {
    if (setup().obj == nullptr) return state.SkipWithError("no echo server");
    static hostkit::Plist plist;
    plist.set("values^length", std::to_string(seq_length).c_str());
    plist.set("^echoSeq^length", std::to_string(seq_length).c_str());
    static iiop_req &req = setup().prepare("echoSeq", &plist);
    for (int i = 0; i < seq_length; ++i)
        hostkit::set_value(req.parms, ("values[" + std::to_string(i) + "]").c_str(),
                           std::to_string(i * 7).c_str());
    run(state, req);
    state.SetItemsProcessed(state.iterations() * seq_length);
}

// omniORB's client in a process of its own, pinned like the rest; the time
// per call it measured becomes the iteration time.
void omni_stub(benchmark::State &state, const char *mode, int length, int calls) {
    if (setup().obj == nullptr) return state.SkipWithError("no echo server");
    std::string out = interop::run_program({"taskset", "-c", "0", ORBELLE_STUB_CLIENT,
                                            setup().server.ior(), mode, std::to_string(length),
                                            std::to_string(calls), "-ORBmaxGIOPVersion", "1.0"});
    double per_call = std::atof(out.c_str());
    if (per_call <= 0) return state.SkipWithError("omniORB client failed");
    for (auto _ : state) state.SetIterationTime(per_call);
}
void BM_OmniStubEchoLong(benchmark::State &state) { omni_stub(state, "long", 0, 50000); }
void BM_OmniStubEchoSeq1000(benchmark::State &state) {
    omni_stub(state, "seq", seq_length, 5000);
    state.SetItemsProcessed(state.iterations() * seq_length);
}

BENCHMARK(BM_InvokeEchoLong);
BENCHMARK(BM_OmniStubEchoLong)->UseManualTime()->Iterations(1);
BENCHMARK(BM_InvokeEchoSeq1000);
BENCHMARK(BM_OmniStubEchoSeq1000)->UseManualTime()->Iterations(1);

}  // namespace
