// SensorSession: the sensor plug-in loaded into a stand-in host and driven as an agent drives
// it: CreateInstance on load, Start, Synchronize when the configuration changes, Stop (which
// saves the sensor's state), DestroyThis and unload. The configuration is a file, served again
// while the sensor runs whenever it changes (its modification time, size or inode, checked
// every half second) or on SIGHUP, the way an agent pushes new configuration to its plug-ins;
// a file that cannot be read or is not a JSON object is never served: at start-up that ends the
// program, later it is a warning and the sensor keeps what it has. Events reach it the way the agent's event
// provider hands them over, through the host's monitor registration with the host's own process
// objects; what it reports is written out as it arrives, one JSON object a line. Both are
// counted by kind for the run's summary.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "devhost/EventRenderer.h"
#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/EventSink.h"
#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/ToolOptions.h"
#include "eil/json/RapidJson.h"
#include "monitor/ReportTypes.h"
#include "package/Version.h"

namespace KALVO::DevHost::Tool {

namespace fs = std::filesystem;

// The observation type ids of the sensor's three reports, in m_reported's order.
inline constexpr std::string_view ReportTypes[] = {
    SecurityMonitor::ProcessCreatedTypeId, SecurityMonitor::ProcessExistsTypeId, SecurityMonitor::ShellCommandTypeId};

// The sensor library found from where this program lies, so that an installed pair works
// wherever it was installed: ../lib/kalvo/ (the install layout), else beside the program, else
// where the build tree puts it (KALVO_BUILD_TREE_PLUGIN, relative to the program's directory as
// well: an installed program has no such path and never reaches into the tree it was built in).
inline std::string DefaultPluginPath() {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) throw std::runtime_error("cannot tell where this program lies; name the sensor with --plugin PATH");
    const fs::path directory = self.parent_path();
    std::vector<std::string> candidates;
    for (const fs::path& relative : {fs::path("..") / "lib" / "kalvo" / KALVO_PLUGIN_FILE_NAME,
                                     fs::path(KALVO_PLUGIN_FILE_NAME), fs::path(KALVO_BUILD_TREE_PLUGIN)})
        candidates.push_back((directory / relative).lexically_normal().string());
    for (const std::string& candidate : candidates)
        if (fs::is_regular_file(candidate, error)) return candidate;
    throw std::runtime_error(fmt::format("no sensor library found (looked for {}); name one with --plugin PATH",
                                         fmt::join(candidates, ", ")));
}

// The sensor library a command loads: --plugin, else the default.
inline std::string PluginPathOf(const ToolOptions& options) {
    return options.plugin ? *options.plugin : DefaultPluginPath();
}

// What the loaded sensor says of itself, and whether it is the build this program was
// compiled with.
struct SensorIdentity {
    std::optional<std::string> version;  // nothing: it reported nothing to read it from
    bool SameBuild() const { return version == std::string(SecurityMonitor::Version); }
};

// The version the sensor library at `path` reports in its source record, the only place a
// sensor states it to its host: the library is loaded into a host of its own (storage in
// memory, no configuration, no faults, its log lines silenced) and handed one running process
// to report. The caller's own session and storage are untouched. Throws PluginError when the
// library cannot be loaded, std::runtime_error when it does not start.
inline SensorIdentity ProbeSensor(const std::string& path) {
    Host host;
    host.Logs().SetRetention(false);
    SensorIdentity identity;
    host.Reports().SetListener([&identity](const EventRecord& event) {
        if (identity.version || event.observations.empty() || !event.observations.front().source) return;
        EIL::RJ::Document source;
        source.Parse(RenderValuesJson(*event.observations.front().source));
        if (source.HasParseError() || !source.IsObject() || !source.HasMember("info")) return;
        const EIL::RJ::Value& info = source["info"];
        if (!info.IsObject() || !info.HasMember("version")) return;
        const EIL::RJ::Value& version = info["version"];
        if (version.IsString()) identity.version = std::string(version.GetString(), version.GetStringLength());
    });
    Plugin plugin(path, host.Root());
    const Result::Code code = plugin.Package()->Start(nullptr, 0);
    if (code == Result::Success) {
        host.Monitors().DeliverProcessExists(
            host.MakeProcess(ProcessRecord{.pid = 1, .path = "/sbin/init", .commandLine = "/sbin/init"}));
        (void)plugin.Package()->Stop(nullptr, 0);
    }
    UnloadFrom(host, plugin);
    host.Reports().SetListener({});
    if (code != Result::Success)
        throw std::runtime_error(fmt::format("the sensor {} did not start (code {})", path, code));
    return identity;
}

