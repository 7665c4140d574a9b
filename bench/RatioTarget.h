// RatioTarget: a performance target stated as the ratio of two benchmarks measured in the same
// run, so that it holds on a slow or busy machine as well as on a fast one. Benchmark files
// register their targets; the benchmark binary prints every ratio after the runs.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace KALVO::Bench {

// What is compared: the CPU time one iteration takes (single-threaded benchmarks: on a shared
// machine the real time mostly measures how long other processes held the cores), or the
// items processed per second of real time (benchmarks on several threads, whose items are
// summed over the threads).
enum class Metric { Time, Throughput };

// ratio = Measure(numerator) / Measure(denominator), or with a baseline
// (Measure(numerator) - Measure(baseline)) / (Measure(denominator) - Measure(baseline)): the
// baseline takes out work both sides share and that is not what is compared (copying the
// input). Met when within the bounds; a target without bounds is for information only.
struct RatioTarget {
    std::string label;
    std::string numerator;  // full benchmark name, e.g. "BM_Normalize_CommandlineRegex"
    std::string denominator;
    Metric metric = Metric::Time;
    std::optional<double> atLeast;
    std::optional<double> atMost;
    std::string baseline;  // empty: none
};

// Called from static initialisers of the benchmark files; returns true.
bool RegisterRatio(RatioTarget target);
const std::vector<RatioTarget>& RegisteredRatios();

}  // namespace KALVO::Bench
