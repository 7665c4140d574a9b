// Every host call a handler makes, failing: the handler logs its two lines, the host sees no
// exception, nothing the sensor took is kept, and the next event works normally.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

using DevHost::Operation;

struct Handler {
    const char* name;
    const char* message;
    std::function<void(SensorHarness&, int)> deliver;
};

const Handler Handlers[] = {
    {"create", "unable to process process start event",
     [](SensorHarness& sensor, int n) {
         auto parent = sensor.Process(std::string("p").append(std::to_string(n)), "/bin/sh", "sh");
         auto child = sensor.Process(std::string("c").append(std::to_string(n)), "/bin/ls", std::string("ls ").append(std::to_string(n)));
         sensor.Created(child, parent);
     }},
    {"exists", "unable to process process exists event",
     [](SensorHarness& sensor, int n) {
         sensor.Host().Monitors().DeliverProcessExists(sensor.Process(std::string("e").append(std::to_string(n)), "/bin/e", "e"));
     }},
    {"shell", "unable to process shell command event",
     [](SensorHarness& sensor, int n) {
         sensor.Host().Monitors().DeliverShellCommand(sensor.Process("s", "/bin/sh", "sh"), std::string("cmd ").append(std::to_string(n)));
     }},
};

TEST_F(SensorTest, HandlerFailuresAreLoggedAndLeaveNothingBehind) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    const Operation operations[] = {
        Operation::ProcessGetInterfaceObject, Operation::ProcessGetInterfaceValues,
        Operation::GetInterfaceServiceProvider, Operation::GetServiceReporting,
        Operation::CreateSecurityEvent, Operation::CreateObservation,
        Operation::AddObservable, Operation::ReportSecurityEvent,
    };
    int n = 0;
    for (const Handler& handler : Handlers) {
        for (Operation operation : operations) {
            SCOPED_TRACE(std::string(handler.name) + " " + std::string(DevHost::OperationName(operation)));
            sensor.Host().Logs().Clear();
            sensor.Host().Faults().FailAlways(operation, 5);
            const auto before = sensor.Reported();
            handler.deliver(sensor, n++);
            sensor.Host().Faults().ClearAll();
            EXPECT_EQ(sensor.Reported(), before);
            EXPECT_EQ(sensor.Logged(LogLevel::Error, "Unexpected Exception: '"), 1u);
            EXPECT_EQ(sensor.Logged(LogLevel::Error, handler.message), 1u);
            handler.deliver(sensor, n++);
            EXPECT_EQ(sensor.Reported(), before + 1) << "the next event must work";
        }
    }
}

TEST_F(SensorTest, FailureTextsNameTheHostOperation) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    struct Case {
        Operation operation;
        const char* text;
    };
    const Case cases[] = {
        {Operation::CreateSecurityEvent, "unable to create new security event"},
        {Operation::CreateObservation, "unable to create new observation"},
        {Operation::AddObservable, "unable to add observable to observation"},
        {Operation::ReportSecurityEvent, "unable to report security event"},
    };
    int n = 0;
    for (const Case& c : cases) {
        sensor.Host().Logs().Clear();
        sensor.Host().Faults().FailNext(c.operation, 5);
        Handlers[0].deliver(sensor, n++);
        EXPECT_EQ(sensor.Logged(LogLevel::Error, std::string("Unexpected Exception: '") + c.text), 1u) << c.text;
    }
}

TEST_F(SensorTest, AFailedReportStillUsesUpOneOfTheKeysReports) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    auto parent = sensor.Process("p", "/bin/sh", "sh");
    auto child = sensor.Process("c", "/bin/ls", "ls");
    sensor.Host().Faults().FailNext(Operation::ReportSecurityEvent, 5);
    for (int i = 0; i < 4; ++i) sensor.Created(child, parent);
    EXPECT_EQ(sensor.Reported(), 2u);
}

TEST_F(SensorTest, TerminationOfAnyRecordIsSilent) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    sensor.Host().Monitors().DeliverProcessTerminate(sensor.Process("gone", "", ""));
    EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), 0u);
}

}  // namespace
}  // namespace KALVO::Testing