// Where the host's storage lives between runs, so that a sensor restarted on the same machine
// remembers the processes it has already reported (as an agent's own data directory does):
// storage.sqlite3 in the directory, created when missing and checked to be writable. The state
// tells which processes ran: the directory is made private (0700), and one that other users may
// write to is refused, since they could replace the database or plant its journal.
inline std::string StoragePath(const ToolOptions& options) {
    if (!options.stateDir && options.command != Command::Live) return HostStorage::InMemory;
    char const* home = std::getenv("HOME");
    if (!options.stateDir && !(home && *home))
        throw std::runtime_error("no state directory: HOME is not set; give one with --state DIR");
    const std::string directory =
        options.stateDir ? *options.stateDir : std::string(home) + "/.local/state/kalvo-devhost";
    std::error_code error;
    // The parents as any directory; the state directory itself private whatever the umask.
    fs::path own(directory);
    if (!own.has_filename()) own = own.parent_path();  // "DIR/" names DIR
    if (own.has_parent_path()) fs::create_directories(own.parent_path(), error);
    if (!error && ::mkdir(directory.c_str(), 0700) != 0 && errno != EEXIST)
        error = std::error_code(errno, std::generic_category());
    struct stat status {};
    if (!error && ::stat(directory.c_str(), &status) != 0) error = std::error_code(errno, std::generic_category());
    if (!error && !S_ISDIR(status.st_mode)) error = std::make_error_code(std::errc::not_a_directory);
    if (error) throw std::runtime_error("cannot create state directory " + directory + ": " + error.message());
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0)
        throw std::runtime_error(
            fmt::format("state directory {} is writable by other users (mode {:o}); make it "
                        "private with chmod 700 or name another with --state DIR",
                        directory, status.st_mode & 07777));
    if (::access(directory.c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("state directory " + directory + " is not writable: " + std::strerror(errno));
    return (fs::path(directory) / "storage.sqlite3").string();
}

// The file's text once checked to be a JSON object (a UTF-8 byte-order mark allowed). Throws
// std::runtime_error with a one-line message naming the file and the fault.
inline std::string ReadConfigurationFile(const std::string& path) {
    const auto fault = [&](const std::string& why) {
        return std::runtime_error("cannot read configuration " + path + ": " + why);
    };
    std::error_code error;
    if (fs::is_directory(path, error)) throw fault("it is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw fault(std::strerror(errno));
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) throw fault("read error");

    std::string_view json(text);
    if (json.starts_with("\xEF\xBB\xBF")) json.remove_prefix(3);
    EIL::RJ::Document document;
    document.Parse<EIL::RJ::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError())
        throw std::runtime_error(fmt::format("configuration {} is not JSON: {} (offset {})", path,
                                             EIL::RJ::GetParseError_En(document.GetParseError()),
                                             document.GetErrorOffset()));
    if (!document.IsObject()) throw std::runtime_error("configuration " + path + " is not a JSON object");
    return text;
}

// A file's modification time (seconds, nanoseconds), size and inode; nothing: no file.
using FileStamp = std::optional<std::tuple<long long, long long, long long, unsigned long long>>;

