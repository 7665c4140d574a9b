// The Json tree's parse and write against a rapidjson::Document of the same text (the DOM the
// tree is built beside), for the documents the sensor exchanges: a health-check request, a
// synchronize context, a configuration, and a larger event-like document.
#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "bench/RatioTarget.h"
#include "eil/json/Json.h"
#include "eil/json/RapidJson.h"

namespace KALVO::Bench {
namespace {

namespace RJ = EIL::RJ;
using EIL::Json::Json;

std::string EventDocument() {
    std::mt19937_64 random(7);
    std::string text = R"({"events":[)";
    for (int i = 0; i < 60; ++i) {
        if (i != 0) text += ',';
        text += R"({"type_id":"d5f9b921-5881-46fd-9ab8-dbee84f6dc6f","severity":0,"sequence":)" +
                std::to_string(random() % 1000000);
        text += R"(,"score":)" + std::to_string(static_cast<double>(random() % 10000) / 100.0);
        text += R"(,"delta":-)" + std::to_string(random() % 5000);
        text += R"(,"observation":{"message":"{parent} created {child}","tags":[],"sealed":true,"origin":null,)";
        text += R"("child":{"path":"/usr/bin/python3","command_line":"python3 -c \"print(\\\"hi\\\")\" --id )" +
                std::to_string(random()) + R"(","uid":"4711-1718100000","user":"alice"},)";
        text +=
            R"("parent":{"path":"/bin/zsh","command_line":"-zsh","uid":"812-1718000000","user":"alice","pids":[1,812,4711]}}})";
    }
    text += "]}";
    return text;
}

const std::string& Document(const std::string& name) {
    static const std::string health = R"({"id":"6f1c2a9e-4b7d-4e0a-9c3f-2d8e5b1a7c40"})";
    static const std::string context = R"({"reason":"configuration","revision":"2024-06-11T08:00:00Z"})";
    static const std::string configuration = R"({"$revision":"41","$version":3,"securitymonitor":{
        "process_tree_collapse_regex":"(python|ruby|node)[0-9.]* .*","process_tree_report_limit":3},
        "reporter":{"batch":64,"flush_ms":250,"endpoints":["primary","secondary"]},
        "storage":{"scope":"securitymonitor","quota":1048576},
        "filters":[{"sensor":"securitymonitor","path":"/usr/libexec/*","action":"suppress"},
                   {"sensor":"securitymonitor","path":"/System/*","action":"suppress"},
                   {"sensor":"shell","command":"ls*","action":"allow"}]})";
    static const std::string event = EventDocument();
    if (name == "health") return health;
    if (name == "context") return context;
    if (name == "configuration") return configuration;
    return event;
}

void BM_Json_Parse(benchmark::State& state, const std::string& name) {
    const std::string& text = Document(name);
    for (auto _ : state) {
        Json tree = EIL::Json::FromString(text);
        benchmark::DoNotOptimize(tree);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Json_ParseRapidJson(benchmark::State& state, const std::string& name) {
    const std::string& text = Document(name);
    for (auto _ : state) {
        RJ::Document document;
        document.Parse(text.data(), text.size());
        if (document.HasParseError()) state.SkipWithError("rapidjson refused the document");
        benchmark::DoNotOptimize(document);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * text.size()));
}

void BM_Json_Write(benchmark::State& state, const std::string& name) {
    const Json tree = EIL::Json::FromString(Document(name));
    for (auto _ : state) {
        std::string text = EIL::Json::ToStringA(tree);
        benchmark::DoNotOptimize(text);
    }
}

void BM_Json_WriteRapidJson(benchmark::State& state, const std::string& name) {
    RJ::Document document;
    document.Parse(Document(name).c_str());
    for (auto _ : state) {
        RJ::StringBuffer buffer;
        RJ::Writer<RJ::StringBuffer> writer(buffer);
        document.Accept(writer);
        std::string text(buffer.GetString(), buffer.GetSize());
        benchmark::DoNotOptimize(text);
    }
}

#define KALVO_JSON_BENCHMARKS(doc)                                                                       \
    BENCHMARK_CAPTURE(BM_Json_Parse, doc, #doc);                                                         \
    BENCHMARK_CAPTURE(BM_Json_ParseRapidJson, doc, #doc);                                                \
    BENCHMARK_CAPTURE(BM_Json_Write, doc, #doc);                                                         \
    BENCHMARK_CAPTURE(BM_Json_WriteRapidJson, doc, #doc);                                                \
    const bool registered_##doc =                                                                        \
        RegisterRatio({"Json parse " #doc ": ours / rapidjson::Document", "BM_Json_Parse/" #doc,         \
                       "BM_Json_ParseRapidJson/" #doc, Metric::Time, std::nullopt, std::nullopt, ""}) && \
        RegisterRatio({"Json write " #doc ": ours / rapidjson::Writer", "BM_Json_Write/" #doc,           \
                       "BM_Json_WriteRapidJson/" #doc, Metric::Time, std::nullopt, std::nullopt, ""});

KALVO_JSON_BENCHMARKS(health)
KALVO_JSON_BENCHMARKS(context)
KALVO_JSON_BENCHMARKS(configuration)
KALVO_JSON_BENCHMARKS(event)

}  // namespace
}  // namespace KALVO::Bench
