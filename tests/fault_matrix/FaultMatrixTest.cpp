// Every host operation, made to fail in turn with each code it can meaningfully return, during
// every phase of the sensor's life (Start, each kind of event, a health check, Synchronize,
// Stop). Whatever fails: nothing crashes, no exception reaches the host, the failure is logged
// with the line the sensor promises for it (and is never silent when it changes an outcome),
// the sensor gives back every reference it took, and once the fault is lifted it works again:
// a fresh event is reported.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

using DevHost::Operation;

enum class Phase {
    Start,
    ProcessCreate,
    ProcessExists,
    ProcessTerminate,
    ShellCommand,
    HealthCheck,
    Synchronize,
    Stop
};

constexpr const char* PhaseName(Phase phase) {
    switch (phase) {
    case Phase::Start: return "Start";
    case Phase::ProcessCreate: return "ProcessCreate";
    case Phase::ProcessExists: return "ProcessExists";
    case Phase::ProcessTerminate: return "ProcessTerminate";
    case Phase::ShellCommand: return "ShellCommand";
    case Phase::HealthCheck: return "HealthCheck";
    case Phase::Synchronize: return "Synchronize";
    case Phase::Stop: return "Stop";
    }
    return "?";
}

// Codes a host operation can meaningfully fail with; the filter's "code" is its answer, and 1
// is the one answer that suppresses. A lookup can also answer 0 without handing out an object
// (the injected fault does nothing else), which must count as a failure, not be followed.
std::vector<Result::Code> CodesFor(Operation operation) {
    std::vector<Result::Code> codes = {2, 12, 22, 43, 89, 100};
    const std::string_view name = DevHost::OperationName(operation);
    if (operation == Operation::Filter) codes.insert(codes.begin(), 1);
    if (name.find("GetInterface:") != name.npos || name.find("GetService:") != name.npos)
        codes.insert(codes.begin(), 0);
    return codes;
}

constexpr char const* HealthCheckKey = "securitymonitor!OnHealthCheck";

struct Expected {
    std::uint32_t severity;
    std::string text;
};

bool In(Operation operation, std::initializer_list<Operation> set) {
    return std::find(set.begin(), set.end(), operation) != set.end();
}

// What a failing host call in the event handlers turns into: the handler's Error line.
bool BreaksReporting(Operation operation) {
    return In(operation,
              {Operation::ProcessGetInterfaceObject, Operation::ProcessGetInterfaceValues,
               Operation::GetInterfaceServiceProvider, Operation::GetServiceReporting, Operation::CreateSecurityEvent,
               Operation::CreateObservation, Operation::AddObservable, Operation::ReportSecurityEvent});
}

// How the exception's own line starts: the reporting client names the step that failed and the
// host's code.
std::string ExceptionLine(Operation operation, Result::Code code) {
    const std::string start = "Unexpected Exception: '";
    const std::string reason = ": " + std::generic_category().message(static_cast<int>(code));
    switch (operation) {
    case Operation::CreateSecurityEvent: return start + "unable to create new security event" + reason;
    case Operation::CreateObservation: return start + "unable to create new observation" + reason;
    case Operation::ReportSecurityEvent: return start + "unable to report security event" + reason;
    default: return start;
    }
}