inline FileStamp StampOf(const std::optional<std::string>& path) {
    struct stat status {};
    if (!path || ::stat(path->c_str(), &status) != 0) return std::nullopt;
    return std::tuple(static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
                      static_cast<long long>(status.st_size), static_cast<unsigned long long>(status.st_ino));
}

class SensorSession final : public EventSink {
public:
    // Finds what Start needs, so a mistake stops the program before anything runs: the plug-in
    // (--plugin, else DefaultPluginPath), the host's storage (in --state, else for live in the
    // default state directory, else in memory) and the configuration file `config`, read.
    // `options` and `events` (when given, it receives each reported event's line) are borrowed.
    // Throws std::runtime_error with a message for the user.
    SensorSession(const ToolOptions& options, const std::optional<std::string>& config, LineOutput* events)
        : m_options(options),
          m_events(events),
          m_config(config),
          m_pluginPath(PluginPathOf(options)),
          m_hostOptions{StoragePath(options), config ? ReadConfigurationFile(*config) : "{}"} {}

    // Stops the sensor if it runs, then unloads it; warns when it kept host references.
    ~SensorSession() override {
        Stop();
        if (!m_plugin) return;
        UnloadFrom(*m_host, *m_plugin);
        m_host->Reports().SetListener({});
        if (const std::string outstanding = m_host->OutstandingReferences(); !outstanding.empty())
            Warn("the sensor did not give back host references: " + outstanding);
    }

    // Builds the host (opening the storage), loads the plug-in and starts the sensor; serves the
    // configuration again (on the thread of `signals`, which is borrowed) until Stop. Throws
    // std::runtime_error (PluginError among them, or naming the code when Start fails).
    void Start(SignalWatcher& signals) {
        const std::string storage = m_hostOptions.storagePath;
        try {
            m_host = std::make_unique<Host>(std::move(m_hostOptions));
        } catch (const std::runtime_error& error) {
            // What the host throws while being built is its storage failing to open.
            throw std::runtime_error("cannot open the storage " + storage + ": " + error.what());
        }
        // A run may last hours: the host keeps counts, not copies.
        m_host->Logs().SetRetention(false);
        m_host->Logs().SetEcho([](const std::string& line) { ErrorOutput().Write(line); }, m_options.logThreshold);
        m_host->Reports().SetRetention(false);
        m_host->Filter().SetRetention(false);
        m_host->Reports().SetListener([this](const EventRecord& event) {
            const auto* type =
                std::find(std::begin(ReportTypes), std::end(ReportTypes),
                          event.observations.empty() ? std::string_view() : event.observations.front().typeId);
            if (type != std::end(ReportTypes))
                m_reported[type - std::begin(ReportTypes)].fetch_add(1, std::memory_order_relaxed);
            if (m_events) m_events->Write(RenderEventJson(event));
        });
        for (const FaultRule& rule : m_options.faults) m_host->Faults().Apply(rule);
        m_plugin = std::make_unique<Plugin>(m_pluginPath, m_host->Root());
        const Result::Code code = m_plugin->Package()->Start(nullptr, 0);
        if (code != Result::Success)
            throw std::runtime_error(
                fmt::format("the sensor's Start failed with code {} (its log lines above say why)", code));
        m_stamp = StampOf(m_config);
        m_signals = &signals;
        signals.SetReloadHandler([this](bool signalled) { Reload(signalled); });
    }

    void Stop() {
        // No reload after this, and none running: the agent makes one lifecycle call at a time.
        if (!m_signals) return;
        std::exchange(m_signals, nullptr)->SetReloadHandler({});
        const Result::Code code = m_plugin->Package()->Stop(nullptr, 0);
        if (code != Result::Success) Warn(fmt::format("the sensor's Stop answered code {}", code));
    }

