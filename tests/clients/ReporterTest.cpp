// The reporting client against the stand-in host: the shape of what crosses to the host (source
// record, tags). The fault matrix fails each of its host calls at sensor level, where the
// client's own text for the failed step and the host's code reach the log.
#include "reporting/Reporter.h"

#include <gtest/gtest.h>

#include <string>

#include "devhost/EventRenderer.h"
#include "devhost/Host.h"
#include "eil/values/Identifier.h"
#include "reporting/SecurityEvent.h"
#include "reporting/Source.h"

namespace {

using KALVO::Agent::Hosting::IObject;
using KALVO::Agent::Hosting::ObjectPtr;
using KALVO::DevHost::Host;
using KALVO::Reporting::Reporter;
using KALVO::Reporting::SecurityEvent;
using KALVO::Reporting::Severity;
using KALVO::Reporting::Source;

constexpr char const* CreationType = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";
constexpr char const* CreationMessage = "{parent} created {child}";

ObjectPtr<IObject> RootOf(const Host& host) { return ObjectPtr<IObject>(host.Root()); }

TEST(Reporter, ReportedEventCarriesTheShapedSourceAndSortedTags) {
    Host host;
    {
        const Reporter reporter(RootOf(host));
        SecurityEvent event = reporter.CreateSecurityEvent();
        Source source("SecurityMonitor", "1.0.28");
        source.info = {{"a", "1"}, {"version", "overridden"}, {"z", ""}};
        ASSERT_TRUE(
            event.CreateObservation(Severity::Default, source, CreationType, CreationMessage, {"b", "a", "B", ""}));
        reporter.ReportSecurityEvent(event);
    }
    EXPECT_EQ(host.OutstandingReferences(), "");
    const auto events = host.Reports().Events();
    ASSERT_EQ(events.size(), 1u);
    ASSERT_EQ(events[0]->observations.size(), 1u);
    // Severity, type and message pass through as given: the sensor-level tests check them for
    // every kind of event.
    const KALVO::DevHost::ObservationRecord& recorded = events[0]->observations[0];
    ASSERT_TRUE(recorded.source && recorded.tags);
    // "version" inside "info", after the info pairs and replacing one of that name; tags as a list
    // in ascending order.
    EXPECT_EQ(KALVO::DevHost::RenderValuesJson(*recorded.source),
              R"({"info":{"a":"1","z":"","version":"1.0.28"},"source_type":"SecurityMonitor","type":"source_info"})");
    EXPECT_EQ(KALVO::DevHost::RenderValuesJson(*recorded.tags), R"(["","B","a","b"])");
}

// The process view the sensor attaches as an observable: the facts present, in key order, read-only.
TEST(Reporter, HostProcessViewListsThePresentFactsInKeyOrderAndRefusesChanges) {
    using namespace KALVO::EIL::Values;
    const Host host;
    const auto process = host.MakeProcess({.pid = 7, .parentPid = 1, .commandLine = "x y", .uid = "u"});
    ObjectPtr<IValues> view;
    ASSERT_EQ(KALVO::Agent::Hosting::QueryInterface(process.Get(), view), KALVO::Result::Success);
    EXPECT_EQ(KALVO::DevHost::RenderValuesJson(*view), R"({"ppid":1,"pid":7,"command_line":"x y","uid":"u"})");
    ObjectPtr<IValue> value;
    EXPECT_EQ(view->Get(Identifier("command_line"), value), KALVO::Result::Success);
    EXPECT_EQ(view->Get(Identifier("path"), value), KALVO::Result::NoSuchEntry);
    EXPECT_EQ(view->GetByIndex(4, value, nullptr), KALVO::Result::OutOfRange);
    EXPECT_EQ(view->Set(Identifier("pid"), value), KALVO::Result::ProtocolError);
}

}  // namespace
