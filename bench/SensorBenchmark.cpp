// The loaded plug-in's handlers called as the stand-in host calls them, on the three paths an
// event can take (filtered by the host, suppressed by the repeat limit, reported), for process
// creations and shell commands; a floor that does only what no implementation of the repeat
// limit can avoid; and the suppressed path on one and two threads at once.
#include <benchmark/benchmark.h>

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench/Letters.h"
#include "bench/QuietSensor.h"
#include "bench/RatioTarget.h"

namespace KALVO::Bench {
namespace {

using ProcessPtr = QuietSensor::ProcessPtr;

constexpr char const* ParentPath = "/bin/zsh";
constexpr char const* ParentCommandLine = "-zsh";
constexpr char const* ChildPath = "/usr/bin/python3";
constexpr char const* ChildCommandLine =
    "/usr/bin/python3 -m pip install --cache-dir /tmp/pip-cache-8j2k requests==2.31.0";
constexpr char const* ShellCommand = "git log --oneline --since=yesterday -- src/monitor";
// More distinct keys than the repeat cache holds, so that every event of the reported path
// misses the cache and is reported.
constexpr std::size_t DistinctKeys = 4096;

void CountItems(benchmark::State& state) { state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations())); }

std::unique_ptr<QuietSensor> StartSensor() { return std::make_unique<QuietSensor>(KALVO_PLUGIN_PATH); }

// The one creation the filtered and suppressed paths deliver; the suppressed path first uses
// up the key's reports.
void DeliverCreate(benchmark::State& state, std::uint32_t filterAnswer, bool useUpReports) {
    auto sensor = StartSensor();
    auto& monitor = sensor->ProcessMonitor();
    sensor->Host().Faults().Apply({KALVO::DevHost::Operation::Filter, filterAnswer, std::nullopt});
    auto event = QuietSensor::Event();
    ProcessPtr parent = sensor->Process("parent", ParentPath, ParentCommandLine);
    ProcessPtr child = sensor->Process("child", ChildPath, ChildCommandLine);
    if (useUpReports) {
        for (int i = 0; i < 3; ++i) monitor.OnProcessCreate(event, child, parent);
    }
    const auto reportedBefore = sensor->Host().Reports().EventCount();
    for (auto _ : state) monitor.OnProcessCreate(event, child, parent);
    if (sensor->Host().Reports().EventCount() != reportedBefore) state.SkipWithError("an event was reported");
    CountItems(state);
}

void BM_Sensor_CreateFiltered(benchmark::State& state) { DeliverCreate(state, 1, false); }
BENCHMARK(BM_Sensor_CreateFiltered);

void BM_Sensor_CreateSuppressed(benchmark::State& state) { DeliverCreate(state, 0, true); }
BENCHMARK(BM_Sensor_CreateSuppressed);

void BM_Sensor_CreateReported(benchmark::State& state) {
    auto sensor = StartSensor();
    auto& monitor = sensor->ProcessMonitor();
    auto event = QuietSensor::Event();
    ProcessPtr parent = sensor->Process("parent", ParentPath, ParentCommandLine);
    std::vector<ProcessPtr> children;
    for (std::size_t i = 0; i < DistinctKeys; ++i) {
        children.push_back(
            sensor->Process("child-" + Letters(i), ChildPath, std::string(ChildCommandLine) + " " + Letters(i)));
    }
    const auto reportedBefore = sensor->Host().Reports().EventCount();
    std::size_t next = 0;
    for (auto _ : state) {
        monitor.OnProcessCreate(event, children[next], parent);
        next = next + 1 == children.size() ? 0 : next + 1;
    }
    if (sensor->Host().Reports().EventCount() - reportedBefore != static_cast<std::uint64_t>(state.iterations()))
        state.SkipWithError("an event was not reported");
    CountItems(state);
}
BENCHMARK(BM_Sensor_CreateReported);

void DeliverShell(benchmark::State& state, std::uint32_t filterAnswer, bool useUpReports) {
    auto sensor = StartSensor();
    auto& monitor = sensor->ShellMonitor();
    sensor->Host().Faults().Apply({KALVO::DevHost::Operation::Filter, filterAnswer, std::nullopt});
    auto event = QuietSensor::Event();
    ProcessPtr shell = sensor->Process("shell", ParentPath, ParentCommandLine);
    const std::string_view command = ShellCommand;
    if (useUpReports) {
        for (int i = 0; i < 3; ++i) monitor.OnShellCommand(event, shell, command.data(), command.size());
    }
    const auto reportedBefore = sensor->Host().Reports().EventCount();
    for (auto _ : state) monitor.OnShellCommand(event, shell, command.data(), command.size());
    if (sensor->Host().Reports().EventCount() != reportedBefore) state.SkipWithError("an event was reported");
    CountItems(state);
}

void BM_Sensor_ShellFiltered(benchmark::State& state) { DeliverShell(state, 1, false); }
BENCHMARK(BM_Sensor_ShellFiltered);

