// iiop_get_parms of described operations: the file is read and parsed on
// every call, so the cost is the file plus the records made.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "host/kit/hostkit.h"

extern "C" int32_t _iiop_entry(iiop_record *record);

namespace {
const char *const repoid = "IDL:Bench/Wide:1.0";

// A folder with idl/Bench-Wide.csv, made once, that the process works in.
void prepare_description() {
    static bool done = false;
    if (done) return;
    done = true;
    char templ[] = "/tmp/orbelle-bench-XXXXXX";
    if (mkdtemp(templ) == nullptr) std::abort();
    std::filesystem::create_directories(std::string(templ) + "/idl");
    std::ofstream out(std::string(templ) + "/idl/Bench-Wide.csv");
    out << "opr o1 wide normal\n    res . long\n";
    for (int i = 0; i < 1000; ++i) out << "    par in p" << i << " . long\n";
    out << "opr o2 long_sequence normal\n    res . void\n"
        << "    par in s . sequence 0 . struct 1 x long\n";
    out.close();
    if (chdir(templ) != 0) std::abort();
}

void run(benchmark::State &state, const char *operation, hostkit::Plist *plist) {
    prepare_description();
    hostkit::Host host(&_iiop_entry);
    host.init();
    size_t records = 0;
    for (auto _ : state) {
        iiop_req req;
        iiop_target target;
        host.get_parms(req, target, repoid, operation, plist);
        records = 0;
        for (ScriptParm *p = req.parms; p != nullptr; p = p->next) ++records;
        hostkit::free_list(req.parms);
    }
    state.counters["records"] = static_cast<double>(records);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * records));
}

void BM_GetParmsThousandParameters(benchmark::State &state) { run(state, "wide", nullptr); }
BENCHMARK(BM_GetParmsThousandParameters)->Unit(benchmark::kMicrosecond);

// Linear in the size of the list: items/s stays the same from 1,000 to
// 100,000 elements.
void BM_GetParmsSequence(benchmark::State &state) {
    hostkit::Plist plist;
    plist.set("s^length", std::to_string(state.range(0)).c_str());
    run(state, "long_sequence", &plist);
}
BENCHMARK(BM_GetParmsSequence)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);
}  // namespace
