// FaultInjector: makes any operation of the stand-in host fail on demand, and counts calls.
//
// Tests (and the command-line tools, through "Operation=code[xN]" rules) use it to drive the
// sensor down its failure paths against a real host instead of per-test mocks. Every host
// operation that can fail asks Check() first; a failing call returns the chosen code and does
// nothing else. Thread-safe: one mutex guards every count and setting.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>

#include "host/ResultCode.h"

namespace KALVO::DevHost {

// The host operations that can be made to fail, each with a stable text name (OperationName):
// "GetInterface:<interface>" on the host object, "GetService:<interface>" on its service
// provider, "ProcessGetInterface:<interface>" on a process record, else the method's own name.
// For Filter the code becomes the filter's answer (1 suppresses); for Log the line is dropped.
enum class Operation : std::uint32_t {
    GetInterfaceObject,
    GetInterfaceServiceProvider,
    GetInterfaceConfiguration,
    GetInterfaceStorage,
    GetInterfaceMessageRouter,
    GetInterfaceLogSink,
    GetServiceReporting,
    GetServiceMonitorRegistration,
    GetServiceEventFilter,
    GetData,
    GetValue,
    SetValue,
    Log,
    RegisterCommandHandler,
    UnregisterCommandHandler,
    CreateSecurityEvent,
    ReportSecurityEvent,
    CreateObservation,
    AddObservable,
    RegisterProcessMonitor,
    UnregisterProcessMonitor,
    RegisterShellMonitor,
    UnregisterShellMonitor,
    Filter,
    ProcessGetInterfaceObject,
    ProcessGetInterfaceValues,
};

inline constexpr std::size_t OperationCount = static_cast<std::size_t>(Operation::ProcessGetInterfaceValues) + 1;

// Every operation, in enum order.
std::span<const Operation> AllOperations() noexcept;

// The operation's stable name, e.g. "GetService:IReportingService".
std::string_view OperationName(Operation operation) noexcept;

// One parsed fault: fail `count` calls of `operation` with `code`; no count means every call.
struct FaultRule {
    Operation operation;
    Result::Code code;
    std::optional<std::uint64_t> count;
};

// Parses "Operation=code" (every call) or "Operation=codexN" (the next N calls, N >= 1), e.g.
// "GetValue=89x2". Throws std::invalid_argument with a message naming what is wrong (an
// unknown operation's message lists the known names).
FaultRule ParseFaultRule(std::string_view text);

class FaultInjector {
public:
    FaultInjector() = default;
    FaultInjector(const FaultInjector&) = delete;  // shared by the host's objects, never copied
    FaultInjector& operator=(const FaultInjector&) = delete;

    // The next `count` calls of `operation` fail with `code` (replacing an earlier setting).
    void FailNext(Operation operation, Result::Code code, std::uint64_t count = 1) noexcept {
        Apply(FaultRule{operation, code, count});
    }
    // Every call of `operation` fails with `code` until ClearAll.
    void FailAlways(Operation operation, Result::Code code) noexcept { Apply(FaultRule{operation, code, std::nullopt}); }
    void Apply(const FaultRule& rule) noexcept;
    void ClearAll() noexcept;

    // Called by the host at the start of `operation`: counts the call and returns the code to
    // fail with, or nothing when the call is to proceed. The code may be 0 (for Filter, an
    // answer that lets the event through).
    std::optional<Result::Code> Check(Operation operation) noexcept;

    // Calls of `operation` since construction or ResetCounts, failed ones included.
    std::uint64_t Calls(Operation operation) const noexcept;
    // Calls of `operation` that were made to fail.
    std::uint64_t Failures(Operation operation) const noexcept;
    void ResetCounts() noexcept;

private:
    struct Slot {
        std::uint64_t calls = 0;
        std::uint64_t failures = 0;
        std::optional<std::uint64_t> remaining = 0;  // calls still to fail; none: every call
        Result::Code code = 0;
    };

    mutable std::mutex m_mutex;  // guards m_slots
    std::array<Slot, OperationCount> m_slots{};
};

}  // namespace KALVO::DevHost
