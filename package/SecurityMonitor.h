// SecurityMonitor: the package object, the only thing the host holds of this plug-in.
//
// It owns the process-wide logger's registration (when it created the logger), the monitor
// core while started, and the health-check command's registration with the host's router.
// The host calls its operations one at a time on its lifecycle thread.
#pragma once

#include <memory>

#include "host/IObject.h"
#include "host/IPackage.h"
#include "monitor/SecurityMonitorImpl.h"

namespace KALVO::SecurityMonitor {

// The routing key under which the health-check command is registered.
inline constexpr char const* g_agentRoutingKeyForHealthCheck = "securitymonitor!OnHealthCheck";

class SecurityMonitor final : public Agent::Hosting::IPackage {
public:
    // `host` may be null: the package then holds nothing and Start fails.
    explicit SecurityMonitor(Agent::Hosting::IObject* host);
    ~SecurityMonitor() override;

    SecurityMonitor(const SecurityMonitor&) = delete;  // the host holds it by pointer only
    SecurityMonitor& operator=(const SecurityMonitor&) = delete;

    void DestroyThis() override;
    std::uint32_t Version() const override;
    Result::Code Install(char const* data, unsigned long length) override;
    Result::Code Uninstall(char const* data, unsigned long length) override;
    Result::Code Start(char const* data, unsigned long length) override;
    Result::Code Stop(char const* data, unsigned long length) override;
    Result::Code Synchronize(char const* data, unsigned long length) override;

private:
    // The health-check command as the router calls it; keeps only a plain pointer to the
    // package, because the router may keep the handler beyond Stop.
    struct CommandFunction {
        SecurityMonitor* package;
        Result::Code operator()(char const* command, char const* payload, unsigned long size,
                                EIL::Stream::IOutputStream& output) const;
    };

    Agent::Hosting::IObject* m_host = nullptr;  // one reference, taken in the constructor
    std::unique_ptr<SecurityMonitorImpl> m_impl;
    bool m_ownsLogger = false;
};

}  // namespace KALVO::SecurityMonitor
