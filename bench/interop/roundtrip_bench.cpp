// echoLong round trips against the omniORB echo server: by this library's
// invocation, and by omniORB's static-stub client, in one run. Server and
// clients are pinned to CPU 0, since a wake-up across CPUs costs more than a
// loopback round trip on these machines.
#include <benchmark/benchmark.h>
#include <sched.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "data/environment.h"
#include "giop/invocation.h"
#include "giop/message.h"
#include "giop/orb.h"
#include "tests/interop/echo_fixture.h"

namespace {

constexpr int kCpu = 0;

interop::EchoServer &server() {
    static auto *s = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        CPU_SET(kCpu, &set);
        sched_setaffinity(0, sizeof set, &set);
        return new interop::EchoServer({}, kCpu);
    }();
    return *s;
}

void BM_OrbelleEchoLong(benchmark::State &state) {
    Environment env;
    objref *ref = string_to_object(server().ior().c_str(), env);
    if (ref == nullptr) {
        state.SkipWithError("no echo server");
        return;
    }
    timeout_ms = 5000;
    const ExceptionTable none{0, nullptr};
    uint32_t i = 0;
    for (auto _ : state) {
        GIOP::Invocation inv(ref->data, "echoLong", 1);
        inv.start(nullptr, env, 0, nullptr);
        inv.stream.put_long(++i);
        uint32_t v = 0;
        if (inv.invoke(none, env, 0) != NO_EXCEPTION || !inv.stream.get_long(&v) || v != i) {
            state.SkipWithError("call failed");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
    release_objref(ref, env);
}
BENCHMARK(BM_OrbelleEchoLong)->MinTime(2.0)->UseRealTime();

void BM_OmniOrbEchoLong(benchmark::State &state) {
    const long calls = 100000;
    double rate = 0;
    for (auto _ : state) {
        // The client prints the seconds per call.
        std::string out =
            interop::run_program({"taskset", "-c", std::to_string(kCpu), ORBELLE_STUB_CLIENT,
                                  server().ior(), "long", "0", std::to_string(calls)});
        double seconds = std::atof(out.c_str());
        rate = seconds > 0 ? 1 / seconds : 0;
        if (rate <= 0) state.SkipWithError("omniORB client failed");
    }
    state.counters["items_per_second"] = rate;
}
BENCHMARK(BM_OmniOrbEchoLong)->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
