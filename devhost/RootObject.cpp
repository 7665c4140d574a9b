#include "devhost/RootObject.h"

#include <utility>

namespace KALVO::DevHost {

RootObject::RootObject(std::shared_ptr<FaultInjector> faults, Parts parts) noexcept
    : m_faults(std::move(faults)), m_parts(std::move(parts)) {}

Result::Code RootObject::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    const auto failure = [this](Operation operation) { return m_faults->Check(operation); };
    if (id == Agent::Hosting::IObject::Id) {
        if (const auto code = failure(Operation::GetInterfaceObject)) return *code;
        return HandOut<IHostRoot>(this, out);
    }
    if (id == Agent::Hosting::IServiceProvider::Id) {
        if (const auto code = failure(Operation::GetInterfaceServiceProvider)) return *code;
        return HandOut<Agent::Hosting::IServiceProvider>(m_parts.services.Get(), out);
    }
    if (id == Messaging::IMessageRouter::Id) {
        if (const auto code = failure(Operation::GetInterfaceMessageRouter)) return *code;
        return HandOut<Messaging::IMessageRouter>(m_parts.router.Get(), out);
    }
    if (id == Logging::ILogSink::Id) {
        if (const auto code = failure(Operation::GetInterfaceLogSink)) return *code;
        return HandOut<Logging::ILogSink>(m_parts.log.Get(), out);
    }
    if (id == KALVO::Configuration::IConfiguration::Id) {
        if (const auto code = failure(Operation::GetInterfaceConfiguration)) return *code;
        return HandOut<KALVO::Configuration::IConfiguration>(m_parts.configuration.Get(), out);
    }
    if (id == KALVO::Storage::IStorage::Id) {
        if (const auto code = failure(Operation::GetInterfaceStorage)) return *code;
        return HandOut<KALVO::Storage::IStorage>(m_parts.storage.Get(), out);
    }
    return Result::ProtocolNotSupported;
}

}  // namespace KALVO::DevHost
