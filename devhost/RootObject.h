// RootObject: the host object a plug-in receives in CreateInstance. It answers IObject itself
// and hands out the host's other parts by interface identifier: IServiceProvider,
// IMessageRouter, ILogSink, IConfiguration and IStorage.
#pragma once

#include <memory>

#include "devhost/FaultInjector.h"
#include "devhost/HostConfiguration.h"
#include "devhost/HostRef.h"
#include "devhost/HostStorage.h"
#include "devhost/LogSink.h"
#include "devhost/MessageRouter.h"
#include "devhost/ServiceProvider.h"
#include "devhost/TrackedObject.h"
#include "host/IObject.h"

namespace KALVO::DevHost {

// The root has no interface of its own beyond IObject, so it derives from a tag that is one.
class IHostRoot : public Agent::Hosting::IObject {
protected:
    ~IHostRoot() = default;
};

class RootObject : public IHostRoot {
public:
    static constexpr char const* Kind = "Host";

    struct Parts {
        HostRef<TrackedObject<ServiceProvider>> services;
        HostRef<TrackedObject<MessageRouter>> router;
        HostRef<TrackedObject<LogSink>> log;
        HostRef<TrackedObject<HostConfiguration>> configuration;
        HostRef<TrackedObject<HostStorage>> storage;
    };

    RootObject(std::shared_ptr<FaultInjector> faults, Parts parts) noexcept;

    // Any thread. Each identifier can be made to fail ("GetInterface:<interface>").
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

protected:
    ~RootObject() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    const Parts m_parts;
};

}  // namespace KALVO::DevHost
