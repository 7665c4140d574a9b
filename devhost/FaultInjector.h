// FaultInjector: makes any operation of the stand-in host fail on demand, and counts calls.
//
// Tests (and the command-line tools, through "Operation=code[xN]" rules) use it to drive the
// sensor down its failure paths against a real host instead of per-test mocks. Every host
// operation that can fail asks Check() first; a failing call returns the chosen code and does
// nothing else. Thread-safe: the call counts and the armed faults are atomics.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/ResultCode.h"

namespace KALVO::DevHost {

// The host operations that can be made to fail. Each has a stable text name (OperationName).
enum class Operation : std::uint32_t {
    GetInterfaceObject,              // "GetInterface:IObject" on the host object
    GetInterfaceServiceProvider,     // "GetInterface:IServiceProvider"
    GetInterfaceConfiguration,       // "GetInterface:IConfiguration"
    GetInterfaceStorage,             // "GetInterface:IStorage"
    GetInterfaceMessageRouter,       // "GetInterface:IMessageRouter"
    GetInterfaceLogSink,             // "GetInterface:ILogSink"
    GetServiceReporting,             // "GetService:IReportingService"
    GetServiceMonitorRegistration,   // "GetService:IMonitorRegistration"
    GetServiceEventFilter,           // "GetService:IEventFilter"
    GetData,                         // "GetData": the configuration text
    GetValue,                        // "GetValue": storage reads
    SetValue,                        // "SetValue": storage writes
    Log,                             // "Log": the log sink (the line is then dropped)
    RegisterCommandHandler,          // "RegisterCommandHandler"
    UnregisterCommandHandler,        // "UnregisterCommandHandler"
    CreateSecurityEvent,             // "CreateSecurityEvent"
    ReportSecurityEvent,             // "ReportSecurityEvent"
    CreateObservation,               // "CreateObservation"
    AddObservable,                   // "AddObservable"
    RegisterProcessMonitor,          // "RegisterProcessMonitor"
    UnregisterProcessMonitor,        // "UnregisterProcessMonitor"
    RegisterShellMonitor,            // "RegisterShellMonitor"
    UnregisterShellMonitor,          // "UnregisterShellMonitor"
    Filter,                          // "Filter": the code becomes the filter's answer (1 suppresses)
    ProcessGetInterfaceObject,       // "ProcessGetInterface:IObject" on a process record
    ProcessGetInterfaceValues,       // "ProcessGetInterface:IValues" on a process record
};

inline constexpr std::size_t OperationCount = static_cast<std::size_t>(Operation::ProcessGetInterfaceValues) + 1;

// Every operation, in enum order.
std::span<const Operation> AllOperations() noexcept;

// The operation's stable name, e.g. "GetService:IReportingService".
std::string_view OperationName(Operation operation) noexcept;

// The operation of that exact name, or nothing.
std::optional<Operation> OperationFromName(std::string_view name) noexcept;

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
    void FailNext(Operation operation, Result::Code code, std::uint64_t count = 1) noexcept;
    // Every call of `operation` fails with `code` until Clear.
    void FailAlways(Operation operation, Result::Code code) noexcept;
    void Apply(const FaultRule& rule) noexcept;
    void Clear(Operation operation) noexcept;
    void ClearAll() noexcept;

    // Called by the host at the start of `operation`: counts the call and returns the code to
    // fail with, or nothing when the call is to proceed. The code may be 0 (for Filter, an
    // answer that lets the event through).
    std::optional<Result::Code> Check(Operation operation) noexcept {
        m_calls[static_cast<std::size_t>(operation)].fetch_add(1, std::memory_order_relaxed);
        // acquire: a call that sees a failure count sees the code stored before it.
        if (SlotOf(operation).remaining.load(std::memory_order_acquire) == 0) return std::nullopt;
        return CheckArmed(operation);
    }

    // Calls of `operation` since construction or ResetCounts, failed ones included. Exact when
    // no call is running.
    std::uint64_t Calls(Operation operation) const noexcept;
    // Calls of `operation` that were made to fail.
    std::uint64_t Failures(Operation operation) const noexcept;
    // Only while no host call is running.
    void ResetCounts() noexcept;

private:
    // A failure count of -1 means "every call". The code is stored before the count (release)
    // and read after it (acquire), so a call that sees the count sees its code.
    struct Slot {
        std::atomic<std::uint64_t> failures{0};
        std::atomic<std::int64_t> remaining{0};
        std::atomic<Result::Code> code{0};
    };

    // Check's path when a failure is set for `operation`.
    std::optional<Result::Code> CheckArmed(Operation operation) noexcept;

    Slot& SlotOf(Operation operation) noexcept { return m_slots[static_cast<std::size_t>(operation)]; }
    const Slot& SlotOf(Operation operation) const noexcept { return m_slots[static_cast<std::size_t>(operation)]; }

    std::array<Slot, OperationCount> m_slots;
    std::array<std::atomic<std::uint64_t>, OperationCount> m_calls{};  // relaxed: counts only
};

}  // namespace KALVO::DevHost
