#include "package/SecurityMonitor.h"

#include <cstring>
#include <string>
#include <system_error>

#include "eil/object/ObjectImpl.h"
#include "host/IMessageRouter.h"
#include "logging/CatchAll.h"
#include "logging/Log.h"
#include "package/CommandHandlerImpl.h"

namespace KALVO::SecurityMonitor {

using Agent::Hosting::ObjectPtr;
using Agent::Hosting::QueryInterface;

SecurityMonitor::SecurityMonitor(Agent::Hosting::IObject* host) : m_host(host) {
    if (m_host) m_host->AddRef();
    auto [logger, created] = Logging::LoggerSingleton::CreateEx(std::string(Logging::SensorLoggerName), host);
    m_ownsLogger = created;
    // The singleton keeps the logger alive; this package keeps only the right to detach it.
}

SecurityMonitor::~SecurityMonitor() {
    if (m_ownsLogger) (void)Logging::LoggerSingleton::Detach();
    m_impl.reset();
    if (m_host) m_host->Release();
}

void SecurityMonitor::DestroyThis() { delete this; }

std::uint32_t SecurityMonitor::Version() const { return 1; }

Result::Code SecurityMonitor::Install(char const*, unsigned long) { return Result::Success; }

Result::Code SecurityMonitor::Uninstall(char const*, unsigned long) { return Result::Success; }

Result::Code SecurityMonitor::Start(char const*, unsigned long) {
    const auto failure = Logging::CatchAll("unable to create our interface", [this] {
        try {
            // A second Start replaces the core; the old one goes only once the new one is built.
            auto previous = std::exchange(
                m_impl, std::make_unique<SecurityMonitorImpl>(ObjectPtr<Agent::Hosting::IObject>(m_host)));
            previous.reset();

            ObjectPtr<Messaging::IMessageRouter> router;
            if (!m_host) throw std::system_error(Result::ProtocolError, std::generic_category());
            if (const auto code = QueryInterface(m_host, router))
                throw std::system_error(static_cast<int>(code), std::generic_category());

            auto handler = EIL::Object::ObjectImpl<Messaging::Utils::CommandHandlerImpl<CommandFunction>>::Make(
                CommandFunction{this});
            const auto code = router->RegisterCommandHandler(g_agentRoutingKeyForHealthCheck, handler.Get());
            handler.Reset();
            if (code != Result::Success) throw std::system_error(static_cast<int>(code), std::generic_category());
        } catch (...) {
            m_impl.reset();  // a failed Start leaves no core behind
            throw;
        }
    });
    return failure ? Result::ProtocolError : Result::Success;
}

Result::Code SecurityMonitor::Stop(char const*, unsigned long) {
    ObjectPtr<Messaging::IMessageRouter> router;
    if (m_host && QueryInterface(m_host, router) == Result::Success)
        (void)router->UnregisterCommandHandler(g_agentRoutingKeyForHealthCheck);
    m_impl.reset();
    return Result::Success;
}

Result::Code SecurityMonitor::Synchronize(char const* data, unsigned long length) {
    // The host synchronizes only a started package; a stray call is refused rather than trusted.
    if (!m_impl) return Result::ProtocolError;
    try {
        const std::string context = data ? std::string(data, length) : std::string();
        return m_impl->OnSynchronize(context);
    } catch (...) {
        return Result::ProtocolError;  // only memory exhaustion copying the context
    }
}

Result::Code SecurityMonitor::CommandFunction::operator()(char const* command, char const* payload, unsigned long size,
                                                          EIL::Stream::IOutputStream& output) const {
    if (!command || std::strcmp(command, g_agentRoutingKeyForHealthCheck) != 0) return Result::NotImplemented;
    try {
        const std::string text = payload ? std::string(payload, size) : std::string();
        // The health check needs no core: it is answered the same after Stop or a failed Start.
        return SecurityMonitorImpl::OnHealthCheck(text, output);
    } catch (...) {
        return Result::ProtocolError;
    }
}

}  // namespace KALVO::SecurityMonitor
