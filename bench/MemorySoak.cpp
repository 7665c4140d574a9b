// Memory soak: ten million process creations with distinct keys through the stand-in host,
// each process terminating again, and the resident size compared after a hundred thousand
// and at the end. Every cache of the sensor is bounded, so the two must stay within 5%.
// The host retains nothing (QuietSensor), so what grows would be the sensor's.
//
// Usage: kalvo_memory_soak [creations=10000000] [baseline=100000]
// Prints "RATIO ..." like the benchmark binary; exits 1 when the target is missed.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include <fmt/format.h>

#include "bench/Letters.h"
#include "bench/QuietSensor.h"

namespace {

std::uint64_t ResidentBytes() {
    std::ifstream statm("/proc/self/statm");
    std::uint64_t size = 0;
    std::uint64_t resident = 0;
    statm >> size >> resident;
    return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace

int main(int argc, char** argv) {
    using KALVO::Bench::Letters;
    const std::uint64_t total = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 10'000'000;
    const std::uint64_t baselineAt = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 100'000;
    if (baselineAt == 0 || baselineAt >= total) {
        std::fprintf(stderr, "usage: %s [creations > baseline] [baseline > 0]\n", argv[0]);
        return 2;
    }

    KALVO::Bench::QuietSensor sensor(KALVO_PLUGIN_PATH);
    auto& monitors = sensor.Host().Monitors();
    const auto parent = sensor.Process("parent", "/bin/zsh", "-zsh");
    const auto start = std::chrono::steady_clock::now();
    std::uint64_t baseline = 0;
    for (std::uint64_t i = 1; i <= total; ++i) {
        const std::string word = Letters(i);
        {
            const auto child =
                sensor.Process("child-" + word, "/usr/bin/worker", "worker --job " + word + " --queue default");
            monitors.DeliverProcessCreate(child, parent);
            monitors.DeliverProcessTerminate(child);
        }
        if (i == baselineAt) baseline = ResidentBytes();
        if (i == baselineAt || i % 1'000'000 == 0 || i == total) {
            const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            fmt::print("{:>10} creations  {:>8.1f} MiB resident  {:>6.1f} s\n", i, ResidentBytes() / 1048576.0,
                       seconds);
            std::fflush(stdout);
        }
    }
    const std::uint64_t reported = sensor.Host().Reports().EventCount();
    const std::uint64_t final = ResidentBytes();
    const double ratio = static_cast<double>(final) / static_cast<double>(baseline);
    const bool met = ratio <= 1.05;
    fmt::print("reported {} of {} creations\n", reported, total);
    fmt::print("RATIO {:<58} {:>10.3f}  {:<16} {}\n",
               fmt::format("resident after {} / after {} creations", total, baselineAt), ratio, "target <= 1.05",
               met ? "met" : "MISSED");
    return met && reported == total ? 0 : 1;
}
