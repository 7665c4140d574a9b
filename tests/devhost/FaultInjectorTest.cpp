#include "devhost/FaultInjector.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "devhost/Host.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {
namespace {

TEST(FaultInjector, EveryOperationRoundTripsThroughItsName) {
    std::set<std::string_view> names;
    for (const Operation operation : AllOperations()) {
        const std::string_view name = OperationName(operation);
        EXPECT_TRUE(names.insert(name).second) << "duplicate name " << name;
        EXPECT_EQ(OperationFromName(name), operation) << name;
    }
    EXPECT_EQ(names.size(), OperationCount);
}

TEST(FaultInjector, ParsesRules) {
    const struct {
        char const* text;
        Operation operation;
        Result::Code code;
        std::optional<std::uint64_t> count;
    } cases[] = {
        {"GetValue=89", Operation::GetValue, 89, std::nullopt},
        {"GetValue=89x2", Operation::GetValue, 89, 2},
        {"GetService:IReportingService=43x1", Operation::GetServiceReporting, 43, 1},
        {"Filter=1", Operation::Filter, 1, std::nullopt},
    };
    for (const auto& c : cases) {
        const FaultRule rule = ParseFaultRule(c.text);
        EXPECT_EQ(rule.operation, c.operation) << c.text;
        EXPECT_EQ(rule.code, c.code) << c.text;
        EXPECT_EQ(rule.count, c.count) << c.text;
    }
}

TEST(FaultInjector, RejectsMalformedRules) {
    const struct {
        char const* text;
        char const* message;
    } cases[] = {
        {"GetValue", "Operation=code"},
        {"NoSuchThing=1", "known: GetInterface:IObject"},
        {"GetValue=", "bad code"},
        {"GetValue=abc", "bad code"},
        {"GetValue=-1", "bad code"},
        {"GetValue=4294967296", "bad code"},
        {"GetValue=89x", "bad count"},
        {"GetValue=89x0", "bad count"},
        {"GetValue=89x2x", "bad count"},
        {"GetValue=89 ", "bad code"},
    };
    for (const auto& c : cases) {
        try {
            ParseFaultRule(c.text);
            ADD_FAILURE() << "accepted " << c.text;
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(c.message), std::string::npos) << c.text << ": " << error.what();
        }
    }
}

TEST(FaultInjector, FailsTheNextCallsThenRecovers) {
    FaultInjector faults;
    faults.Apply(ParseFaultRule("SetValue=89x2"));
    EXPECT_EQ(faults.Check(Operation::SetValue), 89u);
    EXPECT_EQ(faults.Check(Operation::SetValue), 89u);
    EXPECT_EQ(faults.Check(Operation::SetValue), std::nullopt);
    EXPECT_EQ(faults.Check(Operation::GetValue), std::nullopt) << "other operations are untouched";
    EXPECT_EQ(faults.Calls(Operation::SetValue), 3u);
    EXPECT_EQ(faults.Failures(Operation::SetValue), 2u);

    faults.FailAlways(Operation::Filter, 0);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(faults.Check(Operation::Filter), 0u) << "a code of 0 is still an answer";
    faults.ClearAll();
    EXPECT_EQ(faults.Check(Operation::Filter), std::nullopt);
}

TEST(FaultInjector, ConcurrentCallsFailExactlyTheChosenNumber) {
    FaultInjector faults;
    faults.FailNext(Operation::Log, 12, 1000);
    std::atomic<int> failed{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 1000; ++i) {
                if (faults.Check(Operation::Log)) ++failed;
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failed.load(), 1000);
    EXPECT_EQ(faults.Calls(Operation::Log), 4000u);
}

TEST(FaultInjector, FailedLookupLeavesTheOutParameterAlone) {
    Host host;
    host.Faults().FailNext(Operation::GetInterfaceServiceProvider, Result::ProtocolNotSupported);
    Agent::Hosting::IObject* out = reinterpret_cast<Agent::Hosting::IObject*>(0x1);
    EXPECT_EQ(host.Root()->GetInterface(Agent::Hosting::IServiceProvider::Id, out), Result::ProtocolNotSupported);
    EXPECT_EQ(out, reinterpret_cast<Agent::Hosting::IObject*>(0x1));
    EXPECT_EQ(host.OutstandingReferences(), 0u);

    Agent::Hosting::ObjectPtr<Agent::Hosting::IServiceProvider> provider;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), provider), Result::Success);
    host.Faults().FailNext(Operation::GetServiceEventFilter, 5);
    EXPECT_EQ(provider->GetService(ESP::v0::IEventFilter::ServiceId, out), 5u);
    EXPECT_EQ(host.Faults().Calls(Operation::GetServiceEventFilter), 1u);
}

}  // namespace
}  // namespace KALVO::DevHost
