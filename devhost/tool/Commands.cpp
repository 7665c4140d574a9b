// kalvo-devhost's four commands, each run against the sensor plug-in under the stand-in host. They
// return the program's exit status, and throw std::exception with a one-line message for the user
// when they cannot do their work.
#include "devhost/tool/Commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

#include "devhost/tool/ForecastPage.h"
#include "devhost/tool/KeyForecast.h"
#include "devhost/tool/LiveSource.h"
#include "devhost/tool/TraceFormat.h"
#include "eil/core/ScopeGuard.h"

namespace KALVO::DevHost::Tool {
namespace {

using Clock = SignalWatcher::Clock;

// The routing key under which the sensor answers the agent's health check, and the request.
constexpr char const* HealthCheckKey = "securitymonitor!OnHealthCheck";
constexpr char const* HealthCheckRequest = R"({"id":"kalvo-devhost"})";
// The file in the state directory where live leaves what its source lost.
constexpr char const* LiveLossFile = "live-loss.txt";

// Writes each event as a trace line, and counts what was written by kind.
struct TraceWriter final : public EventSink {
    explicit TraceWriter(LineOutput& lines) noexcept : output(lines) {}
    void Deliver(TraceEvent event) override {
        output.Write(FormatTraceLine(event));
        if (!output.Failed()) written[static_cast<std::size_t>(event.kind)].fetch_add(1, std::memory_order_relaxed);
    }

    LineOutput& output;
    EventCounts written{};
};

std::optional<Clock::time_point> DeadlineOf(const ToolOptions& options) {
    if (!options.duration) return std::nullopt;
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.duration));
}

// The identity of the sensor a forecast goes to, when a forecast is asked for.
//
// The forecast keys events with the sensor's code compiled into this program, while the events
// go to the library loaded: when that library is another build, its outcomes are counted under
// keys it may not form. That is a warning and a mark in the report, not a refusal: the counts
// of what was delivered, reported and suppressed are the loaded sensor's own, and running a
// trace against another release to see how it behaves is a fair use of the tool.
std::optional<SensorIdentity> ForecastSensor(const ToolOptions& options, const std::string& pluginPath) {
    if (!options.keys && !options.keysJson && !options.keysHtml && !options.compare) return std::nullopt;
    SensorIdentity identity = ProbeSensor(pluginPath);
    if (!identity.SameBuild())
        Warn(
            fmt::format("the sensor {} reports version {}, this program was built with {}: the forecast's keys "
                        "are this program's and may not be the ones that sensor counts",
                        pluginPath, identity.version.value_or("(none)"), SecurityMonitor::Version));
    return identity;
}

// Runs the sensor on the events `drive` delivers. With the identity of a forecast's sensor, they
// pass through a forecast, whose report is returned: of the busiest keys --keys asks for, or of
// every key it keeps when the report is to be compared.
std::optional<ForecastReport> RunSensor(const ToolOptions& options, SensorSession& session, SignalWatcher& signals,
                                        const std::optional<SensorIdentity>& identity,
                                        const std::function<void(EventSink&)>& drive) {
    session.Start(signals);
    std::optional<KeyForecast> forecast;
    if (identity) forecast.emplace(session);
    drive(forecast ? static_cast<EventSink&>(*forecast) : session);
    session.Stop();
    if (!forecast) return std::nullopt;
    ForecastReport report = forecast->Report(options.compare ? KeyCapacity : options.keys.value_or(DefaultKeyRows));
    report.sensor = identity;
    return report;
}

int RunLive(const ToolOptions& options, SignalWatcher& signals) {
    LineOutput events(STDOUT_FILENO, &signals);
    SensorSession session(options, options.config, &events);
    LiveSource source(LiveOptions{options.source, options.treeRoot});
    Note(source.Description());
    const std::optional<ForecastReport> report =
        RunSensor(options, session, signals, ForecastSensor(options, PluginPathOf(options)),
                  [&](EventSink& sink) { source.Run(sink, signals, DeadlineOf(options)); });
    source.NoteStatistics();
    // Beside the storage, for `health --state` to tell what the last run lost.
    std::ofstream(std::filesystem::path(StoragePath(options)).parent_path() / LiveLossFile)
        << (source.Loss().empty() ? "none counted" : source.Loss()) << '\n';
    session.PrintSummary();
    if (report) ShowForecast(*report, options);
    if (report && options.keysHtml)
        WriteForecastPage(*options.keysHtml, "this machine", {{"live", &*report}},
                          options.keys.value_or(DefaultKeyRows));
    return 0;
}

