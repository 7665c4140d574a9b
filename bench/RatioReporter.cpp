#include "bench/RatioReporter.h"

#include <fmt/format.h>

#include <mutex>
#include <optional>

namespace KALVO::Bench {

namespace {

std::mutex& RegistryMutex() {
    static std::mutex mutex;
    return mutex;
}

std::vector<RatioTarget>& Registry() {
    static std::vector<RatioTarget> targets;
    return targets;
}

}  // namespace

bool RegisterRatio(RatioTarget target) {
    std::lock_guard lock(RegistryMutex());
    Registry().push_back(std::move(target));
    return true;
}

const std::vector<RatioTarget>& RegisteredRatios() { return Registry(); }

void RatioReporter::ReportRuns(const std::vector<Run>& reports) {
    ConsoleReporter::ReportRuns(reports);
    for (const Run& run : reports) {
        if (run.error_occurred) continue;
        const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
        if (run.run_type == Run::RT_Aggregate && !median) continue;
        Measured& measured = m_results[run.run_name.str()];
        if (measured.fromMedian && !median) continue;
        measured.cpuSecondsPerIteration = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit);
        const auto items = run.counters.find("items_per_second");
        measured.itemsPerSecond = items == run.counters.end() ? 0.0 : static_cast<double>(items->second.value);
        measured.fromMedian = median;
    }
}

bool RatioReporter::PrintRatios(std::ostream& out, const std::vector<RatioTarget>& targets) const {
    bool allMet = true;
    out << "\nRatios (same run; time = CPU time per iteration, throughput = items per second of real time):\n";
    for (const RatioTarget& target : targets) {
        const bool time = target.metric == Metric::Time;
        const auto measure = [&](const std::string& name) -> std::optional<double> {
            const auto found = m_results.find(name);
            if (found == m_results.end()) return std::nullopt;
            return time ? found->second.cpuSecondsPerIteration : found->second.itemsPerSecond;
        };
        const auto numerator = measure(target.numerator);
        const auto denominator = measure(target.denominator);
        const auto baseline = target.baseline.empty() ? std::optional<double>(0.0) : measure(target.baseline);
        if (!numerator || !denominator || !baseline) continue;
        const double top = *numerator - *baseline;
        const double bottom = *denominator - *baseline;
        if (bottom <= 0) continue;
        const double ratio = top / bottom;
        std::string bound = "(information)";
        bool met = true;
        if (target.atLeast) {
            bound = fmt::format("target >= {:g}", *target.atLeast);
            met = ratio >= *target.atLeast;
        }
        if (target.atMost) {
            bound = fmt::format("target <= {:g}", *target.atMost);
            met = met && ratio <= *target.atMost;
        }
        const bool bounded = target.atLeast || target.atMost;
        allMet = allMet && met;
        out << fmt::format("RATIO {:<58} {:>10.2f}  {:<16} {}\n", target.label, ratio, bound,
                           bounded ? (met ? "met" : "MISSED") : "");
        if (target.baseline.empty()) {
            out << fmt::format("      = {} / {} ({})\n", target.numerator, target.denominator,
                               time ? "time" : "throughput");
        } else {
            out << fmt::format("      = ({0} - {2}) / ({1} - {2}) ({3})\n", target.numerator, target.denominator,
                               target.baseline, time ? "time" : "throughput");
        }
    }
    return allMet;
}

}  // namespace KALVO::Bench
