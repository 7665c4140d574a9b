// DeliveryLatency: how long the kernel's events took from the kernel to the sensor, for the
// statistics a live source shows when its run is over (scripts/storm.sh reads them).
#pragma once

#include <fmt/format.h>
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

namespace KALVO::DevHost::Tool {

class DeliveryLatency {
public:
    // An event the kernel stamped at `kernelNs` (CLOCK_MONOTONIC) was delivered just now.
    void Delivered(std::uint64_t kernelNs) {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        const std::uint64_t nowNs = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
        m_ns.push_back(nowNs > kernelNs ? nowNs - kernelNs : 0);
    }

    // "p50 A µs, p99 B µs, max C µs over N", empty when nothing was delivered.
    std::string Summary() const {
        if (m_ns.empty()) return {};
        std::vector<std::uint64_t> sorted = m_ns;
        std::sort(sorted.begin(), sorted.end());
        const auto at = [&](double share) {
            return sorted[static_cast<std::size_t>(share * (sorted.size() - 1))] / 1000;
        };
        return fmt::format("p50 {} µs, p99 {} µs, max {} µs over {}", at(0.5), at(0.99), sorted.back() / 1000,
                           sorted.size());
    }

private:
    std::vector<std::uint64_t> m_ns;  // one a delivery: a storm's worth is a few hundred KiB
};

}  // namespace KALVO::DevHost::Tool