// The line the sensor writes for this fault, if it promises one.
std::optional<Expected> ExpectedLine(Operation operation, Phase phase, Result::Code code) {
    const std::string number = std::to_string(code);
    switch (phase) {
    case Phase::Start:
        if (operation == Operation::RegisterProcessMonitor)
            return Expected{LogLevel::Error, "Registering process monitor from ESP failed: " + number};
        if (operation == Operation::RegisterShellMonitor)
            return Expected{LogLevel::Error, "Registering shell monitor from ESP failed: " + number};
        if (In(operation, {Operation::GetInterfaceConfiguration, Operation::GetData}))
            return Expected{LogLevel::Warn, "Failed to get configuration for process tree collapsing"};
        if (In(operation, {Operation::GetInterfaceServiceProvider, Operation::GetInterfaceObject,
                           Operation::GetServiceMonitorRegistration, Operation::GetServiceEventFilter,
                           Operation::GetInterfaceMessageRouter, Operation::RegisterCommandHandler}))
            return Expected{LogLevel::Error, "unable to create our interface"};
        return std::nullopt;
    case Phase::ProcessCreate:
    case Phase::ProcessExists:
    case Phase::ShellCommand: {
        const bool create = phase == Phase::ProcessCreate;
        const bool exists = phase == Phase::ProcessExists;
        const std::string handler = create ? "OnProcessCreate" : exists ? "OnProcessExists" : "OnShellCommand";
        const std::string event = create ? "process start" : exists ? "process exists" : "shell command";
        if (operation == Operation::Filter && code == 1)
            return Expected{LogLevel::Info, "Skipping " + handler + " event for process"};
        if (BreaksReporting(operation)) return Expected{LogLevel::Error, "unable to process " + event + " event"};
        return std::nullopt;
    }
    case Phase::Synchronize:
        if (In(operation, {Operation::GetInterfaceConfiguration, Operation::GetData}))
            return Expected{LogLevel::Warn, "Failed to get configuration for process tree collapsing"};
        return std::nullopt;
    case Phase::Stop:
        if (operation == Operation::UnregisterProcessMonitor)
            return Expected{LogLevel::Error, "Unregistering process monitor from ESP failed: " + number};
        if (operation == Operation::UnregisterShellMonitor)
            return Expected{LogLevel::Error, "Unregistering shell monitor from ESP failed: " + number};
        return std::nullopt;
    case Phase::ProcessTerminate:
    case Phase::HealthCheck: return std::nullopt;
    }
    return std::nullopt;
}

class FaultMatrix : public SensorTest, public ::testing::WithParamInterface<Operation> {
protected:
    DevHost::Host& Host() { return sensor.Host(); }

    // Delivers an event of the phase's kind that has never been counted (a new parent-to-child
    // step, process or shell command); true when it was reported.
    bool ReportsFresh(Phase phase) {
        const std::string id = std::string("n").append(std::to_string(++m_serial));
        auto process = sensor.Process("process-" + id, "/bin/zsh", "-zsh");
        return sensor.ReportsFrom([&] {
            if (phase == Phase::ProcessCreate)
                sensor.Created(sensor.Process("child-" + id, "/usr/bin/env", "env " + id), process);
            if (phase == Phase::ProcessExists) Host().Monitors().DeliverProcessExists(process);
            if (phase == Phase::ShellCommand) Host().Monitors().DeliverShellCommand(process, "echo " + id);
        }) == 1;
    }

    // Runs `phase` with `operation` failing with `code`; returns whether its outcome was the
    // normal one (Start/Synchronize/Stop/health check answered 0, the event reported).
    bool RunPhase(Phase phase, Operation operation, Result::Code code) {
        auto& faults = Host().Faults();
        faults.Apply({operation, code, std::nullopt});
        bool normal = true;
        switch (phase) {
        case Phase::Start: normal = sensor.Start() == Result::Success; break;
        case Phase::ProcessCreate:
        case Phase::ProcessExists:
        case Phase::ShellCommand: normal = ReportsFresh(phase); break;
        case Phase::ProcessTerminate:
            Host().Monitors().DeliverProcessTerminate(sensor.Process("process-n1", "/bin/zsh", "-zsh"));
            break;
        case Phase::HealthCheck: {
            std::string answer;
            normal = Host().Router().Execute(HealthCheckKey, R"({"id":"7"})", answer) == Result::Success &&
                     answer == R"({"id":"7","status":"ok"})";
            break;
        }
        case Phase::Synchronize: normal = sensor.Synchronize(R"({"reason":"configuration"})") == Result::Success; break;
        case Phase::Stop: normal = sensor.Stop() == Result::Success; break;
        }
        faults.Apply({operation, code, 0});  // fails no more
        return normal;
    }