void BM_Sensor_ShellSuppressed(benchmark::State& state) { DeliverShell(state, 0, true); }
BENCHMARK(BM_Sensor_ShellSuppressed);

void BM_Sensor_ShellReported(benchmark::State& state) {
    auto sensor = StartSensor();
    auto& monitor = sensor->ShellMonitor();
    auto event = QuietSensor::Event();
    ProcessPtr shell = sensor->Process("shell", ParentPath, ParentCommandLine);
    std::vector<std::string> commands;
    for (std::size_t i = 0; i < DistinctKeys; ++i) commands.push_back(std::string(ShellCommand) + " " + Letters(i));
    const auto reportedBefore = sensor->Host().Reports().EventCount();
    std::size_t next = 0;
    for (auto _ : state) {
        monitor.OnShellCommand(event, shell, commands[next].data(), commands[next].size());
        next = next + 1 == commands.size() ? 0 : next + 1;
    }
    if (sensor->Host().Reports().EventCount() - reportedBefore != static_cast<std::uint64_t>(state.iterations()))
        state.SkipWithError("an event was not reported");
    CountItems(state);
}
BENCHMARK(BM_Sensor_ShellReported);

std::string Text(char const* text) { return text ? std::string(text) : std::string(); }

// What any repeat limit must do for a suppressed creation: copy the four texts out of the
// host's records, join them into the key, hash it and find it among 512 keys.
void BM_Floor_CopyJoinHashLookup(benchmark::State& state) {
    DevHost::Host host;
    DevHost::ProcessRecord parentRecord{.path = ParentPath, .commandLine = ParentCommandLine, .uid = "parent"};
    DevHost::ProcessRecord childRecord{.path = ChildPath, .commandLine = ChildCommandLine, .uid = "child"};
    const ProcessPtr parent = host.MakeProcess(parentRecord);
    const ProcessPtr child = host.MakeProcess(childRecord);
    std::unordered_map<std::string, unsigned> counts;
    counts.reserve(512);
    for (std::size_t i = 0; i < 511; ++i) {
        counts.emplace(
            std::string(ParentPath) + "|" + ChildPath + "|" + ParentCommandLine + "|" + ChildCommandLine + Letters(i),
            1);
    }
    counts.emplace(std::string(ParentPath) + "|" + ChildPath + "|" + ParentCommandLine + "|" + ChildCommandLine, 4);
    for (auto _ : state) {
        const std::string parentPath = Text(parent->GetPath());
        const std::string childPath = Text(child->GetPath());
        const std::string parentCommandLine = Text(parent->GetCommandLine());
        const std::string childCommandLine = Text(child->GetCommandLine());
        std::string key;
        key.reserve(parentPath.size() + childPath.size() + parentCommandLine.size() + childCommandLine.size() + 3);
        key.append(parentPath).append(1, '|').append(childPath).append(1, '|');
        key.append(parentCommandLine).append(1, '|').append(childCommandLine);
        const auto found = counts.find(key);
        benchmark::DoNotOptimize(found->second);
    }
    CountItems(state);
}
BENCHMARK(BM_Floor_CopyJoinHashLookup);

// One sensor for all threads; each thread delivers its own suppressed key.
QuietSensor& SharedSensor() {
    static QuietSensor sensor(KALVO_PLUGIN_PATH);
    return sensor;
}

void BM_Sensor_CreateSuppressedThreads(benchmark::State& state) {
    QuietSensor& sensor = SharedSensor();
    auto& monitor = sensor.ProcessMonitor();
    const std::string suffix = Letters(static_cast<std::size_t>(state.thread_index()));
    auto event = QuietSensor::Event();
    ProcessPtr parent = sensor.Process("parent-" + suffix, ParentPath, ParentCommandLine);
    ProcessPtr child = sensor.Process("child-" + suffix, ChildPath, std::string(ChildCommandLine) + " " + suffix);
    for (int i = 0; i < 3; ++i) monitor.OnProcessCreate(event, child, parent);
    for (auto _ : state) monitor.OnProcessCreate(event, child, parent);
    CountItems(state);
}
BENCHMARK(BM_Sensor_CreateSuppressedThreads)->Threads(1)->Threads(2)->UseRealTime();

const bool registered =
    RegisterRatio({"Process creation, suppressed / floor", "BM_Sensor_CreateSuppressed", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, 3.0, ""}) &&
    RegisterRatio({"Process creation, filtered / floor", "BM_Sensor_CreateFiltered", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"Process creation, reported / floor", "BM_Sensor_CreateReported", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"Shell command, suppressed / floor", "BM_Sensor_ShellSuppressed", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"Shell command, filtered / floor", "BM_Sensor_ShellFiltered", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"Shell command, reported / floor", "BM_Sensor_ShellReported", "BM_Floor_CopyJoinHashLookup",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"Suppressed creation, 2 threads / 1 thread", "BM_Sensor_CreateSuppressedThreads/real_time/threads:2",
                   "BM_Sensor_CreateSuppressedThreads/real_time/threads:1", Metric::Throughput, 1.5, std::nullopt, ""});

}  // namespace
}  // namespace KALVO::Bench
