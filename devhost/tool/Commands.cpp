#include "devhost/tool/Commands.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "devhost/tool/ConfigWatcher.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/KeyForecast.h"
#include "devhost/tool/LiveSource.h"
#include "devhost/tool/PluginLocation.h"
#include "devhost/tool/Replay.h"
#include "devhost/tool/SensorFeed.h"
#include "devhost/tool/SensorSession.h"
#include "devhost/tool/StateDirectory.h"

namespace KALVO::DevHost::Tool {

namespace {

using Clock = SignalWatcher::Clock;

// The routing key under which the sensor answers the agent's health check.
constexpr char const* HealthCheckKey = "securitymonitor!OnHealthCheck";

// Passes events on, and asks for a stop once stdout is gone (a closed pipe), since nobody
// sees what would follow.
class WatchedSink final : public EventSink {
public:
    WatchedSink(EventSink& inner, const LineOutput& output, SignalWatcher& signals)
        : m_inner(inner), m_output(output), m_signals(signals) {}
    void Deliver(const TraceEvent& event) override {
        m_inner.Deliver(event);
        if (m_output.Failed() && !m_signals.StopRequested()) {
            Warn("stdout is closed; stopping");
            m_signals.RequestStop();
        }
    }

private:
    EventSink& m_inner;
    const LineOutput& m_output;
    SignalWatcher& m_signals;
};

// live keeps its state in the default directory; replay and health only where asked to.
SessionOptions SessionOptionsFor(const ToolOptions& options, bool persistentByDefault) {
    SessionOptions session;
    session.pluginPath = options.plugin ? *options.plugin : DefaultPluginPath();
    if (options.stateDir || persistentByDefault) {
        const std::string directory = options.stateDir ? *options.stateDir : DefaultStateDirectory();
        session.storagePath = PrepareStateDirectory(directory);
    }
    if (options.config) session.configuration = ReadConfigurationFile(*options.config);
    session.logThreshold = options.logThreshold;
    session.faults = options.faults;
    return session;
}

std::unique_ptr<SensorSession> OpenSession(SessionOptions session, LineOutput& events) {
    const std::string storage = session.storagePath;
    try {
        return std::make_unique<SensorSession>(std::move(session), events);
    } catch (const PluginError&) {
        throw;
    } catch (const std::runtime_error& error) {
        // Anything else the host throws while being built is its storage failing to open.
        throw std::runtime_error("cannot open the storage " + storage + ": " + error.what());
    }
}

// Serves the configuration again on file changes and on SIGHUP while it lives.
class Reconfiguration {
public:
    // `forecast`, when given, reads the settings again after the sensor did.
    Reconfiguration(const std::optional<std::string>& config, SensorSession& session, SignalWatcher& signals,
                    KeyForecast* forecast = nullptr)
        : m_signals(signals),
          m_watcher(config, [&session, forecast, path = config](const std::optional<std::string>& text) {
              const Result::Code code = session.Reconfigure(text);
              if (forecast) forecast->Reconfigured();
              Note("configuration " + (path ? *path : std::string("(none)")) +
                   " served again; Synchronize answered " + std::to_string(code));
          }) {
        m_signals.SetReloadHandler([this] { m_watcher.Trigger(); });
    }
    ~Reconfiguration() { m_signals.SetReloadHandler({}); }

    Reconfiguration(const Reconfiguration&) = delete;
    Reconfiguration& operator=(const Reconfiguration&) = delete;

private:
    SignalWatcher& m_signals;
    ConfigWatcher m_watcher;
};

std::optional<Clock::time_point> DeadlineOf(const ToolOptions& options) {
    if (!options.duration) return std::nullopt;
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*options.duration));
}

void PrintSummary(const SensorFeed& feed, const SensorSession& session, Host& host) {
    const auto created = feed.Delivered(EventKind::Create);
    const auto exists = feed.Delivered(EventKind::Exists);
    const auto shell = feed.Delivered(EventKind::Shell);
    Note("delivered " + std::to_string(feed.Delivered()) + " events: create " + std::to_string(created) + ", exists " +
         std::to_string(exists) + ", terminate " + std::to_string(feed.Delivered(EventKind::Terminate)) + ", shell " +
         std::to_string(shell));
    // Terminations are never reported: what the sensor held back is counted among the rest.
    const std::uint64_t reportable = created + exists + shell;
    const std::uint64_t filtered = host.Filter().Suppressed();
    const std::uint64_t reported = session.Reported();
    const std::uint64_t suppressed = reportable - std::min(reportable, filtered + reported);
    Note("of " + std::to_string(reportable) + " reportable (create, exists, shell): filtered " + std::to_string(filtered) +
         ", suppressed " + std::to_string(suppressed) + ", reported " + std::to_string(reported) + " (created " +
         std::to_string(session.Reported(ReportKind::Created)) + ", exists " +
         std::to_string(session.Reported(ReportKind::Exists)) + ", shell " +
         std::to_string(session.Reported(ReportKind::Shell)) + ")");
}

void ShowForecast(const ToolOptions& options, ForecastReport report) {
    if (options.keysJson) {
        const std::string json = ForecastJson(report);
        const int fd = ::open(options.keysJson->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const bool written = fd >= 0 && ::write(fd, json.data(), json.size()) == static_cast<ssize_t>(json.size());
        if (fd >= 0) ::close(fd);
        if (!written) throw std::runtime_error("cannot write " + *options.keysJson + ": " + std::strerror(errno));
    }
    if (options.keys) {
        report.busiest.resize(std::min(report.busiest.size(), *options.keys));
        PrintForecast(report);
    }
}

}  // namespace

