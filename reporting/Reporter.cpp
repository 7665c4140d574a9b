#include "reporting/Reporter.h"

#include <utility>

#include "eil/object/ThrowIfFailed.h"
#include "host/IReportingService.h"
#include "host/IServiceProvider.h"
#include "host/ResultCode.h"

namespace KALVO::Reporting {

using Agent::Hosting::IObject;
using Agent::Hosting::IServiceProvider;
using Agent::Hosting::ObjectPtr;
using EIL::Object::ThrowIfFailed;

namespace {

constexpr char const* LoggerName = "kalvo.reporter";

// The host's reporting service and the provider it came from, held for one call. Declared in
// this order so the service is released before the provider, on every path.
struct ReportingConnection {
    ObjectPtr<IServiceProvider> provider;
    ObjectPtr<IReportingService> service;
};

// Looks both up afresh. A host that claims success without an object fails as a protocol
// error rather than being followed.
ReportingConnection Connect(IObject* host) {
    ReportingConnection connection;
    ThrowIfFailed(Agent::Hosting::QueryInterface(host, connection.provider));
    if (!connection.provider) ThrowIfFailed(Result::ProtocolError);
    ThrowIfFailed(Agent::Hosting::QueryService<IReportingService>(connection.provider.Get(), connection.service));
    if (!connection.service) ThrowIfFailed(Result::ProtocolError);
    return connection;
}

}  // namespace

Reporter::Reporter(ObjectPtr<IObject> host) : m_host(std::move(host)), m_logger(LoggerName, m_host.Get()) {
    if (!m_host) ThrowIfFailed(Result::ProtocolError, "service provider not available");
    m_logger.Log(Logging::Severity::Info, "Reporter successfully initialized.");
}

SecurityEvent Reporter::CreateSecurityEvent() const {
    const ReportingConnection connection = Connect(m_host.Get());
    ObjectPtr<IHostSecurityEvent> event;
    ThrowIfFailed(connection.service->CreateSecurityEvent(event), "unable to create new security event");
    // An event the host claims to have made but did not hand out cannot be filled or reported.
    if (!event) ThrowIfFailed(Result::ProtocolError, "unable to create new security event");
    return SecurityEvent(std::move(event));
}

void Reporter::ReportSecurityEvent(const SecurityEvent& event) const {
    const ReportingConnection connection = Connect(m_host.Get());
    ThrowIfFailed(connection.service->ReportSecurityEvent(event.m_event), "unable to report security event");
}

}  // namespace KALVO::Reporting
