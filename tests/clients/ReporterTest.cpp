// The reporting client against the stand-in host: the shape of what crosses to the host
// (source record, tags), and the calls whose failure the client names in its own text, with
// nothing left held: the host's references by its ledger, the plug-in's own objects by the leak
// checker of the ASan build. The fault matrix fails every other host call at sensor level.
#include "reporting/Reporter.h"

#include <gtest/gtest.h>

#include <string>
#include <system_error>

#include "devhost/EventRenderer.h"
#include "devhost/Host.h"
#include "reporting/SecurityEvent.h"
#include "reporting/Source.h"

namespace {

using KALVO::Agent::Hosting::IObject;
using KALVO::Agent::Hosting::ObjectPtr;
using KALVO::DevHost::Host;
using KALVO::DevHost::Operation;
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

// Every host call of the three reporting steps failing in turn: the error carries the host's
// code and the step's fixed text, and nothing of the host or of the plug-in is left alive.
TEST(Reporter, FailuresThrowTheHostCodeAndReleaseEverything) {
    enum class Step { Create, Observe, Report };
    const struct {
        Step step;
        Operation operation;
        KALVO::Result::Code code;
        char const* text;  // the fixed text the error starts with; "" for none
    } rows[] = {
        {Step::Create, Operation::GetServiceReporting, 2, ""},
        {Step::Create, Operation::CreateSecurityEvent, 12, "unable to create new security event"},
        {Step::Observe, Operation::CreateObservation, 22, "unable to create new observation"},
        {Step::Report, Operation::ReportSecurityEvent, 89, "unable to report security event"},
    };
    for (const auto& row : rows) {
        const std::string context = std::string(KALVO::DevHost::OperationName(row.operation));
        Host host;
        {
            const Reporter reporter(RootOf(host));
            try {
                if (row.step == Step::Create) host.Faults().Apply({row.operation, row.code, 1});
                SecurityEvent event = reporter.CreateSecurityEvent();
                if (row.step == Step::Observe) host.Faults().Apply({row.operation, row.code, 1});
                (void)event.CreateObservation(Severity::Default, Source("SecurityMonitor", "1.0.28"), CreationType,
                                              CreationMessage, {"tag"});
                host.Faults().Apply({row.operation, row.code, 1});
                reporter.ReportSecurityEvent(event);
                ADD_FAILURE() << "no exception: " << context;
            } catch (const std::system_error& e) {
                EXPECT_EQ(e.code(), std::error_code(static_cast<int>(row.code), std::generic_category())) << context;
                const std::string what = e.what();
                EXPECT_EQ(what.rfind(*row.text ? row.text : std::system_error(e.code()).what(), 0), 0u) << what;
            }
        }
        EXPECT_EQ(host.OutstandingReferences(), "") << context;
    }
}

}  // namespace
