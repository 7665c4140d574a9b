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

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/EventSink.h"
#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/ToolOptions.h"

namespace KALVO::DevHost::Tool {

class SensorSession final : public EventSink {
public:
    // Finds what Start needs, so a mistake stops the program before anything runs: the plug-in
    // (--plugin, else the library next to the program, else the one built with it), the host's
    // storage (in --state, else for live in the default state directory, else in memory) and
    // the configuration file `config`, read. `options` and `events` (when given, it receives
    // each reported event's line) are borrowed. Throws std::runtime_error with a message for
    // the user.
    SensorSession(const ToolOptions& options, const std::optional<std::string>& config, LineOutput* events);
    // Stops the sensor if it runs, then unloads it; warns when it kept host references.
    ~SensorSession() override;

    SensorSession(const SensorSession&) = delete;  // owns the host and the plug-in
    SensorSession& operator=(const SensorSession&) = delete;

    // Builds the host (opening the storage), loads the plug-in and starts the sensor; serves the
    // configuration again (on the thread of `signals`, which is borrowed) until Stop. Throws
    // std::runtime_error (PluginError among them, or naming the code when Start fails).
    void Start(SignalWatcher& signals);
    void Stop();

    // Any thread, concurrently: the host delivers on the caller's thread.
    void Deliver(const TraceEvent& event) override;

    Host& GetHost() noexcept { return *m_host; }  // once started
    // How many times the configuration was served again: a change tells a reader of the
    // settings to read them again, as the sensor did.
    std::uint64_t Reconfigurations() const noexcept { return m_reconfigurations.load(std::memory_order_acquire); }
    // On stderr: the events delivered by kind, and of those the sensor could report how many
    // the host filtered, the sensor held back and the sensor reported. Once the events are in.
    void PrintSummary() const;

private:
    // Synchronize {"reason":"configuration"}, with the file read again, when it changed or when
    // `signalled` (SIGHUP).
    void Reload(bool signalled);

    const ToolOptions& m_options;
    LineOutput* m_events;
    std::optional<std::string> m_config;  // the configuration file
    std::string m_pluginPath;
    HostOptions m_hostOptions;  // until Start builds the host
    std::unique_ptr<Host> m_host;
    std::unique_ptr<Plugin> m_plugin;
    // Start, Stop and the destructor run on one thread, and reloads (on the signal thread)
    // only between Start and Stop, so the sensor receives one lifecycle call at a time.
    bool m_started = false;
    SignalWatcher* m_signals = nullptr;  // serving reloads, between Start and Stop
    // The configuration file's modification time (seconds, nanoseconds), size and inode as last
    // seen (nothing: no file); a change serves it again. The reloading thread's only.
    std::optional<std::tuple<long long, long long, long long, unsigned long long>> m_stamp;
    std::atomic<std::uint64_t> m_reconfigurations{0};
    // Counters only (relaxed): events delivered by EventKind, and reported by the kind of their
    // first observation (created, exists, shell).
    EventCounts m_delivered{};
    std::array<std::atomic<std::uint64_t>, 3> m_reported{};
};

}  // namespace KALVO::DevHost::Tool
