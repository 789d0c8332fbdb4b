// Parse and write throughput of tavik::json against RapidJSON, nlohmann::json and simdjson,
// on a push payload of about 500 bytes and on a document of about 1 MB (an array of such
// objects under one member). simdjson keeps one parser and one padded copy of the text, as
// it is meant to be used. Compare within one run, repetitions interleaved, by the medians:
//   build/bench/json_bench --benchmark_repetitions=15 --benchmark_enable_random_interleaving
//   --benchmark_report_aggregates_only   (MB/s in the bytes_per_second column)
#include <benchmark/benchmark.h>

#include <string>

#include <nlohmann/json.hpp>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <simdjson.h>

#include "tavik/tk_common.h"
#include "tavik/tk_json.h"

namespace {

const char kPush[] =
    "{\"id\":\"7f3c9a1e-5b2d-4c8e-9f10-2a3b4c5d6e7f\",\"type\":\"push\",\"taskCode\":1,"
    "\"priority\":5,\"ttl\":86400,\"timestamp\":1732320000123,\"domain\":\"storage.example.net\","
    "\"device\":\"box-0042\",\"title\":\"Integrity check requested\",\"body\":\"Please run the "
    "integrity checker on volume 3, shares a, b and c.\",\"meta\":{\"sender\":\"hoxen-server\","
    "\"retry\":0,\"signed\":true},\"targets\":[{\"volume\":\"vol1\",\"path\":\"/data/a\","
    "\"size\":1048576},{\"volume\":\"vol2\",\"path\":\"/data/b\",\"size\":2097152},"
    "{\"volume\":\"vol3\",\"path\":\"/data/c\",\"size\":4194304}]}";

const std::string& payload(int which) {
    static const std::string push = kPush;
    static const std::string large = [] {
        std::string doc = "{\"messages\":[";
        while (doc.size() < (1u << 20)) {
            doc += doc.size() > 14 ? "," : "";
            doc += kPush;
        }
        return doc + "]}";
    }();
    return which == 0 ? push : large;
}

void label(benchmark::State& state, size_t bytes) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.SetLabel(state.range(0) == 0 ? "push ~500 B" : "document ~1 MB");
}

// Scratch results are freed by the pool once a thousand more have been made; dropping the
// thread's slot after each write frees each result right away, as the peers free theirs,
// instead of piling up a thousand large documents.
void releaseScratch() {
    tavik::g_rav.removeThreadSlot();
}

void TavikParse(benchmark::State& state) {
    const std::string& text = payload(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        tavik::json doc;
        benchmark::DoNotOptimize(doc.generate(text.c_str()));
    }
    label(state, text.size());
}

void NlohmannParse(benchmark::State& state) {
    const std::string& text = payload(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        nlohmann::json doc = nlohmann::json::parse(text);
        benchmark::DoNotOptimize(doc);
    }
    label(state, text.size());
}

void RapidParse(benchmark::State& state) {
    const std::string& text = payload(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        rapidjson::Document doc;
        doc.Parse(text.c_str());
        benchmark::DoNotOptimize(doc.HasParseError());
    }
    label(state, text.size());
}

void SimdjsonParse(benchmark::State& state) {
    const std::string& text = payload(static_cast<int>(state.range(0)));
    simdjson::padded_string padded(text);
    simdjson::dom::parser parser;
    for (auto _ : state) {
        simdjson::dom::element doc;
        benchmark::DoNotOptimize(parser.parse(padded).get(doc));
    }
    label(state, text.size());
}

void TavikWrite(benchmark::State& state) {
    const std::string& text = payload(static_cast<int>(state.range(0)));
    tavik::json doc(text.c_str());
    size_t bytes = strlen(doc.getDoc());
    for (auto _ : state) {
        benchmark::DoNotOptimize(doc.getDoc());
        releaseScratch();
    }
    label(state, bytes);
}

void NlohmannWrite(benchmark::State& state) {
    nlohmann::json doc = nlohmann::json::parse(payload(static_cast<int>(state.range(0))));
    size_t bytes = doc.dump().size();
    for (auto _ : state) {
        std::string out = doc.dump();
        benchmark::DoNotOptimize(out.data());
    }
    label(state, bytes);
}

void RapidWrite(benchmark::State& state) {
    rapidjson::Document doc;
    doc.Parse(payload(static_cast<int>(state.range(0))).c_str());
    size_t bytes = 0;
    for (auto _ : state) {
        rapidjson::StringBuffer out;
        rapidjson::Writer<rapidjson::StringBuffer> writer(out);
        doc.Accept(writer);
        bytes = out.GetSize();
        benchmark::DoNotOptimize(out.GetString());
    }
    label(state, bytes);
}

void SimdjsonWrite(benchmark::State& state) {
    simdjson::padded_string padded(payload(static_cast<int>(state.range(0))));
    simdjson::dom::parser parser;
    simdjson::dom::element doc = parser.parse(padded);
    size_t bytes = simdjson::minify(doc).size();
    for (auto _ : state) {
        std::string out = simdjson::minify(doc);
        benchmark::DoNotOptimize(out.data());
    }
    label(state, bytes);
}

}  // namespace

BENCHMARK(TavikParse)->Arg(0)->Arg(1);
BENCHMARK(NlohmannParse)->Arg(0)->Arg(1);
BENCHMARK(RapidParse)->Arg(0)->Arg(1);
BENCHMARK(SimdjsonParse)->Arg(0)->Arg(1);
BENCHMARK(TavikWrite)->Arg(0)->Arg(1);
BENCHMARK(NlohmannWrite)->Arg(0)->Arg(1);
BENCHMARK(RapidWrite)->Arg(0)->Arg(1);
BENCHMARK(SimdjsonWrite)->Arg(0)->Arg(1);

BENCHMARK_MAIN();
