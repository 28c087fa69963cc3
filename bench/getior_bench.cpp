// Cost of turning binding alternatives into reference texts: list file
// searches by the file's length, and the parsing of an alternative.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "gateway/getior.h"
#include "host/kit/hostkit.h"

namespace {
// A list file of lines entries, each with a 200-character reference, whose
// last entry is the one sought.
std::string make_list(int lines) {
    char path[] = "/tmp/orbelle-bench-XXXXXX";
    int fd = mkstemp(path);
    std::string reference = "IOR:" + std::string(196, 'a');
    std::string content;
    for (int i = 1; i < lines; ++i)
        content += "IDL:Other" + std::to_string(i) + ":1.0," + reference + "\n";
    content += "IDL:Sought:1.0," + reference + "\n";
    if (fd < 0 || write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        std::abort();
    close(fd);
    return path;
}

void BM_FindIorInFile(benchmark::State &state) {
    std::string path = make_list(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(findiorinfile("IDL:Sought:1.0", path.c_str()));
    state.SetItemsProcessed(state.iterations() * state.range(0));
    std::remove(path.c_str());
}
BENCHMARK(BM_FindIorInFile)->Arg(10)->Arg(1000)->Arg(20000);

void BM_GetIorNameService(benchmark::State &state) {
    iiop_record record = hostkit::make_record(IIOP_BIND);
    std::string alternative = "NameService(IOR:" + std::string(400, '0') + ")";
    for (auto _ : state) benchmark::DoNotOptimize(get_ior(&record, alternative.c_str()));
}
BENCHMARK(BM_GetIorNameService);
}  // namespace
