// RatioReporter: the console reporter of the benchmark binary, which also keeps every result
// so that the registered ratio targets can be computed and printed when the runs are over.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "bench/RatioTarget.h"

namespace KALVO::Bench {

class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& reports) override;

    // Prints one line per target whose two benchmarks both ran: the ratio, the bound and
    // "met" or "MISSED". Returns false when a bounded target was missed.
    bool PrintRatios(std::ostream& out, const std::vector<RatioTarget>& targets) const;

private:
    struct Measured {
        double cpuSecondsPerIteration = 0;
        double itemsPerSecond = 0;
        bool fromMedian = false;
    };

    // By run name (without the aggregate suffix). With repetitions the median wins.
    std::map<std::string, Measured> m_results;
};

}  // namespace KALVO::Bench
