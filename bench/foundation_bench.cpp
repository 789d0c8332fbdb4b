// Scratch-text cost, and hash put/get against std::map<std::string, ...>.
#include <benchmark/benchmark.h>

#include <stdio.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tavik/tk_common.h"
#include "tavik/tk_hash.h"

namespace {

void BM_MakeScratchText(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(tavik::makeString("integrity hello"));
    }
}
BENCHMARK(BM_MakeScratchText);

std::vector<std::string> makeKeys(size_t n) {
    std::vector<std::string> keys;
    std::mt19937 rng(1);
    for (size_t i = 0; i < n; ++i) {
        char buf[48];
        snprintf(buf, sizeof buf, "member_%08x_%zu", static_cast<unsigned>(rng()), i);
        keys.push_back(buf);
    }
    return keys;
}

using TextHash = tavik::hash<char*, long*, true, true, false, 1000>;

void fill(TextHash& h, const std::vector<std::string>& keys) {
    for (size_t i = 0; i < keys.size(); ++i) {
        h.put(tavik::newString(keys[i].c_str()), new long(static_cast<long>(i)));
    }
}

void BM_HashPut(benchmark::State& state) {
    auto keys = makeKeys(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        TextHash h;
        fill(h, keys);
        h.sort();
        benchmark::DoNotOptimize(h.count);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_StdMapPut(benchmark::State& state) {
    auto keys = makeKeys(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        std::map<std::string, long> m;
        for (size_t i = 0; i < keys.size(); ++i) {
            m.emplace(keys[i], static_cast<long>(i));
        }
        benchmark::DoNotOptimize(m.size());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_HashGet(benchmark::State& state) {
    auto keys = makeKeys(static_cast<size_t>(state.range(0)));
    TextHash h;
    fill(h, keys);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(h.get(const_cast<char*>(keys[i].c_str())));
        i = (i + 7919) % keys.size();
    }
}

void BM_StdMapFind(benchmark::State& state) {
    auto keys = makeKeys(static_cast<size_t>(state.range(0)));
    std::map<std::string, long> m;
    for (size_t i = 0; i < keys.size(); ++i) {
        m.emplace(keys[i], static_cast<long>(i));
    }
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(m.find(keys[i]));
        i = (i + 7919) % keys.size();
    }
}

BENCHMARK(BM_HashPut)->Arg(20)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StdMapPut)->Arg(20)->Arg(1000)->Arg(100000);
BENCHMARK(BM_HashGet)->Arg(20)->Arg(1000)->Arg(100000);
BENCHMARK(BM_StdMapFind)->Arg(20)->Arg(1000)->Arg(100000);

}  // namespace

BENCHMARK_MAIN();