int RunLive(const ToolOptions& options, SignalWatcher& signals) {
    LineOutput events(STDOUT_FILENO);
    SessionOptions sessionOptions = SessionOptionsFor(options, true);

    LiveSource source(LiveOptions{options.source, options.treeRoot});
    Note(source.Description());
    auto session = OpenSession(std::move(sessionOptions), events);
    session->Start();
    SensorFeed feed(session->GetHost());
    {
        std::optional<KeyForecast> forecast;
        if (options.keys || options.keysJson) forecast.emplace(feed, *session);
        Reconfiguration reconfiguration(options.config, *session, signals, forecast ? &*forecast : nullptr);
        WatchedSink sink(forecast ? static_cast<EventSink&>(*forecast) : feed, events, signals);
        source.Run(sink, signals, DeadlineOf(options));
        session->Stop();
        source.NoteStatistics();
        PrintSummary(feed, *session, session->GetHost());
        if (forecast) ShowForecast(options, forecast->Report(options.keys.value_or(KeyForecast::DefaultRows)));
    }
    return 0;
}

int RunRecord(const ToolOptions& options, SignalWatcher& signals) {
    for (const std::string& name : options.ignored) Warn(name + " has no effect on record, which runs no sensor");

    int fd = STDOUT_FILENO;
    if (options.output) {
        fd = ::open(options.output->c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (fd < 0) throw std::runtime_error("cannot write trace " + *options.output + ": " + std::strerror(errno));
    }
    struct Closer {
        int fd;
        ~Closer() {
            if (fd != STDOUT_FILENO) ::close(fd);
        }
    } closer{fd};

    LineOutput lines(fd);
    TraceWriter writer(lines);
    LiveSource source(LiveOptions{options.source, options.treeRoot});
    Note(source.Description());
    WatchedSink sink(writer, lines, signals);
    source.Run(sink, signals, DeadlineOf(options));

    source.NoteStatistics();
    const auto count = [&](EventKind kind) { return writer.Written(kind); };
    Note("recorded " +
         std::to_string(count(EventKind::Create) + count(EventKind::Exists) + count(EventKind::Terminate) +
                        count(EventKind::Shell)) +
         " events: create " + std::to_string(count(EventKind::Create)) + ", exists " +
         std::to_string(count(EventKind::Exists)) + ", terminate " + std::to_string(count(EventKind::Terminate)) +
         ", shell " + std::to_string(count(EventKind::Shell)));
    return lines.Failed() && options.output ? 1 : 0;
}

int RunReplay(const ToolOptions& options, SignalWatcher& signals) {
    if (options.compare && options.trace == "-") throw std::runtime_error("--compare replays the trace twice: it cannot be stdin");
    const bool forecasting = options.keys || options.keysJson || options.compare;
    const std::size_t rows = options.keys.value_or(KeyForecast::DefaultRows);
    // Both runs of a comparison show their forecasts only; their reports would interleave.
    const int eventsFd = options.compare ? ::open("/dev/null", O_WRONLY | O_CLOEXEC) : STDOUT_FILENO;
    struct Closer {
        int fd;
        ~Closer() {
            if (fd != STDOUT_FILENO && fd >= 0) ::close(fd);
        }
    } closer{eventsFd};
    LineOutput events(eventsFd);

    const auto replay = [&](const std::optional<std::string>& config) {
        SessionOptions sessionOptions = SessionOptionsFor(options, false);
        if (config != options.config) sessionOptions.configuration = ReadConfigurationFile(*config);
        auto session = OpenSession(std::move(sessionOptions), events);
        session->Start();
        SensorFeed feed(session->GetHost());
        std::optional<KeyForecast> forecast;
        if (forecasting) forecast.emplace(feed, *session);
        ReplayResult result;
        {
            Reconfiguration reconfiguration(config, *session, signals, forecast ? &*forecast : nullptr);
            WatchedSink sink(forecast ? static_cast<EventSink&>(*forecast) : feed, events, signals);
            result = Replay(ReplayOptions{options.trace, options.threads}, sink, signals);
        }
        session->Stop();
        if (config) Note("configuration " + *config + ":");
        if (result.skipped != 0) Note("skipped " + std::to_string(result.skipped) + " malformed line(s) of the trace");
        PrintSummary(feed, *session, session->GetHost());
        return forecast ? forecast->Report(options.compare ? KeyForecast::KeyCapacity : rows) : ForecastReport{};
    };

    ForecastReport first = replay(options.config);
    if (!options.compare) {
        if (forecasting) ShowForecast(options, first);
        return 0;
    }
    ForecastReport second = replay(options.compare);
    PrintComparison(first, second, rows);
    return 0;
}

int RunHealth(const ToolOptions& options) {
    LineOutput out(STDOUT_FILENO);
    auto session = OpenSession(SessionOptionsFor(options, false), out);
    session->Start();
    std::string answer;
    const Result::Code code =
        session->GetHost().Router().Execute(HealthCheckKey, options.payload, answer);
    if (!answer.empty()) out.Write(answer);
    out.Write("code " + std::to_string(code));
    session->Stop();
    return code == Result::Success ? 0 : 1;
}

}  // namespace KALVO::DevHost::Tool