int RunRecord(const ToolOptions& options, SignalWatcher& signals) {
    const int fd = options.output ? ::open(options.output->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)
                                  : STDOUT_FILENO;
    if (fd < 0)
        throw std::runtime_error(fmt::format("cannot write trace {}: {}", *options.output, std::strerror(errno)));
    const auto closer = EIL::Core::MakeScopeExit([fd] {
        if (fd != STDOUT_FILENO) ::close(fd);
    });
    LineOutput lines(fd, &signals);
    TraceWriter writer(lines);
    LiveSource source(LiveOptions{options.source, options.treeRoot});
    Note(source.Description());
    source.Run(writer, signals, DeadlineOf(options));

    source.NoteStatistics();
    const auto [create, exists, terminate, shell] = Snapshot(writer.written);
    Note(fmt::format("recorded {} events: create {}, exists {}, terminate {}, shell {}",
                     create + exists + terminate + shell, create, exists, terminate, shell));
    return lines.Failed() && options.output ? 1 : 0;
}

int RunReplay(const ToolOptions& options, SignalWatcher& signals) {
    if (options.compare && options.trace == "-")
        throw std::runtime_error("--compare replays the trace twice: it cannot be stdin");
    LineOutput events(STDOUT_FILENO, &signals);
    const std::optional<SensorIdentity> identity = ForecastSensor(options, PluginPathOf(options));

    const auto replay = [&](const std::optional<std::string>& config) {
        // Both runs of a comparison show their forecasts only; their reports would interleave.
        SensorSession session(options, config, options.compare ? nullptr : &events);
        std::uint64_t skipped = 0;
        std::optional<ForecastReport> report = RunSensor(options, session, signals, identity, [&](EventSink& sink) {
            skipped = Replay(options.trace, options.threads, sink, signals);
        });
        if (config) Note("configuration " + *config + ":");
        if (skipped != 0) Note(fmt::format("skipped {} malformed line(s) of the trace", skipped));
        session.PrintSummary();
        return report;
    };

    const auto title = [](const std::optional<std::string>& config) {
        return config ? "--config " + *config : std::string("default settings");
    };
    const std::size_t rows = options.keys.value_or(DefaultKeyRows);
    const std::optional<ForecastReport> first = replay(options.config);
    if (options.compare) {
        const std::optional<ForecastReport> second = replay(options.compare);
        PrintComparison(*first, *second, rows);
        if (options.keysHtml)
            WriteForecastPage(*options.keysHtml, options.trace,
                              {{title(options.config), &*first}, {title(options.compare), &*second}}, rows);
    } else if (first) {
        ShowForecast(*first, options);
        if (options.keysHtml)
            WriteForecastPage(*options.keysHtml, options.trace, {{title(options.config), &*first}}, rows);
    }
    return 0;
}

int RunHealth(const ToolOptions& options, SignalWatcher& signals) {
    LineOutput out(STDOUT_FILENO);
    SensorSession session(options, options.config, &out);
    session.Start(signals);
    std::string answer;
    const Result::Code code = session.GetHost().Router().Execute(HealthCheckKey, HealthCheckRequest, answer);
    if (!answer.empty()) out.Write(answer);
    out.Write(fmt::format("code {}", code));
    std::string loss;
    if (options.stateDir && std::getline(std::ifstream(std::filesystem::path(*options.stateDir) / LiveLossFile), loss))
        out.Write("loss of the last live run: " + loss);
    session.Stop();
    return code == Result::Success ? 0 : 1;
}

// This program's version, then the version the sensor it would load reports (1 when that
// sensor cannot be loaded or reports none).
int RunVersion(const ToolOptions& options) {
    LineOutput out(STDOUT_FILENO);
    out.Write(fmt::format("kalvo-devhost {}", SecurityMonitor::Version));
    const std::string plugin = PluginPathOf(options);
    const SensorIdentity identity = ProbeSensor(plugin);
    out.Write(fmt::format("sensor {} ({})", identity.version.value_or("unknown"), plugin));
    if (!identity.version) throw std::runtime_error("the sensor " + plugin + " reported no version");
    if (!identity.SameBuild()) Warn("the sensor is not the build this program was compiled with");
    return 0;
}

}  // namespace

int RunCommand(const ToolOptions& options, SignalWatcher& signals) {
    switch (options.command) {
    case Command::Live: return RunLive(options, signals);
    case Command::Record: return RunRecord(options, signals);
    case Command::Replay: return RunReplay(options, signals);
    case Command::Health: return RunHealth(options, signals);
    case Command::Version: return RunVersion(options);
    case Command::Help: break;  // the caller prints the usage text; no sensor is needed
    }
    return 0;
}

}  // namespace KALVO::DevHost::Tool
