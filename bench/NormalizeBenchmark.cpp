// NormalizeCommandline and NormalizeProcessPath against std::regex_replace with the same
// expressions, over the whole corpus per iteration. Before timing, every corpus text is
// normalised both ways and must come out identical; a difference fails the benchmark.
#include <benchmark/benchmark.h>

#include <iostream>
#include <string>
#include <vector>

#include "bench/CommandLineCorpus.h"
#include "bench/RatioTarget.h"
#include "monitor/Normalize.h"
#include "tests/support/RegexNormalizer.h"

namespace KALVO::Bench {
namespace {

using SecurityMonitor::NormalizeCommandline;
using SecurityMonitor::NormalizeProcessPath;

const CommandLineCorpus& Corpus() {
    static const CommandLineCorpus corpus = [] {
        CommandLineCorpus loaded = LoadCommandLineCorpus(KALVO_SOURCE_DIR);
        std::cerr << "normalisation corpus: " << loaded.commandLines.size() << " command lines ("
                  << loaded.liveCommandLines << " live, " << loaded.traceCommandLines << " from examples/*.jsonl), "
                  << loaded.paths.size() << " paths (" << loaded.livePaths << " live, " << loaded.tracePaths
                  << " from examples/*.jsonl)\n";
        return loaded;
    }();
    return corpus;
}

const Testing::RegexNormalizer& Reference() { return Testing::RegexNormalizer::Instance(); }

// Empty when both agree on every text; otherwise the first text they differ on.
template <class Ours, class Theirs>
std::string FirstDifference(const std::vector<std::string>& texts, Ours ours, Theirs theirs) {
    for (const std::string& text : texts) {
        std::string a = text;
        std::string b = text;
        ours(a);
        theirs(b);
        if (a != b) return text;
    }
    return {};
}

bool SameOutput(benchmark::State& state, bool commandLines) {
    const auto& texts = commandLines ? Corpus().commandLines : Corpus().paths;
    const std::string differing = commandLines ? FirstDifference(
                                                     texts, [](std::string& t) { NormalizeCommandline(t); },
                                                     [](std::string& t) { Reference().CommandLine(t); })
                                               : FirstDifference(
                                                     texts, [](std::string& t) { NormalizeProcessPath(t); },
                                                     [](std::string& t) { Reference().ProcessPath(t); });
    if (differing.empty()) return true;
    state.SkipWithError(("output differs from std::regex_replace for: " + differing).c_str());
    return false;
}

// The part of the corpus a benchmark runs over: everything, the real texts (this machine's
// processes and the example traces), or the synthetic ones.
std::vector<std::string> Part(const std::string& part, bool commandLines) {
    const CommandLineCorpus& corpus = Corpus();
    const auto& texts = commandLines ? corpus.commandLines : corpus.paths;
    const std::size_t real =
        commandLines ? corpus.liveCommandLines + corpus.traceCommandLines : corpus.livePaths + corpus.tracePaths;
    if (part == "real") return {texts.begin(), texts.begin() + static_cast<std::ptrdiff_t>(real)};
    if (part == "synthetic") return {texts.begin() + static_cast<std::ptrdiff_t>(real), texts.end()};
    return texts;
}

// Both sides normalise a fresh copy of every text per iteration; the copy alone is measured
// as the *Copy benchmarks and taken out of the ratios.
template <class Normalize>
void RunOverCorpus(benchmark::State& state, const std::vector<std::string>& texts, Normalize normalize) {
    std::vector<std::string> work(texts.size());
    std::size_t bytes = 0;
    for (const std::string& text : texts) bytes += text.size();
    for (auto _ : state) {
        for (std::size_t i = 0; i < texts.size(); ++i) {
            work[i].assign(texts[i]);  // reuses capacity
            normalize(work[i]);
        }
        benchmark::DoNotOptimize(work.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * texts.size()));
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

void NoOp(std::string& text) { benchmark::DoNotOptimize(text.data()); }

void BM_Normalize_Commandline(benchmark::State& state, const std::string& part) {
    if (!SameOutput(state, true)) return;
    RunOverCorpus(state, Part(part, true), [](std::string& t) { NormalizeCommandline(t); });
}

void BM_Normalize_CommandlineRegex(benchmark::State& state, const std::string& part) {
    if (!SameOutput(state, true)) return;
    RunOverCorpus(state, Part(part, true), [](std::string& t) { Reference().CommandLine(t); });
}

void BM_Normalize_CommandlineCopy(benchmark::State& state, const std::string& part) {
    RunOverCorpus(state, Part(part, true), NoOp);
}

void BM_Normalize_ProcessPath(benchmark::State& state, const std::string& part) {
    if (!SameOutput(state, false)) return;
    RunOverCorpus(state, Part(part, false), [](std::string& t) { NormalizeProcessPath(t); });
}

void BM_Normalize_ProcessPathRegex(benchmark::State& state, const std::string& part) {
    if (!SameOutput(state, false)) return;
    RunOverCorpus(state, Part(part, false), [](std::string& t) { Reference().ProcessPath(t); });
}

void BM_Normalize_ProcessPathCopy(benchmark::State& state, const std::string& part) {
    RunOverCorpus(state, Part(part, false), NoOp);
}

#define KALVO_NORMALIZE_BENCHMARKS(part, bound)                                                                        \
    BENCHMARK_CAPTURE(BM_Normalize_Commandline, part, #part);                                                          \
    BENCHMARK_CAPTURE(BM_Normalize_CommandlineRegex, part, #part);                                                     \
    BENCHMARK_CAPTURE(BM_Normalize_CommandlineCopy, part, #part);                                                      \
    BENCHMARK_CAPTURE(BM_Normalize_ProcessPath, part, #part);                                                          \
    BENCHMARK_CAPTURE(BM_Normalize_ProcessPathRegex, part, #part);                                                     \
    BENCHMARK_CAPTURE(BM_Normalize_ProcessPathCopy, part, #part);                                                      \
    const bool registered_##part =                                                                                     \
        RegisterRatio({"NormalizeCommandline (" #part "): std::regex_replace / ours",                                  \
                       "BM_Normalize_CommandlineRegex/" #part, "BM_Normalize_Commandline/" #part, Metric::Time, bound, \
                       std::nullopt, "BM_Normalize_CommandlineCopy/" #part}) &&                                        \
        RegisterRatio({"NormalizeProcessPath (" #part "): std::regex_replace / ours",                                  \
                       "BM_Normalize_ProcessPathRegex/" #part, "BM_Normalize_ProcessPath/" #part, Metric::Time, bound, \
                       std::nullopt, "BM_Normalize_ProcessPathCopy/" #part}) &&                                        \
        RegisterRatio({"NormalizeCommandline (" #part ", copy included)", "BM_Normalize_CommandlineRegex/" #part,      \
                       "BM_Normalize_Commandline/" #part, Metric::Time, std::nullopt, std::nullopt, ""}) &&            \
        RegisterRatio({"NormalizeProcessPath (" #part ", copy included)", "BM_Normalize_ProcessPathRegex/" #part,      \
                       "BM_Normalize_ProcessPath/" #part, Metric::Time, std::nullopt, std::nullopt, ""});

KALVO_NORMALIZE_BENCHMARKS(all, 100.0)
KALVO_NORMALIZE_BENCHMARKS(real, std::nullopt)
KALVO_NORMALIZE_BENCHMARKS(synthetic, std::nullopt)

}  // namespace
}  // namespace KALVO::Bench
