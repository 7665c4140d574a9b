#include "logging/Logger.h"

namespace KALVO::Logging {

Logger::Logger(std::string name, Agent::Hosting::IObject* host) noexcept : m_name(std::move(name)) {
    if (host) (void)Agent::Hosting::QueryInterface(host, m_sink);
}

void Logger::Send(char const* loggerName, Severity severity, std::string_view text) const noexcept {
    if (!m_sink) return;
    m_sink->Log(loggerName, static_cast<std::uint32_t>(severity), text.data(), static_cast<unsigned long>(text.size()));
}

}  // namespace KALVO::Logging
