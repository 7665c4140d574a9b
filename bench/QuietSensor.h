// QuietSensor: the built plug-in loaded through dlopen into a stand-in host that retains
// nothing (no events, log lines or filter contexts), started and ready for events, for
// benchmarks and long runs whose memory must not grow with what the host would record.
// Benchmarks call the sensor's registered handlers directly, so they time the sensor and not
// the host's delivery.
#pragma once

#include <memory>
#include <string>

#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "host/IEventInfo.h"
#include "host/IProcessInfo.h"
#include "host/IProcessMonitor.h"
#include "host/IShellMonitor.h"
#include "host/ObjectPtr.h"

namespace KALVO::Bench {

class QuietSensor {
public:
    using ProcessPtr = Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>;
    using EventPtr = Agent::Hosting::ObjectPtr<ESP::v0::IEventInfo>;

    // Loads `pluginPath` and starts it with `configuration`. Throws std::runtime_error when the
    // plug-in cannot be loaded or does not start.
    explicit QuietSensor(const std::string& pluginPath, std::string configuration = "{}");
    // Stops and unloads the plug-in.
    ~QuietSensor();

    QuietSensor(const QuietSensor&) = delete;  // owns the host and the loaded library
    QuietSensor& operator=(const QuietSensor&) = delete;

    DevHost::Host& Host() noexcept { return *m_host; }
    ProcessPtr Process(std::string uid, std::string path, std::string commandLine) const;
    // An event object as the host hands one to a handler.
    static EventPtr Event();
    // The handlers the sensor registered when it started.
    ESP::v0::IProcessMonitor& ProcessMonitor() const;
    ESP::v0::IShellMonitor& ShellMonitor() const;

private:
    std::unique_ptr<DevHost::Host> m_host;
    std::unique_ptr<DevHost::Plugin> m_plugin;
};

}  // namespace KALVO::Bench
