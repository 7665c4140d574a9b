#include "devhost/tool/SensorSession.h"

#include <stdexcept>
#include <string_view>

#include "devhost/EventRenderer.h"
#include "devhost/tool/Console.h"

namespace KALVO::DevHost::Tool {

namespace {

// The observation type ids of the sensor's three reports.
ReportKind KindOf(const EventRecord& event) {
    if (event.observations.empty()) return ReportKind::Other;
    const std::string_view type = event.observations.front().typeId;
    if (type == "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f") return ReportKind::Created;
    if (type == "6e7f8c8a-9213-4020-aeb1-d8d608c63d78") return ReportKind::Exists;
    if (type == "79c21e2a-95c3-48b3-9af6-c5327b6b5c73") return ReportKind::Shell;
    return ReportKind::Other;
}

}  // namespace

SensorSession::SensorSession(SessionOptions options, LineOutput& events) {
    m_host = std::make_unique<Host>(HostOptions{std::move(options.storagePath), std::move(options.configuration)});

    // A run may last hours: the host keeps counts, not copies.
    m_host->Logs().SetRetention(0);
    m_host->Logs().SetEcho([](const std::string& line) { ErrorOutput().Write(line); }, options.logThreshold);
    m_host->Reports().SetRetention(0);
    m_host->Filter().SetRetention(0);
    m_host->Reports().SetListener([this, &events](const EventRecord& event) {
        m_reported.Add(KindOf(event));
        events.Write(RenderEventJson(event));
    });
    for (const FaultRule& rule : options.faults) m_host->Faults().Apply(rule);

    m_plugin = std::make_unique<Plugin>(options.pluginPath, m_host->Root());
}

SensorSession::~SensorSession() {
    Stop();
    UnloadFrom(*m_host, *m_plugin);
    m_host->Reports().SetListener({});
    if (const std::uint64_t outstanding = m_host->OutstandingReferences(); outstanding != 0) {
        Warn("the sensor did not give back " + std::to_string(outstanding) +
             " host reference(s): " + m_host->DescribeOutstandingReferences());
    }
}

void SensorSession::Start() {
    std::lock_guard lock(m_lifecycle);
    const Result::Code code = m_plugin->Package()->Start(nullptr, 0);
    if (code != Result::Success) {
        throw std::runtime_error("the sensor's Start failed with code " + std::to_string(code) +
                                 " (its log lines above say why)");
    }
    m_started = true;
}

void SensorSession::Stop() {
    std::lock_guard lock(m_lifecycle);
    if (!m_started) return;
    m_started = false;
    const Result::Code code = m_plugin->Package()->Stop(nullptr, 0);
    if (code != Result::Success) Warn("the sensor's Stop answered code " + std::to_string(code));
}

Result::Code SensorSession::Reconfigure(const std::optional<std::string>& text) {
    std::lock_guard lock(m_lifecycle);
    if (!m_started) return Result::Success;
    if (text) m_host->Config().SetText(*text);
    static constexpr std::string_view context = R"({"reason":"configuration"})";
    return m_plugin->Package()->Synchronize(context.data(), static_cast<unsigned long>(context.size()));
}

}  // namespace KALVO::DevHost::Tool