    // Any thread, concurrently: the host delivers on the caller's thread.
    void Deliver(TraceEvent event) override {
        MonitorRegistration& monitors = m_host->Monitors();
        const auto process = m_host->MakeProcess(std::move(event.process));
        switch (event.kind) {
        case EventKind::Create:
            monitors.DeliverProcessCreate(process,
                                          m_host->MakeProcess(std::move(event.parent).value_or(ProcessRecord{})));
            break;
        case EventKind::Exists: monitors.DeliverProcessExists(process); break;
        case EventKind::Terminate: monitors.DeliverProcessTerminate(process); break;
        case EventKind::Shell: monitors.DeliverShellCommand(process, event.command); break;
        }
        m_delivered[static_cast<std::size_t>(event.kind)].fetch_add(1, std::memory_order_relaxed);
    }

    Host& GetHost() noexcept { return *m_host; }  // once started
    // How many times the configuration was served again: a change tells a reader of the
    // settings to read them again, as the sensor did.
    std::uint64_t Reconfigurations() const noexcept { return m_reconfigurations.load(std::memory_order_acquire); }
    // On stderr: the events delivered by kind, and of those the sensor could report how many
    // the host filtered, the sensor held back and the sensor reported. Once the events are in.
    void PrintSummary() const {
        const auto [create, exists, terminate, shell] = Snapshot(m_delivered);
        const auto [created, existing, shells] = Snapshot(m_reported);
        Note(fmt::format("delivered {} events: create {}, exists {}, terminate {}, shell {}",
                         create + exists + terminate + shell, create, exists, terminate, shell));
        // Terminations are never reported: what the sensor held back is counted among the rest.
        const std::uint64_t reportable = create + exists + shell;
        const std::uint64_t filtered = m_host->Filter().Suppressed();
        const std::uint64_t all = m_host->Reports().EventCount();
        Note(fmt::format(
            "of {} reportable (create, exists, shell): filtered {}, suppressed {}, reported {} (created {}, exists {}, "
            "shell {})",
            reportable, filtered, reportable - std::min(reportable, filtered + all), all, created, existing, shells));
    }

private:
    // Synchronize {"reason":"configuration"}, with the file read again, when it changed or when
    // `signalled` (SIGHUP).
    void Reload(bool signalled) {
        const auto stamp = StampOf(m_config);  // always nothing without a file
        if (!signalled && stamp == m_stamp) return;
        m_stamp = stamp;
        try {
            if (m_config) m_host->Config().SetText(ReadConfigurationFile(*m_config));
            static constexpr std::string_view context = R"({"reason":"configuration"})";
            const Result::Code code =
                m_plugin->Package()->Synchronize(context.data(), static_cast<unsigned long>(context.size()));
            m_reconfigurations.fetch_add(1, std::memory_order_release);
            Note(fmt::format("configuration {} served again; Synchronize answered {}", m_config.value_or("(none)"),
                             code));
        } catch (const std::exception& error) {
            Warn(std::string(error.what()) + "; the sensor keeps its configuration");
        }
    }

    const ToolOptions& m_options;
    LineOutput* m_events;
    std::optional<std::string> m_config;  // the configuration file
    std::string m_pluginPath;
    HostOptions m_hostOptions;     // until Start builds the host
    std::unique_ptr<Host> m_host;  // owned with the plug-in, so a session is never copied
    std::unique_ptr<Plugin> m_plugin;
    // Start, Stop and the destructor run on one thread, and reloads (on the signal thread)
    // only between Start and Stop, so the sensor receives one lifecycle call at a time.
    SignalWatcher* m_signals = nullptr;  // serving reloads, from a successful Start to Stop
    // The configuration file as last seen; a change serves it again. The reloading thread's only.
    FileStamp m_stamp;
    std::atomic<std::uint64_t> m_reconfigurations{0};
    // Counters only (relaxed): events delivered by EventKind, and reported by the kind of their
    // first observation (created, exists, shell).
    EventCounts m_delivered{};
    std::array<std::atomic<std::uint64_t>, 3> m_reported{};
};

}  // namespace KALVO::DevHost::Tool
