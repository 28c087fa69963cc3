// Encoding and decoding speed of the data layer: a struct of every
// primitive, a sequence of 100,000 longs and a 1 MB string.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "data/any.h"
#include "data/decoder.h"
#include "data/encoder.h"
#include "data/stdtypes.h"

namespace {

// Builds little-endian encapsulations and wire TypeCodes.
struct Words {
    std::vector<unsigned char> b;
    Words &u(uint32_t v) {
        while (b.size() % 4) b.push_back(0);
        for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
        return *this;
    }
    Words &s(const char *text) {
        u(static_cast<uint32_t>(std::strlen(text) + 1));
        b.insert(b.end(), text, text + std::strlen(text) + 1);
        return *this;
    }
};

void setup() {
    inittypecodes();
    fill_value_table();
}

std::vector<unsigned char> primitives_body() {
    const int32_t kinds[] = {tk_short,     tk_long,       tk_ushort, tk_ulong, tk_float,
                             tk_double,    tk_boolean,    tk_char,   tk_octet, tk_longlong,
                             tk_ulonglong, tk_longdouble, tk_wchar};
    Words w;
    w.b.push_back(1);
    w.s("IDL:Bench/Primitives:1.0").s("Primitives").u(sizeof kinds / sizeof kinds[0]);
    for (int32_t k : kinds) w.s("m").u(static_cast<uint32_t>(k));
    return w.b;
}

struct Fixture {
    std::vector<unsigned char> body;
    TypeCode tc;
    std::vector<unsigned char> value;
    Fixture(int32_t kind, std::vector<unsigned char> b)
        : body(std::move(b)), tc(kind, static_cast<uint32_t>(body.size()), body.data(), 0) {
        Environment env;
        value.assign(tc.valueSize(env), 0);
    }
};

// Encodes once into a stream, then reads the bytes back as a message.
struct Encoded {
    CDR out;
    CDR in;
    explicit Encoded(Fixture &f, void *value) {
        Environment env;
        encoder(&f.tc, value, nullptr, &out, env);
    }
    CDR &reader() {
        in.cursor = out.base;
        in.origin = out.base;
        in.space_left = out.used();
        in.swap = 0;
        return in;
    }
};

void run_encode(benchmark::State &state, Fixture &f, void *value) {
    alignas(16) static unsigned char array[1430];
    CDR s;
    s.attach_buffer(array, sizeof array);
    Environment env;
    for (auto _ : state) {
        s.rewind();
        if (!encoder(&f.tc, value, nullptr, &s, env)) state.SkipWithError("encode failed");
        benchmark::DoNotOptimize(s.cursor);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * s.used());
}

void run_decode(benchmark::State &state, Fixture &f, void *value) {
    Encoded e(f, value);
    Environment env;
    std::vector<unsigned char> out(f.value.size());
    for (auto _ : state) {
        CDR &in = e.reader();
        if (!decoder(&f.tc, out.data(), nullptr, &in, env)) state.SkipWithError("decode failed");
        freeValue(&f.tc, out.data(), nullptr, nullptr, env);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * e.out.used());
}

void BM_EncodeStructOfPrimitives(benchmark::State &state) {
    setup();
    Fixture f(tk_struct, primitives_body());
    run_encode(state, f, f.value.data());
}
void BM_DecodeStructOfPrimitives(benchmark::State &state) {
    setup();
    Fixture f(tk_struct, primitives_body());
    run_decode(state, f, f.value.data());
}

std::vector<unsigned char> longs_body() { return Words{{1}}.u(tk_long).u(0).b; }

void BM_EncodeSequenceOf100kLongs(benchmark::State &state) {
    setup();
    Fixture f(tk_sequence, longs_body());
    std::vector<int32_t> longs(100000, 7);
    SequenceRecord rec{100000, 100000, longs.data()};
    run_encode(state, f, &rec);
}
void BM_DecodeSequenceOf100kLongs(benchmark::State &state) {
    setup();
    Fixture f(tk_sequence, longs_body());
    std::vector<int32_t> longs(100000, 7);
    SequenceRecord rec{100000, 100000, longs.data()};
    run_decode(state, f, &rec);
}

void BM_EncodeString1MB(benchmark::State &state) {
    setup();
    std::string text(1 << 20, 'x');
    const char *p = text.c_str();
    CDR s;
    Environment env;
    for (auto _ : state) {
        s.rewind();
        if (!encoder(tc_string(), &p, nullptr, &s, env)) state.SkipWithError("encode failed");
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
}
void BM_DecodeString1MB(benchmark::State &state) {
    setup();
    std::string text(1 << 20, 'x');
    const char *p = text.c_str();
    CDR out;
    Environment env;
    encoder(tc_string(), &p, nullptr, &out, env);
    CDR in;
    for (auto _ : state) {
        in.cursor = out.base;
        in.space_left = out.used();
        char *got = nullptr;
        if (!decoder(tc_string(), &got, nullptr, &in, env)) state.SkipWithError("decode failed");
        std::free(got);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * (1 << 20));
}

}  // namespace

BENCHMARK(BM_EncodeStructOfPrimitives);
BENCHMARK(BM_DecodeStructOfPrimitives);
BENCHMARK(BM_EncodeSequenceOf100kLongs);
BENCHMARK(BM_DecodeSequenceOf100kLongs);
BENCHMARK(BM_EncodeString1MB);
BENCHMARK(BM_DecodeString1MB);
