// FaultInjector: makes any operation of the stand-in host fail on demand, and counts calls.
//
// Tests (and the command-line tools, through "Operation=code[xN][@M]" rules) use it to drive
// the sensor down its failure paths against a real host instead of per-test mocks. Every host
// operation that can fail asks Check() first (through Serve); a failing call returns the chosen
// code and does nothing else. Thread-safe: one mutex guards every count and setting.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
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

// One parsed fault: after `after` calls of `operation` that proceed, fail `count` calls with
// `code`; no count means every call.
struct FaultRule {
    Operation operation;
    Result::Code code;
    std::optional<std::uint64_t> count;
    std::uint64_t after = 0;
};

// Parses "Operation=code" (every call), "Operation=codexN" (the next N calls, N >= 1), either
// followed by "@M" (starting with the Mth call from now, M >= 1; once unless xN is given),
// e.g. "GetValue=89x2" or "GetValue=89@2". Throws std::invalid_argument with a message naming
// what is wrong (an unknown operation's message lists the known names).
FaultRule ParseFaultRule(std::string_view text);

class FaultInjector {
public:
    FaultInjector() = default;
    FaultInjector(const FaultInjector&) = delete;  // shared by the host's objects, never copied
    FaultInjector& operator=(const FaultInjector&) = delete;

    // After `after` calls of `operation` that proceed, the next `count` calls fail with `code`
    // (replacing an earlier setting).
    void FailNext(Operation operation, Result::Code code, std::uint64_t count = 1, std::uint64_t after = 0) noexcept {
        Apply(FaultRule{operation, code, count, after});
    }
    void Apply(const FaultRule& rule) noexcept {
        std::lock_guard lock(m_mutex);
        m_slots[static_cast<std::size_t>(rule.operation)].rule = rule;
    }
    void ClearAll() noexcept {
        std::lock_guard lock(m_mutex);
        for (Slot& slot : m_slots) slot.rule.reset();
    }

    // Called by the host at the start of `operation`: counts the call and returns the code to
    // fail with, or nothing when the call is to proceed. The code may be 0 (for Filter, an
    // answer that lets the event through).
    std::optional<Result::Code> Check(Operation operation) noexcept {
        std::lock_guard lock(m_mutex);
        Slot& slot = m_slots[static_cast<std::size_t>(operation)];
        ++slot.calls;
        if (!slot.rule || slot.rule->count == std::uint64_t{0}) return std::nullopt;
        if (slot.rule->after != 0) {
            --slot.rule->after;
            return std::nullopt;
        }
        if (slot.rule->count) --*slot.rule->count;
        return slot.rule->code;
    }

    // Calls of `operation` since construction or ResetCounts, failed ones included.
    std::uint64_t Calls(Operation operation) const noexcept {
        std::lock_guard lock(m_mutex);
        return m_slots[static_cast<std::size_t>(operation)].calls;
    }
    void ResetCounts() noexcept {
        std::lock_guard lock(m_mutex);
        for (Slot& slot : m_slots) slot.calls = 0;
    }

private:
    struct Slot {
        std::uint64_t calls = 0;
        std::optional<FaultRule> rule;  // counted down as calls proceed and fail
    };

    mutable std::mutex m_mutex;  // guards m_slots
    std::array<Slot, OperationCount> m_slots{};
};

// The one catch-all of the stand-in host's entry points: no exception ever travels back into
// the plug-in that called it. std::bad_alloc answers 12, anything else 100.
template <class Body>
Result::Code AtBoundary(Body&& body) noexcept {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return Result::OutOfMemory;
    } catch (...) {
        return Result::ProtocolError;
    }
}

// An entry point of the stand-in host: fails as injected for `operation`, else runs `body`
// inside the catch-all.
template <class Body>
Result::Code Serve(FaultInjector& faults, Operation operation, Body&& body) noexcept {
    if (const auto failure = faults.Check(operation)) return *failure;
    return AtBoundary(body);
}

}  // namespace KALVO::DevHost
