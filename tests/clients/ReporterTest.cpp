// The reporting client against the stand-in host: the shape of what crosses to the host
// (source record, tags), and every host call failing in turn with nothing left held: the host's
// references by its ledger, the plug-in's own objects by the leak checker of the ASan build.
#include "reporting/Reporter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "devhost/Host.h"
#include "devhost/ValueReading.h"
#include "eil/object/ObjectImpl.h"
#include "eil/values/Identifier.h"
#include "reporting/SecurityEvent.h"
#include "reporting/Source.h"

namespace {

using KALVO::Agent::Hosting::IObject;
using KALVO::Agent::Hosting::ObjectPtr;
using KALVO::DevHost::Host;
using KALVO::DevHost::Operation;
using KALVO::EIL::Values::IValue;
using KALVO::EIL::Values::IValues;
using KALVO::EIL::Values::Identifier;
using KALVO::Reporting::Reporter;
using KALVO::Reporting::SecurityEvent;
using KALVO::Reporting::Severity;
using KALVO::Reporting::Source;

constexpr char const* CreationType = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";
constexpr char const* CreationMessage = "{parent} created {child}";

ObjectPtr<IObject> RootOf(const Host& host) { return ObjectPtr<IObject>(host.Root()); }

// The string stored under `name`, or nothing when absent or not a string.
std::optional<std::string> StringAt(IValues& values, char const* name) {
    ObjectPtr<IValue> value;
    if (values.Get(Identifier(name), value) != 0 || !value || value->Type() != 2) return std::nullopt;
    return KALVO::DevHost::ReadBytes(*value);
}

// The container stored under `name` as an object value, or null.
ObjectPtr<IValues> ContainerAt(IValues& values, char const* name) {
    ObjectPtr<IValue> value;
    if (values.Get(Identifier(name), value) != 0 || !value) return nullptr;
    return KALVO::DevHost::OpenContainer(*value);
}

// The entries of a list as (unnamed key id, string).
std::vector<std::pair<std::uint64_t, std::string>> ListOf(IValues& values) {
    std::vector<std::pair<std::uint64_t, std::string>> entries;
    for (unsigned long i = 0; i < values.Count(); ++i) {
        ObjectPtr<IValue> value;
        ObjectPtr<IValue> key;
        if (values.GetByIndex(i, value, &key) != 0) break;
        const auto entryKey = KALVO::DevHost::ReadKey(key.Get());
        EXPECT_TRUE(entryKey && !entryKey->name) << "entry " << i << " has a named key";
        entries.emplace_back(entryKey ? entryKey->id : ~0ull, KALVO::DevHost::ReadBytes(*value).value_or("?"));
    }
    return entries;
}

// Checks the source record layout: "version" inside "info", after the info pairs.
void ExpectSourceShape(IValues& source, const std::string& type, const std::string& version,
                       const std::vector<std::pair<std::string, std::string>>& info) {
    EXPECT_EQ(source.Count(), 3u);
    EXPECT_EQ(StringAt(source, "type"), "source_info");
    EXPECT_EQ(StringAt(source, "source_type"), type);
    EXPECT_EQ(StringAt(source, "version"), std::nullopt);
    const ObjectPtr<IValues> details = ContainerAt(source, "info");
    ASSERT_TRUE(details);
    EXPECT_EQ(StringAt(*details, "version"), version);
    std::size_t expected = 1;
    for (const auto& [name, text] : info) {
        if (name == "version") continue;  // replaced by the version
        ++expected;
        EXPECT_EQ(StringAt(*details, name.c_str()), text) << name;
    }
    EXPECT_EQ(details->Count(), expected);
}

TEST(Source, ToValuesPutsTheVersionInsideInfo) {
    {
        Source source("SecurityMonitor", "1.0.28");
        ExpectSourceShape(*source.ToValues(), "SecurityMonitor", "1.0.28", {});

        source.info = {{"a", "1"}, {"version", "overridden"}, {"z", ""}};
        ExpectSourceShape(*source.ToValues(), "SecurityMonitor", "1.0.28", {{"a", "1"}, {"version", "x"}, {"z", ""}});
    }
}

TEST(SecurityEvent, TagsBecomeAListInAscendingOrder) {
    const struct {
        std::set<std::string> tags;
        std::vector<std::pair<std::uint64_t, std::string>> expected;
    } rows[] = {
        {{}, {}},
        {{"b", "a"}, {{0, "a"}, {1, "b"}}},
        {{"one"}, {{0, "one"}}},
        {{"B", "a", "A", ""}, {{0, ""}, {1, "A"}, {2, "B"}, {3, "a"}}},
    };
    for (const auto& row : rows) {
        const auto values = SecurityEvent::TagsToValues(row.tags);
        ASSERT_TRUE(values);
        EXPECT_EQ(ListOf(*values), row.expected) << "tags: " << row.tags.size();
    }
}

TEST(Reporter, NullHostIsRefusedWithProtocolError) {
    try {
        Reporter reporter(nullptr);
        FAIL() << "no exception";
    } catch (const std::system_error& e) {
        EXPECT_EQ(e.code(), std::error_code(100, std::generic_category()));
        EXPECT_EQ(std::string(e.what()).rfind("service provider not available", 0), 0u) << e.what();
    }
}

TEST(Reporter, ConstructionLogsOnceUnderItsOwnName) {
    Host host;
    {
        const Reporter reporter(RootOf(host));
        const auto lines = host.Logs().Lines();
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_EQ(lines[0].logger, "kalvo.reporter");
        EXPECT_EQ(lines[0].severity, 4u);
        EXPECT_EQ(lines[0].text, "Reporter successfully initialized.");
        // Services are looked up per call, not at construction.
        EXPECT_EQ(host.Faults().Calls(Operation::GetInterfaceServiceProvider), 0u);
    }
    EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();
}

TEST(Reporter, ReportedEventCarriesTheShapedSourceAndTags) {
    {
        Host host;
        {
            const Reporter reporter(RootOf(host));
            SecurityEvent event = reporter.CreateSecurityEvent();
            const auto observation = event.CreateObservation(Severity::Default, Source("SecurityMonitor", "1.0.28"),
                                                             CreationType, CreationMessage, {"b", "a"});
            ASSERT_TRUE(observation);
            reporter.ReportSecurityEvent(event);
        }
        EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences();

        const auto events = host.Reports().Events();
        ASSERT_EQ(events.size(), 1u);
        ASSERT_EQ(events[0]->observations.size(), 1u);
        const KALVO::DevHost::ObservationRecord& recorded = events[0]->observations[0];
        EXPECT_EQ(recorded.severity, 0u);
        EXPECT_EQ(recorded.typeId, CreationType);
        EXPECT_EQ(recorded.message, CreationMessage);
        ASSERT_TRUE(recorded.source);
        ExpectSourceShape(*recorded.source, "SecurityMonitor", "1.0.28", {});
        ASSERT_TRUE(recorded.tags);
        EXPECT_EQ(ListOf(*recorded.tags), (std::vector<std::pair<std::uint64_t, std::string>>{{0, "a"}, {1, "b"}}));
    }
}

// One host call made to fail, and what the caller sees.
struct FailureRow {
    Operation operation;
    KALVO::Result::Code code;
    char const* text;  // the fixed text the error starts with; "" for none
};

// Runs `body`, which arms `row`'s fault (through `arm`) just before the call under test, and
// checks the error it throws; then that nothing of the host or of the plug-in is left alive.
void ExpectFailureLeavesNothing(const FailureRow& row,
                                const std::function<void(const Reporter&, const std::function<void()>& arm)>& body) {
    const std::string context =
        std::string(KALVO::DevHost::OperationName(row.operation)) + "=" + std::to_string(row.code);
    {
        Host host;
        {
            const Reporter reporter(RootOf(host));
            try {
                body(reporter, [&] { host.Faults().FailNext(row.operation, row.code); });
                ADD_FAILURE() << "no exception: " << context;
            } catch (const std::system_error& e) {
                EXPECT_EQ(e.code(), std::error_code(static_cast<int>(row.code), std::generic_category())) << context;
                const std::string what = e.what();
                if (*row.text) {
                    EXPECT_EQ(what.rfind(row.text, 0), 0u) << what << " " << context;
                } else {
                    EXPECT_EQ(what, std::system_error(e.code()).what()) << context;
                }
            }
            EXPECT_EQ(host.Faults().Failures(row.operation), 1u) << context;
        }
        EXPECT_EQ(host.OutstandingReferences(), 0u) << host.DescribeOutstandingReferences() << " " << context;
    }
}

TEST(Reporter, CreateSecurityEventFailuresReleaseEverything) {
    const FailureRow rows[] = {
        {Operation::GetInterfaceServiceProvider, 43, ""},
        {Operation::GetServiceReporting, 2, ""},
        {Operation::CreateSecurityEvent, 12, "unable to create new security event"},
        {Operation::CreateSecurityEvent, 5, "unable to create new security event"},
    };
    for (const FailureRow& row : rows) {
        ExpectFailureLeavesNothing(row, [](const Reporter& reporter, const std::function<void()>& arm) {
            arm();
            (void)reporter.CreateSecurityEvent();
        });
    }
}

TEST(Reporter, ReportSecurityEventFailuresReleaseEverything) {
    const FailureRow rows[] = {
        {Operation::GetInterfaceServiceProvider, 43, ""},
        {Operation::GetServiceReporting, 2, ""},
        {Operation::ReportSecurityEvent, 5, "unable to report security event"},
        {Operation::ReportSecurityEvent, 89, "unable to report security event"},
    };
    for (const FailureRow& row : rows) {
        ExpectFailureLeavesNothing(row, [](const Reporter& reporter, const std::function<void()>& arm) {
            SecurityEvent event = reporter.CreateSecurityEvent();
            (void)event.CreateObservation(Severity::Default, Source("SecurityMonitor", "1.0.28"), CreationType,
                                          CreationMessage);
            arm();
            reporter.ReportSecurityEvent(event);
        });
    }
}

TEST(SecurityEvent, RefusedObservationReleasesItsContainers) {
    const FailureRow rows[] = {
        {Operation::CreateObservation, 22, "unable to create new observation"},
        {Operation::CreateObservation, 100, "unable to create new observation"},
    };
    for (const FailureRow& row : rows) {
        ExpectFailureLeavesNothing(row, [](const Reporter& reporter, const std::function<void()>& arm) {
            SecurityEvent event = reporter.CreateSecurityEvent();
            arm();
            (void)event.CreateObservation(Severity::Default, Source("SecurityMonitor", "1.0.28"), CreationType,
                                          CreationMessage, {"tag"});
        });
    }
}

TEST(SecurityEvent, HostSuccessWithoutObservationYieldsNull) {
    {
        Host host;
        const Reporter reporter(RootOf(host));
        SecurityEvent event = reporter.CreateSecurityEvent();
        // A code of 0 from the fault injector means "succeed without doing anything".
        host.Faults().FailNext(Operation::CreateObservation, 0);
        EXPECT_FALSE(event.CreateObservation(Severity::Default, Source("SecurityMonitor", "1.0.28"), CreationType,
                                             CreationMessage));
    }
}

}  // namespace
