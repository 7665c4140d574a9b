// SensorSession: the sensor plug-in loaded into a stand-in host and driven as an agent drives
// it: CreateInstance on load, Start, Synchronize when the configuration changes, Stop (which
// saves the sensor's state), DestroyThis and unload. Reported events are written to stdout as
// they arrive, one JSON object a line, and counted by observation type for the summary.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "devhost/FaultInjector.h"
#include "host/LogSeverity.h"
#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "devhost/tool/LineOutput.h"
#include "devhost/tool/SensorFeed.h"

namespace KALVO::DevHost::Tool {

struct SessionOptions {
    std::string pluginPath;
    std::string storagePath = HostStorage::InMemory;  // a database file, or ":memory:"
    std::string configuration = "{}";
    // Echo the sensor's log lines up to this severity.
    std::uint32_t logThreshold = static_cast<std::uint32_t>(Logging::v0::Severity::Warn);
    std::vector<FaultRule> faults;
};

// Reported events by the kind of their first observation.
enum class ReportKind { Created, Exists, Shell, Other };
inline constexpr std::size_t ReportKindCount = 4;

class SensorSession {
public:
    // Builds the host (opening the storage) and loads the plug-in; `events` receives each
    // reported event's line and is borrowed. Throws std::runtime_error (the storage) or
    // PluginError, with a message for the user.
    SensorSession(SessionOptions options, LineOutput& events);
    // Stops the sensor if it runs, then unloads it; warns when it kept host references.
    ~SensorSession();

    SensorSession(const SensorSession&) = delete;  // owns the host and the plug-in
    SensorSession& operator=(const SensorSession&) = delete;

    // Throws std::runtime_error naming the code when Start fails.
    void Start();
    void Stop();
    // Serves `text` (when given) as the configuration and tells the sensor with Synchronize
    // {"reason":"configuration"}; returns the sensor's code. Any thread; lifecycle calls are
    // serialised, and one after Stop does nothing.
    Result::Code Reconfigure(const std::optional<std::string>& text);

    Host& GetHost() noexcept { return *m_host; }
    std::uint64_t Reported(ReportKind kind) const noexcept { return m_reported.Of(kind); }
    std::uint64_t Reported() const noexcept { return m_reported.Total(); }

private:
    std::unique_ptr<Host> m_host;
    std::unique_ptr<Plugin> m_plugin;
    std::mutex m_lifecycle;  // one lifecycle call at a time, as the agent makes them
    bool m_started = false;  // guarded by m_lifecycle
    KindCounts<ReportKind, ReportKindCount> m_reported;
};

}  // namespace KALVO::DevHost::Tool
