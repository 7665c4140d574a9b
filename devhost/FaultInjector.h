// FaultInjector: makes any operation of the stand-in host fail on demand, and counts calls.
//
// Tests (and the command-line tools, through "Operation=code[xN][@M]" rules) use it to drive
// the sensor down its failure paths against a real host instead of per-test mocks. Every host
// operation that can fail asks Check() first (through Serve); a failing call returns the chosen
// code and does nothing else. Thread-safe: one mutex guards every count and setting.
#pragma once

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <mutex>
#include <new>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "host/ResultCode.h"

namespace KALVO::DevHost {

// The host operations that can be made to fail, each with a stable text name (OperationNames):
// "GetInterface:<interface>" on the host object, "GetService:<interface>" on its service
// provider, "ProcessGetInterface:<interface>" on a process record, else the method's own name.
// For Filter the code becomes the filter's answer (1 suppresses); for Log the line is dropped.
// The list is X(enumerator, name) for each operation, in enum order.
#define KALVO_DEVHOST_OPERATIONS(X)                                     \
    X(GetInterfaceObject, "GetInterface:IObject")                       \
    X(GetInterfaceServiceProvider, "GetInterface:IServiceProvider")     \
    X(GetInterfaceConfiguration, "GetInterface:IConfiguration")         \
    X(GetInterfaceStorage, "GetInterface:IStorage")                     \
    X(GetInterfaceMessageRouter, "GetInterface:IMessageRouter")         \
    X(GetInterfaceLogSink, "GetInterface:ILogSink")                     \
    X(GetServiceReporting, "GetService:IReportingService")              \
    X(GetServiceMonitorRegistration, "GetService:IMonitorRegistration") \
    X(GetServiceEventFilter, "GetService:IEventFilter")                 \
    X(GetData, "GetData")                                               \
    X(GetValue, "GetValue")                                             \
    X(SetValue, "SetValue")                                             \
    X(Log, "Log")                                                       \
    X(RegisterCommandHandler, "RegisterCommandHandler")                 \
    X(UnregisterCommandHandler, "UnregisterCommandHandler")             \
    X(CreateSecurityEvent, "CreateSecurityEvent")                       \
    X(ReportSecurityEvent, "ReportSecurityEvent")                       \
    X(CreateObservation, "CreateObservation")                           \
    X(AddObservable, "AddObservable")                                   \
    X(RegisterProcessMonitor, "RegisterProcessMonitor")                 \
    X(UnregisterProcessMonitor, "UnregisterProcessMonitor")             \
    X(RegisterShellMonitor, "RegisterShellMonitor")                     \
    X(UnregisterShellMonitor, "UnregisterShellMonitor")                 \
    X(Filter, "Filter")                                                 \
    X(ProcessGetInterfaceObject, "ProcessGetInterface:IObject")         \
    X(ProcessGetInterfaceValues, "ProcessGetInterface:IValues")

enum class Operation : std::uint32_t {
#define KALVO_DEVHOST_ENUMERATOR(operation, name) operation,
    KALVO_DEVHOST_OPERATIONS(KALVO_DEVHOST_ENUMERATOR)
#undef KALVO_DEVHOST_ENUMERATOR
};

// Every operation, in enum order.
inline constexpr Operation AllOperations[] = {
#define KALVO_DEVHOST_ENUMERATOR(operation, name) Operation::operation,
    KALVO_DEVHOST_OPERATIONS(KALVO_DEVHOST_ENUMERATOR)
#undef KALVO_DEVHOST_ENUMERATOR
};

// The operations' stable names, indexed by the operation.
inline constexpr std::string_view OperationNames[] = {
#define KALVO_DEVHOST_NAME(operation, name) name,
    KALVO_DEVHOST_OPERATIONS(KALVO_DEVHOST_NAME)
#undef KALVO_DEVHOST_NAME
};

// The operation's stable name, e.g. "GetService:IReportingService".
inline std::string_view OperationName(Operation operation) noexcept {
    return OperationNames[static_cast<std::size_t>(operation)];
}

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
inline FaultRule ParseFaultRule(std::string_view text) {
    const std::size_t equals = text.rfind('=');
    if (equals == std::string_view::npos) {
        throw std::invalid_argument(fmt::format("fault rule '{}' is not of the form Operation=code[xN][@M]", text));
    }
    const std::string_view name = text.substr(0, equals);
    const auto* found = std::find(std::begin(OperationNames), std::end(OperationNames), name);
    if (found == std::end(OperationNames)) {
        throw std::invalid_argument(
            fmt::format("unknown operation '{}' in fault rule; known: {}", name, fmt::join(OperationNames, ", ")));
    }
    // Cuts the number after `separator` (none: the whole rest) off the end of `rest`; nothing
    // when there is no separator. Counts and starts are from 1, codes unsigned 32-bit.
    std::string_view rest = text.substr(equals + 1);
    const auto take = [&](char separator, char const* what) -> std::optional<std::uint64_t> {
        const std::size_t at = separator ? rest.find(separator) : 0;
        if (at == std::string_view::npos) return std::nullopt;
        const std::string_view digits = rest.substr(separator ? at + 1 : 0);
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        const bool inRange = separator ? number != 0 : number <= std::numeric_limits<Result::Code>::max();
        if (error != std::errc() || end != digits.data() + digits.size() || !inRange) {
            throw std::invalid_argument(fmt::format("bad {} in fault rule '{}': expected {}", what, text,
                                                    separator ? "a number from 1" : "an unsigned 32-bit number"));
        }
        rest = rest.substr(0, at);
        return number;
    };
    const std::optional<std::uint64_t> start = take('@', "start");
    // No count: every call, or once from the start given.
    const std::optional<std::uint64_t> count = take('x', "count");
    const auto code = static_cast<Result::Code>(*take('\0', "code"));
    return FaultRule{static_cast<Operation>(found - std::begin(OperationNames)), code, count || !start ? count : 1,
                     start ? *start - 1 : 0};
}

// Shared by the host's objects, never copied (its mutex forbids it).
class FaultInjector {
public:
    // Sets the rule of its operation, replacing an earlier one; FaultRule{operation, code, 1}
    // fails the next call.
    void Apply(const FaultRule& rule) noexcept {
        std::lock_guard lock(m_mutex);
        m_slots[static_cast<std::size_t>(rule.operation)].rule = rule;
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

    // Calls of `operation` since construction, failed ones included.
    std::uint64_t Calls(Operation operation) const noexcept {
        std::lock_guard lock(m_mutex);
        return m_slots[static_cast<std::size_t>(operation)].calls;
    }

private:
    struct Slot {
        std::uint64_t calls = 0;
        std::optional<FaultRule> rule;  // counted down as calls proceed and fail
    };

    mutable std::mutex m_mutex;  // guards m_slots
    std::array<Slot, std::size(AllOperations)> m_slots{};
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
