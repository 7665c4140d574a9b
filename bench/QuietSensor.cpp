#include "bench/QuietSensor.h"

#include <stdexcept>

#include "devhost/MonitorRegistration.h"

namespace KALVO::Bench {

QuietSensor::QuietSensor(const std::string& pluginPath, std::string configuration) {
    DevHost::HostOptions options;
    options.configuration = std::move(configuration);
    m_host = std::make_unique<DevHost::Host>(std::move(options));
    m_host->Reports().SetRetention(false);
    m_host->Logs().SetRetention(false);
    m_host->Filter().SetRetention(false);
    m_plugin = std::make_unique<DevHost::Plugin>(pluginPath, m_host->Root());
    if (m_plugin->Package()->Start(nullptr, 0) != Result::Success) throw std::runtime_error("the sensor did not start");
}

QuietSensor::~QuietSensor() {
    (void)m_plugin->Package()->Stop(nullptr, 0);
    DevHost::UnloadFrom(*m_host, *m_plugin);
}

QuietSensor::ProcessPtr QuietSensor::Process(std::string uid, std::string path, std::string commandLine) const {
    DevHost::ProcessRecord record;
    record.uid = std::move(uid);
    record.path = std::move(path);
    record.commandLine = std::move(commandLine);
    return m_host->MakeProcess(std::move(record));
}

QuietSensor::EventPtr QuietSensor::Event() {
    return DevHost::TrackedObject<DevHost::EventInfo>::Make(std::make_shared<DevHost::ObjectLedger>());
}

ESP::v0::IProcessMonitor& QuietSensor::ProcessMonitor() const {
    return *static_cast<ESP::v0::IProcessMonitor*>(m_host->Monitors().ProcessMonitors().at(0).monitor);
}

ESP::v0::IShellMonitor& QuietSensor::ShellMonitor() const {
    return *static_cast<ESP::v0::IShellMonitor*>(m_host->Monitors().ShellMonitors().at(0).monitor);
}

}  // namespace KALVO::Bench
