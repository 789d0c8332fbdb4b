// tavik::string against std::string on protocol-sized texts (20 to 200 bytes): split,
// substring search, formatting and appending. Each pair runs the same work at the same size.
#include "tavik/tk_string.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

namespace {

// A protocol-like line of about n bytes: "key=value" fields separated by ','.
std::string protocolLine(size_t n) {
    std::string line;
    for (int field = 0; line.size() < n; ++field) {
        line += "f" + std::to_string(field) + "=v" + std::to_string(field * 7) + ",";
    }
    line.resize(n);
    return line;
}

// The std::string way of the same cut: empty pieces dropped, the last piece always kept.
std::vector<std::string> stdSplit(const std::string& text, const std::string& delim) {
    std::vector<std::string> pieces;
    size_t cursor = 0;
    for (size_t match = text.find(delim); match != std::string::npos;
         match = text.find(delim, cursor)) {
        if (match > cursor) {
            pieces.emplace_back(text, cursor, match - cursor);
        }
        cursor = match + delim.size();
    }
    pieces.emplace_back(text, cursor);
    return pieces;
}

void sizes(benchmark::internal::Benchmark* b) {
    b->Arg(20)->Arg(64)->Arg(200);
}

void BM_SplitTavik(benchmark::State& state) {
    tavik::string line(protocolLine(state.range(0)).c_str());
    for (auto _ : state) {
        std::unique_ptr<tavik::strArr> pieces(line.split(","));
        benchmark::DoNotOptimize(pieces->buffer);
    }
}
BENCHMARK(BM_SplitTavik)->Apply(sizes);

void BM_SplitStd(benchmark::State& state) {
    std::string line = protocolLine(state.range(0));
    for (auto _ : state) {
        std::vector<std::string> pieces = stdSplit(line, ",");
        benchmark::DoNotOptimize(pieces.data());
    }
}
BENCHMARK(BM_SplitStd)->Apply(sizes);

// The needle sits at the end of the line and its first byte starts every field, so the whole
// text is scanned and compared often.
void BM_IndexOfTavik(benchmark::State& state) {
    std::string text = protocolLine(state.range(0) - 6) + "f=tok,";
    tavik::string line(text.c_str());
    for (auto _ : state) {
        benchmark::DoNotOptimize(line.indexOf<true>("f=tok,"));
    }
}
BENCHMARK(BM_IndexOfTavik)->Apply(sizes);

void BM_IndexOfStd(benchmark::State& state) {
    std::string line = protocolLine(state.range(0) - 6) + "f=tok,";
    for (auto _ : state) {
        benchmark::DoNotOptimize(line.find("f=tok,"));
    }
}
BENCHMARK(BM_IndexOfStd)->Apply(sizes);

// A handshake-like line whose length follows the argument through the domain text.
void BM_FormatTavik(benchmark::State& state) {
    std::string domain(state.range(0) - 14, 'd');
    tavik::string line;
    for (auto _ : state) {
        benchmark::DoNotOptimize(line.format("%s|%d|%s", domain.c_str(), 4242, "ab12cd"));
    }
}
BENCHMARK(BM_FormatTavik)->Apply(sizes);

void BM_FormatStd(benchmark::State& state) {
    std::string domain(state.range(0) - 14, 'd');
    std::string line;
    for (auto _ : state) {
        const int n = snprintf(nullptr, 0, "%s|%d|%s", domain.c_str(), 4242, "ab12cd");
        line.resize(static_cast<size_t>(n));
        snprintf(&line[0], static_cast<size_t>(n) + 1, "%s|%d|%s", domain.c_str(), 4242, "ab12cd");
        benchmark::DoNotOptimize(line.data());
    }
}
BENCHMARK(BM_FormatStd)->Apply(sizes);

// Builds a line of the argument's length from 10-byte fields.
template <typename Text>
void BM_Append(benchmark::State& state) {
    const size_t fields = static_cast<size_t>(state.range(0)) / 10;
    for (auto _ : state) {
        Text line;
        for (size_t i = 0; i < fields; ++i) {
            line += "field=123,";
        }
        benchmark::DoNotOptimize(&line);
    }
}
BENCHMARK_TEMPLATE(BM_Append, tavik::string)->Apply(sizes);
BENCHMARK_TEMPLATE(BM_Append, std::string)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
