// The benchmark binary's entry: runs the selected benchmarks with the usual Google Benchmark
// flags, then prints every registered ratio target. Exits 0 even when a target is missed (a
// busy machine must not fail a build); --kalvo_strict makes a missed target exit 1.
#include <benchmark/benchmark.h>

#include <cstring>
#include <iostream>
#include <vector>

#include "bench/RatioReporter.h"

int main(int argc, char** argv) {
    bool strict = false;
    std::vector<char*> args;
    for (int i = 0; i < argc; ++i) {
        if (std::strcmp(argv[i], "--kalvo_strict") == 0) {
            strict = true;
        } else {
            args.push_back(argv[i]);
        }
    }
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data())) return 1;

    KALVO::Bench::RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const bool met = reporter.PrintRatios(std::cout, KALVO::Bench::RegisteredRatios());
    benchmark::Shutdown();
    return strict && !met ? 1 : 0;
}
