#include <gtest/gtest.h>

#include "devhost/EventRenderer.h"
#include "devhost/Host.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"
#include "host/IReportingService.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using EIL::Values::Identifier;
using EIL::Values::IValues;
using Reporting::IHostObservation;
using Reporting::IHostSecurityEvent;
using Reporting::IReportingService;

ObjectPtr<IReportingService> ReportingOf(Host& host) {
    ObjectPtr<Agent::Hosting::IServiceProvider> provider;
    ObjectPtr<IReportingService> reporting;
    EXPECT_EQ(Agent::Hosting::QueryInterface(host.Root(), provider), Result::Success);
    EXPECT_EQ(Agent::Hosting::QueryService<IReportingService>(provider.Get(), reporting), Result::Success);
    return reporting;
}

TEST(ReportingService, RecordsWhatWasReported) {
    Host host;
    auto reporting = ReportingOf(host);
    auto shell = host.MakeProcess(ProcessRecord{.pid = 10, .path = "/bin/zsh", .uid = "u10"});
    ObjectPtr<IValues> shellValues;
    ASSERT_EQ(Agent::Hosting::QueryInterface(shell.Get(), shellValues), Result::Success);

    auto source = EIL::Values::MakeValues();
    ASSERT_EQ(source->Set(Identifier("source_type"), EIL::Values::MakeStringValue("SecurityMonitor")), Result::Success);
    auto command = EIL::Values::MakeValues();
    ASSERT_EQ(command->Set(Identifier("command"), EIL::Values::MakeStringValue("ls -la")), Result::Success);
    {
        ObjectPtr<IHostSecurityEvent> event;
        ASSERT_EQ(reporting->CreateSecurityEvent(event), Result::Success);
        ObjectPtr<IValues> sourceValues(source.Get());
        ObjectPtr<IValues> noTags;
        ObjectPtr<IHostObservation> observation;
        ASSERT_EQ(event->CreateObservation(0, sourceValues, "79c21e2a-95c3-48b3-9af6-c5327b6b5c73",
                                           "Shell {process} received {command}", noTags, nullptr, observation),
                  Result::Success);
        ObjectPtr<IValues> commandValues(command.Get());
        ASSERT_EQ(observation->AddObservable("process", shellValues), Result::Success);
        ASSERT_EQ(observation->AddObservable("command", commandValues), Result::Success);
        ASSERT_EQ(reporting->ReportSecurityEvent(event), Result::Success);
    }
    // The reporter's own container may change or go away after the report.
    ASSERT_EQ(command->Set(Identifier("command"), EIL::Values::MakeStringValue("changed")), Result::Success);
    command.Reset();
    source.Reset();

    const auto events = host.Reports().Events();
    ASSERT_EQ(events.size(), 1u);
    const ObservationRecord& observation = events[0]->observations.at(0);
    EXPECT_EQ(observation.typeId, "79c21e2a-95c3-48b3-9af6-c5327b6b5c73");
    EXPECT_EQ(observation.Find("process"), shellValues.Get()) << "the host's own record is kept as it is";
    EXPECT_EQ(observation.tags.Get(), nullptr);
    EXPECT_EQ(RenderMessage(observation), "Shell /bin/zsh received ls -la");
    EXPECT_EQ(RenderValuesJson(*observation.source), R"({"source_type":"SecurityMonitor"})");

    reporting.Reset();
    shellValues.Reset();
    shell.Reset();
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

TEST(ReportingService, RefusesEventsItDidNotMake) {
    Host host;
    auto reporting = ReportingOf(host);
    EXPECT_EQ(reporting->ReportSecurityEvent(nullptr), Result::InvalidArgument);
    ObjectPtr<IHostSecurityEvent> event;
    ASSERT_EQ(reporting->CreateSecurityEvent(event), Result::Success);
    ObjectPtr<IValues> none;
    ObjectPtr<IHostObservation> observation;
    EXPECT_EQ(event->CreateObservation(0, none, nullptr, "m", none, nullptr, observation), Result::InvalidArgument);
    EXPECT_EQ(observation, nullptr);
    EXPECT_EQ(host.Reports().EventCount(), 0u);
}

TEST(ReportingService, RetentionKeepsTheLatestEventsAndListenerSeesAll) {
    Host host;
    auto reporting = ReportingOf(host);
    host.Reports().SetRetention(2);
    std::vector<std::uint64_t> heard;
    host.Reports().SetListener([&](const EventRecord& event) { heard.push_back(event.sequence); });
    for (int i = 0; i < 3; ++i) {
        ObjectPtr<IHostSecurityEvent> event;
        ASSERT_EQ(reporting->CreateSecurityEvent(event), Result::Success);
        ASSERT_EQ(reporting->ReportSecurityEvent(event), Result::Success);
    }
    EXPECT_EQ(heard, (std::vector<std::uint64_t>{1, 2, 3}));
    const auto events = host.Reports().Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0]->sequence, 2u);
    EXPECT_EQ(host.Reports().EventCount(), 3u);
    host.Reports().SetListener(nullptr);
}

}  // namespace
}  // namespace KALVO::DevHost