    // After the fault is lifted: started again if the phase stopped it (or Start failed), a
    // fresh event is reported, and Stop leaves the host's accounting where it was.
    void CheckRecovery(Phase phase, bool startedBefore) {
        if (phase == Phase::Stop || !startedBefore) {
            // A host whose unregistration failed still holds the destroyed monitor; it has to
            // drop it before anything is delivered again.
            Host().Monitors().Clear();
        }
        if (phase == Phase::Stop || phase == Phase::Start) {
            ASSERT_EQ(sensor.Start(), Result::Success) << "Start once the fault is lifted";
        }
        EXPECT_TRUE(ReportsFresh(Phase::ProcessCreate)) << "a fresh event once the fault is lifted";
        EXPECT_EQ(sensor.Stop(), Result::Success);
        EXPECT_TRUE(Host().Monitors().ProcessMonitors().empty());
        EXPECT_TRUE(Host().Monitors().ShellMonitors().empty());
        EXPECT_FALSE(Host().Router().HasHandler(HealthCheckKey));
        EXPECT_EQ(Host().OutstandingReferences(), m_stoppedReferences);
        EXPECT_EQ(Host().Config().OutstandingTexts(), 0u);
    }

    void RunCase(Operation operation, Result::Code code, Phase phase) {
        SCOPED_TRACE(std::string(DevHost::OperationName(operation)) + std::string("=").append(std::to_string(code)) +
                     " during " + PhaseName(phase));
        Host().Config().SetText(R"({"securitymonitor":{"process_tree_report_limit":5}})");
        if (phase != Phase::Start) {
            ASSERT_EQ(sensor.Start(), Result::Success);
        }
        Host().Logs().Clear();
        const bool normal = RunPhase(phase, operation, code);

        EXPECT_EQ(Host().Monitors().EscapedExceptions(), 0u);
        if (operation != Operation::Log) {  // a failing log sink drops the lines
            const auto expected = ExpectedLine(operation, phase, code);
            if (expected) {
                EXPECT_GE(sensor.Logged(expected->severity, expected->text), 1u) << "expected line: " << expected->text;
            }
            const auto lines = Host().Logs().Lines();
            const bool logged = std::any_of(lines.begin(), lines.end(),
                                            [](const auto& line) { return line.severity <= LogLevel::Info; });
            EXPECT_TRUE(normal || logged) << "a failure that changed the outcome is logged";
            if (expected && expected->severity == LogLevel::Error && phase != Phase::Start && phase != Phase::Stop) {
                EXPECT_EQ(sensor.Logged(LogLevel::Error, ExceptionLine(operation, code)), 1u)
                    << "the exception's own text first: " << ExceptionLine(operation, code);
            }
        }
        if (phase == Phase::Start && !normal) {
            EXPECT_TRUE(Host().Monitors().ProcessMonitors().empty()) << "a failed Start leaves no registration";
            EXPECT_TRUE(Host().Monitors().ShellMonitors().empty()) << "a failed Start leaves no registration";
        }
        CheckRecovery(phase, phase != Phase::Start || normal);
    }

    // What the loaded, stopped package holds (the host object, the log sink).
    void SetUp() override { m_stoppedReferences = Host().OutstandingReferences(); }

    std::string m_stoppedReferences;
    unsigned m_serial = 0;
};

TEST_P(FaultMatrix, EveryPhaseSurvivesTheFaultAndRecovers) {
    const Operation operation = GetParam();
    for (const Result::Code code : CodesFor(operation)) {
        for (int phase = 0; phase <= static_cast<int>(Phase::Stop); ++phase) {
            RunCase(operation, code, static_cast<Phase>(phase));
            if (HasFatalFailure()) return;
        }
    }
}

std::string ParamName(const ::testing::TestParamInfo<Operation>& info) {
    std::string name(DevHost::OperationName(info.param));
    for (char& c : name)
        if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(HostOperations, FaultMatrix, ::testing::ValuesIn(DevHost::AllOperations), ParamName);

}  // namespace
}  // namespace KALVO::Testing
