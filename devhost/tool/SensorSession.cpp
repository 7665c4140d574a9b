#include "devhost/tool/SensorSession.h"

#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <vector>

#include "devhost/EventRenderer.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

namespace {

namespace fs = std::filesystem;

// The observation type ids of the sensor's three reports, in m_reported's order.
constexpr std::string_view ReportTypes[] = {"d5f9b921-5881-46fd-9ab8-dbee84f6dc6f", "6e7f8c8a-9213-4020-aeb1-d8d608c63d78",
                                            "79c21e2a-95c3-48b3-9af6-c5327b6b5c73"};

std::size_t ReportKindOf(const EventRecord& event) {
    if (event.observations.empty()) return std::size(ReportTypes);
    return std::find(std::begin(ReportTypes), std::end(ReportTypes), event.observations.front().typeId) - std::begin(ReportTypes);
}

// The sensor library next to the program (an installed pair), else the one built together
// with it (a build tree).
std::string DefaultPluginPath() {
    std::vector<std::string> candidates;
    std::error_code error;
    if (const fs::path self = fs::read_symlink("/proc/self/exe", error); !error)
        candidates.push_back((self.parent_path() / KALVO_PLUGIN_FILE_NAME).string());
    candidates.emplace_back(KALVO_BUILT_PLUGIN);
    for (const std::string& candidate : candidates)
        if (fs::is_regular_file(candidate, error)) return candidate;
    throw std::runtime_error(fmt::format("no sensor library found (looked for {}); name one with --plugin PATH",
                                         fmt::join(candidates, ", ")));
}

// Where the host's storage lives between runs, so that a sensor restarted on the same machine
// remembers the processes it has already reported (as an agent's own data directory does):
// storage.sqlite3 in the directory, created when missing and checked to be writable.
std::string StoragePath(const ToolOptions& options) {
    if (!options.stateDir && options.command != Command::Live) return HostStorage::InMemory;
    std::string directory;
    if (options.stateDir) {
        directory = *options.stateDir;
    } else if (char const* state = std::getenv("XDG_STATE_HOME"); state && state[0] == '/') {
        directory = std::string(state) + "/kalvo-devhost";  // the XDG rule: a relative value is to be ignored
    } else if (char const* home = std::getenv("HOME"); home && home[0] != '\0') {
        directory = std::string(home) + "/.local/state/kalvo-devhost";
    } else {
        throw std::runtime_error("no state directory: neither XDG_STATE_HOME nor HOME is set; give one with --state DIR");
    }
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) throw std::runtime_error("cannot create state directory " + directory + ": " + error.message());
    if (!fs::is_directory(directory, error)) throw std::runtime_error("state directory " + directory + " is not a directory");
    if (::access(directory.c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("state directory " + directory + " is not writable: " + std::strerror(errno));
    return (fs::path(directory) / "storage.sqlite3").string();
}

// The file's text once checked to be a JSON object (a UTF-8 byte-order mark allowed). Throws
// std::runtime_error with a one-line message naming the file and the fault.
std::string ReadConfigurationFile(const std::string& path) {
    const auto fault = [&](const std::string& why) { return std::runtime_error("cannot read configuration " + path + ": " + why); };
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
    if (document.HasParseError()) {
        throw std::runtime_error(fmt::format("configuration {} is not JSON: {} (offset {})", path,
                                             EIL::RJ::GetParseError_En(document.GetParseError()), document.GetErrorOffset()));
    }
    if (!document.IsObject()) throw std::runtime_error("configuration " + path + " is not a JSON object");
    return text;
}

std::optional<std::tuple<long long, long long, long long, unsigned long long>> StampOf(const std::optional<std::string>& path) {
    struct stat status {};
    if (!path || ::stat(path->c_str(), &status) != 0) return std::nullopt;
    return std::tuple(static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
                      static_cast<long long>(status.st_size), static_cast<unsigned long long>(status.st_ino));
}

}  // namespace

SensorSession::SensorSession(const ToolOptions& options, const std::optional<std::string>& config, LineOutput* events)
    : m_options(options),
      m_events(events),
      m_config(config),
      m_pluginPath(options.plugin ? *options.plugin : DefaultPluginPath()),
      m_hostOptions{StoragePath(options), config ? ReadConfigurationFile(*config) : "{}"} {}

SensorSession::~SensorSession() {
    Stop();
    if (!m_plugin) return;
    UnloadFrom(*m_host, *m_plugin);
    m_host->Reports().SetListener({});
    if (const std::string outstanding = m_host->OutstandingReferences(); !outstanding.empty()) {
        Warn("the sensor did not give back host references: " + outstanding);
    }
}

void SensorSession::Start(SignalWatcher& signals) {
    const std::string storage = m_hostOptions.storagePath;
    try {
        m_host = std::make_unique<Host>(std::move(m_hostOptions));
    } catch (const std::runtime_error& error) {
        // What the host throws while being built is its storage failing to open.
        throw std::runtime_error("cannot open the storage " + storage + ": " + error.what());
    }
    // A run may last hours: the host keeps counts, not copies.
    m_host->Logs().SetRetention(0);
    m_host->Logs().SetEcho([](const std::string& line) { ErrorOutput().Write(line); }, m_options.logThreshold);
    m_host->Reports().SetRetention(0);
    m_host->Filter().SetRetention(0);
    m_host->Reports().SetListener([this](const EventRecord& event) {
        if (const std::size_t kind = ReportKindOf(event); kind < m_reported.size()) m_reported[kind].fetch_add(1, std::memory_order_relaxed);
        if (m_events) m_events->Write(RenderEventJson(event));
    });
    for (const FaultRule& rule : m_options.faults) m_host->Faults().Apply(rule);
    m_plugin = std::make_unique<Plugin>(m_pluginPath, m_host->Root());
    const Result::Code code = m_plugin->Package()->Start(nullptr, 0);
    if (code != Result::Success)
        throw std::runtime_error(fmt::format("the sensor's Start failed with code {} (its log lines above say why)", code));
    m_started = true;
    m_stamp = StampOf(m_config);
    m_signals = &signals;
    signals.SetReloadHandler([this](bool signalled) { Reload(signalled); });
}

void SensorSession::Stop() {
    // No reload after this, and none running: the agent makes one lifecycle call at a time.
    if (m_signals) m_signals->SetReloadHandler({});
    m_signals = nullptr;
    if (!m_started) return;
    m_started = false;
    const Result::Code code = m_plugin->Package()->Stop(nullptr, 0);
    if (code != Result::Success) Warn(fmt::format("the sensor's Stop answered code {}", code));
}

void SensorSession::Reload(bool signalled) {
    const auto stamp = StampOf(m_config);  // always nothing without a file
    if (!signalled && stamp == m_stamp) return;
    m_stamp = stamp;
    try {
        if (m_config) m_host->Config().SetText(ReadConfigurationFile(*m_config));
        static constexpr std::string_view context = R"({"reason":"configuration"})";
        const Result::Code code = m_plugin->Package()->Synchronize(context.data(), static_cast<unsigned long>(context.size()));
        m_reconfigurations.fetch_add(1, std::memory_order_release);
        Note(fmt::format("configuration {} served again; Synchronize answered {}", m_config.value_or("(none)"), code));
    } catch (const std::exception& error) {
        Warn(std::string(error.what()) + "; the sensor keeps its configuration");
    }
}

void SensorSession::Deliver(const TraceEvent& event) {
    MonitorRegistration& monitors = m_host->Monitors();
    const auto process = m_host->MakeProcess(event.process);
    switch (event.kind) {
        case EventKind::Create:
            monitors.DeliverProcessCreate(process, m_host->MakeProcess(event.parent.value_or(ProcessRecord{})));
            break;
        case EventKind::Exists: monitors.DeliverProcessExists(process); break;
        case EventKind::Terminate: monitors.DeliverProcessTerminate(process); break;
        case EventKind::Shell: monitors.DeliverShellCommand(process, event.command); break;
    }
    m_delivered[static_cast<std::size_t>(event.kind)].fetch_add(1, std::memory_order_relaxed);
}

void SensorSession::PrintSummary() const {
    const auto [create, exists, terminate, shell] = Snapshot(m_delivered);
    const auto [created, existing, shells] = Snapshot(m_reported);
    Note(fmt::format("delivered {} events: create {}, exists {}, terminate {}, shell {}", create + exists + terminate + shell, create,
                     exists, terminate, shell));
    // Terminations are never reported: what the sensor held back is counted among the rest.
    const std::uint64_t reportable = create + exists + shell;
    const std::uint64_t filtered = m_host->Filter().Suppressed();
    const std::uint64_t all = m_host->Reports().EventCount();
    Note(fmt::format("of {} reportable (create, exists, shell): filtered {}, suppressed {}, reported {} (created {}, exists {}, "
                     "shell {})",
                     reportable, filtered, reportable - std::min(reportable, filtered + all), all, created, existing, shells));
}

}  // namespace KALVO::DevHost::Tool
