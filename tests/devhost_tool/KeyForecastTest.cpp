// The forecast in the test's own process, on the built sensor: counts of a summary that had to
// fold keys held against exact counts, shell keys apart from process steps, a storm of keys the
// sensor's cache cannot hold, and the comparison of two runs as printed.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "devhost/tool/KeyForecast.h"
#include "tests/devhost_tool/ToolTesting.h"

namespace KALVO::Testing {
namespace {

// Keys told apart by letters, which the sensor's normalisation leaves alone.
std::string Letters(std::size_t number) {
    std::string text = "k";
    for (; number != 0; number /= 26) text += static_cast<char>('a' + number % 26);
    return text;
}

TraceEvent Create(const std::string& command) {
    return TraceEvent{EventKind::Create,
                      {.pid = 2, .parentPid = 1, .path = "/bin/c", .commandLine = command},
                      ProcessRecord{.pid = 1, .path = "/bin/p", .commandLine = "p"}};
}

TEST(KeyForecast, FoldedSummaryStaysWithinItsStatedError) {
    RunningSensor sensor;
    KeyForecast forecast(sensor.session);
    // 5,000 keys once, 500 three times and 20 forty times, shuffled: more keys than the summary holds.
    std::vector<std::size_t> keys;
    for (std::size_t key = 0; key < 5520; ++key) keys.insert(keys.end(), key < 5000 ? 1 : key < 5500 ? 3 : 40, key);
    std::shuffle(keys.begin(), keys.end(), std::mt19937(7));
    std::map<std::string, std::uint64_t> exact;
    for (const std::size_t key : keys) {
        forecast.Deliver(Create(Letters(key)));
        ++exact[Letters(key)];
    }
    const ForecastReport report = forecast.Report(KeyCapacity);
    EXPECT_EQ(report.total.delivered, keys.size());
    EXPECT_EQ(report.distinctKeys, exact.size());
    EXPECT_GT(report.foldedKeys, 0u);
    std::uint64_t listed = 0;
    for (const KeyRow& row : report.busiest) {
        const std::uint64_t truth = exact[row.key.substr(row.key.rfind('|') + 1)];
        EXPECT_LE(truth, row.delivered) << row.key;
        EXPECT_LE(row.delivered - row.error, truth) << row.key;
        EXPECT_LE(row.error, report.maxError) << row.key;
        listed += truth > report.maxError ? 1 : 0;
    }
    // Every key counted more often than the error is among the rows.
    const auto above =
        std::count_if(exact.begin(), exact.end(), [&](const auto& key) { return key.second > report.maxError; });
    EXPECT_EQ(listed, static_cast<std::uint64_t>(above));
}

TEST(KeyForecast, SummaryFoldsOnlyPastItsCapacity) {
    RunningSensor sensor;
    KeyForecast forecast(sensor.session);
    for (std::size_t key = 0; key <= KeyCapacity; ++key) forecast.Deliver(Create(Letters(key)));
    EXPECT_EQ(forecast.Report(1).foldedKeys, 1u);
    EXPECT_EQ(forecast.Report(1).busiest.size(), 1u);
}

TEST(KeyForecast, ShellKeyAndProcessStepOfTheSameTextAreKeptApart) {
    RunningSensor sensor;
    KeyForecast forecast(sensor.session);
    // Both keys read "/bin/p|/bin/c|p|x"; the shell's is reported as often as the default limit allows.
    TraceEvent shell{EventKind::Shell, {.pid = 3, .path = "/bin/p", .commandLine = "/bin/c"}};
    shell.command = "p|x";
    for (int round = 0; round < 4; ++round) forecast.Deliver(shell);
    forecast.Deliver(Create("x"));
    sensor.session.GetHost().Faults().Apply(ParseFaultRule("Filter=1x1"));  // filtered: not suppressed
    forecast.Deliver(Create("x"));
    std::vector<std::tuple<bool, std::string, std::uint64_t, std::uint64_t, std::uint64_t>> rows;
    for (const KeyRow& row : forecast.Report(3).busiest)
        rows.emplace_back(row.shell, row.key, row.delivered, row.reported, row.suppressed);
    EXPECT_EQ(rows, (decltype(rows){{true, "/bin/p|/bin/c|p|x", 4, 3, 1}, {false, "/bin/p|/bin/c|p|x", 2, 1, 0}}));
}

TEST(KeyForecast, KeysCycledThroughTheCacheAreReportedAgainEachTime) {
    // 600 keys in turn, three times, a second apart, with a limit of 1: the 512-entry cache
    // always forgets the key that comes next.
    const std::string config = ScratchPath("limit.json");
    WriteFile(config, R"({"securitymonitor":{"process_tree_report_limit":1}})");
    RunningSensor sensor(config);
    KeyForecast forecast(sensor.session);
    for (std::uint64_t index = 0; index < 1800; ++index) {
        TraceEvent event = Create(Letters(index % 600));
        event.time = 1'700'000'000'000'000'000 + index * 1'000'000'000;
        forecast.Deliver(event);
    }
    const ForecastReport report = forecast.Report(KeyCapacity);
    const std::string json = ForecastJson(report);
    const std::size_t perDay = json.find("\"reported_per_day\":") + 19;
    EXPECT_NEAR(std::stod(json.substr(perDay)), 1800.0 / 1799 * 86400, 0.01) << json.substr(perDay);
    const KeyFigures expected{.delivered = 1800, .reported = 1800, .reportedAgain = 1200};
    for (const auto& [name, label, field] : FigureNames) EXPECT_EQ(report.total.*field, expected.*field) << name;
    EXPECT_EQ(report.evictions, 1800u - 512);
    EXPECT_EQ(report.keysAtLimit, 0u);
    EXPECT_EQ(report.busiest.size(), 600u);
    for (const KeyRow& row : report.busiest) EXPECT_EQ(row.reportedAgain, 2u) << row.key;
}

TEST(KeyForecast, ComparisonShowsBothTotalsAndTheKeysDifferingMost) {
    const auto row = [](bool shell, char const* key, std::uint64_t reported) {
        KeyRow made;
        made.shell = shell;
        made.key = key;
        made.reported = reported;
        return made;
    };
    ForecastReport first;
    first.busiest = {row(false, "same", 3), row(true, "k1", 2), row(false, "k2", 1)};
    first.total = {10, 6, 3, 1, 0};
    first.distinctKeys = 4;
    first.keysAtLimit = 2;
    ForecastReport second;
    second.busiest = {row(false, "same", 3), row(true, "k1", 6), row(false, "k4", 2)};
    second.total = {10, 9, 0, 1, 2};
    second.distinctKeys = 5;
    EXPECT_EQ(StderrOf([&] { PrintComparison(first, second, 2); }),
              "kalvo-devhost:                                        first    second\n"
              "kalvo-devhost: events with a repeat key                  10        10\n"
              "kalvo-devhost: reported                                   6         9\n"
              "kalvo-devhost: suppressed by the limit                    3         0\n"
              "kalvo-devhost: filtered by the host                       1         1\n"
              "kalvo-devhost: reported again after eviction              0         2\n"
              "kalvo-devhost: distinct keys                              4         5\n"
              "kalvo-devhost: keys that reached the limit                2         0\n"
              "kalvo-devhost: keys whose reported events differ most (first, second):\n"
              "kalvo-devhost:         2         6  shell k1\n"
              "kalvo-devhost:         0         2  step  k4\n");
}

}  // namespace
}  // namespace KALVO::Testing
