#include <gtest/gtest.h>

#include "devhost/Host.h"
#include "host/IConfiguration.h"
#include "host/ILogSink.h"
#include "host/IMessageRouter.h"
#include "host/IServiceProvider.h"
#include "host/IStorage.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;

TEST(ReferenceAccounting, CountsWhatOthersHoldOfEveryPart) {
    Host host;
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();

    const Agent::Hosting::InterfaceId parts[] = {
        IObject::Id, Agent::Hosting::IServiceProvider::Id, Messaging::IMessageRouter::Id,
        Logging::ILogSink::Id, KALVO::Configuration::IConfiguration::Id, KALVO::Storage::IStorage::Id,
    };
    std::vector<ObjectPtr<IObject>> held;
    for (const auto id : parts) {
        IObject* out = nullptr;
        ASSERT_EQ(host.Root()->GetInterface(id, out), Result::Success) << std::hex << id;
        held.push_back(ObjectPtr<IObject>::Adopt(out));
        EXPECT_EQ(host.OutstandingReferences(), held.size()) << std::hex << id;
    }

    ObjectPtr<Agent::Hosting::IServiceProvider> provider;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), provider), Result::Success);
    for (const auto service : {Reporting::IReportingService::ServiceId, ESP::v0::IMonitorRegistration::ServiceId,
                               ESP::v0::IEventFilter::ServiceId}) {
        IObject* out = nullptr;
        ASSERT_EQ(provider->GetService(service, out), Result::Success) << std::hex << service;
        held.push_back(ObjectPtr<IObject>::Adopt(out));
    }
    IObject* untouched = nullptr;
    EXPECT_EQ(provider->GetService(0x1234, untouched), Result::ProtocolNotSupported);
    EXPECT_EQ(untouched, nullptr);

    EXPECT_EQ(host.OutstandingReferences(), held.size() + 1);
    const std::string described = host.DescribeOutstandingReferences();
    for (char const* kind : {"Host x1", "ServiceProvider x2", "EventFilter x1", "Storage x1"}) {
        EXPECT_NE(described.find(kind), std::string::npos) << kind << " in " << described;
    }

    held.clear();
    provider.Reset();
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

TEST(ReferenceAccounting, ProcessRecordsCountWhileSomeoneHoldsThem) {
    Host host;
    auto process = host.MakeProcess(ProcessRecord{.pid = 7, .uid = "u7"});
    EXPECT_EQ(host.OutstandingReferences(), 1u);
    ObjectPtr<EIL::Values::IValues> view;
    ASSERT_EQ(Agent::Hosting::QueryInterface(process.Get(), view), Result::Success);
    EXPECT_EQ(host.OutstandingReferences(), 2u);
    EXPECT_EQ(host.DescribeOutstandingReferences(), "ProcessInfo x2");
    view.Reset();
    process.Reset();
    EXPECT_EQ(host.OutstandingReferences(), 0u);
}

TEST(ReferenceAccounting, LeakedReferenceStaysUsableAfterTheHostIsGone) {
    ObjectPtr<Logging::ILogSink> leaked;
    {
        Host host;
        ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), leaked), Result::Success);
    }
    EXPECT_EQ(leaked->Log("late", 2, "still here", 10), Result::Success);
    leaked.Reset();  // frees the sink; a sanitizer build checks nothing dangles
}

}  // namespace
}  // namespace KALVO::DevHost
