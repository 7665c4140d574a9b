#include "devhost/FaultInjector.h"

#include <charconv>
#include <limits>
#include <stdexcept>
#include <system_error>

namespace KALVO::DevHost {

namespace {

struct NamedOperation {
    Operation operation;
    std::string_view name;
};

// In enum order, so an operation's entry is found by its number.
constexpr NamedOperation Names[] = {
    {Operation::GetInterfaceObject, "GetInterface:IObject"},
    {Operation::GetInterfaceServiceProvider, "GetInterface:IServiceProvider"},
    {Operation::GetInterfaceConfiguration, "GetInterface:IConfiguration"},
    {Operation::GetInterfaceStorage, "GetInterface:IStorage"},
    {Operation::GetInterfaceMessageRouter, "GetInterface:IMessageRouter"},
    {Operation::GetInterfaceLogSink, "GetInterface:ILogSink"},
    {Operation::GetServiceReporting, "GetService:IReportingService"},
    {Operation::GetServiceMonitorRegistration, "GetService:IMonitorRegistration"},
    {Operation::GetServiceEventFilter, "GetService:IEventFilter"},
    {Operation::GetData, "GetData"},
    {Operation::GetValue, "GetValue"},
    {Operation::SetValue, "SetValue"},
    {Operation::Log, "Log"},
    {Operation::RegisterCommandHandler, "RegisterCommandHandler"},
    {Operation::UnregisterCommandHandler, "UnregisterCommandHandler"},
    {Operation::CreateSecurityEvent, "CreateSecurityEvent"},
    {Operation::ReportSecurityEvent, "ReportSecurityEvent"},
    {Operation::CreateObservation, "CreateObservation"},
    {Operation::AddObservable, "AddObservable"},
    {Operation::RegisterProcessMonitor, "RegisterProcessMonitor"},
    {Operation::UnregisterProcessMonitor, "UnregisterProcessMonitor"},
    {Operation::RegisterShellMonitor, "RegisterShellMonitor"},
    {Operation::UnregisterShellMonitor, "UnregisterShellMonitor"},
    {Operation::Filter, "Filter"},
    {Operation::ProcessGetInterfaceObject, "ProcessGetInterface:IObject"},
    {Operation::ProcessGetInterfaceValues, "ProcessGetInterface:IValues"},
};

static_assert(std::size(Names) == OperationCount, "every operation needs a name");

constexpr bool NamesInEnumOrder() {
    for (std::size_t i = 0; i < std::size(Names); ++i) {
        if (static_cast<std::size_t>(Names[i].operation) != i) return false;
    }
    return true;
}
static_assert(NamesInEnumOrder(), "Names must follow the enum's order");

constexpr auto MakeAll() {
    std::array<Operation, OperationCount> all{};
    for (std::size_t i = 0; i < OperationCount; ++i) all[i] = Names[i].operation;
    return all;
}
constexpr std::array<Operation, OperationCount> All = MakeAll();

template <class Number>
bool ParseNumber(std::string_view text, Number& number) {
    if (text.empty()) return false;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

std::string KnownNames() {
    std::string names;
    for (const NamedOperation& named : Names) {
        if (!names.empty()) names += ", ";
        names += named.name;
    }
    return names;
}

}  // namespace

std::span<const Operation> AllOperations() noexcept { return All; }

std::string_view OperationName(Operation operation) noexcept {
    const auto index = static_cast<std::size_t>(operation);
    return index < OperationCount ? Names[index].name : std::string_view("?");
}

std::optional<Operation> OperationFromName(std::string_view name) noexcept {
    for (const NamedOperation& named : Names) {
        if (named.name == name) return named.operation;
    }
    return std::nullopt;
}

FaultRule ParseFaultRule(std::string_view text) {
    const std::size_t equals = text.rfind('=');
    if (equals == std::string_view::npos) {
        throw std::invalid_argument("fault rule '" + std::string(text) + "' is not of the form Operation=code[xN]");
    }
    const std::string_view name = text.substr(0, equals);
    const std::optional<Operation> operation = OperationFromName(name);
    if (!operation) {
        throw std::invalid_argument("unknown operation '" + std::string(name) + "' in fault rule; known: " + KnownNames());
    }
    std::string_view codeText = text.substr(equals + 1);
    std::optional<std::uint64_t> count;
    if (const std::size_t times = codeText.find('x'); times != std::string_view::npos) {
        std::uint64_t parsed = 0;
        if (!ParseNumber(codeText.substr(times + 1), parsed) || parsed == 0 ||
            parsed > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw std::invalid_argument("bad count in fault rule '" + std::string(text) + "': expected a number from 1");
        }
        count = parsed;
        codeText = codeText.substr(0, times);
    }
    Result::Code code = 0;
    if (!ParseNumber(codeText, code)) {
        throw std::invalid_argument("bad code in fault rule '" + std::string(text) + "': expected an unsigned 32-bit number");
    }
    return FaultRule{*operation, code, count};
}

void FaultInjector::FailNext(Operation operation, Result::Code code, std::uint64_t count) noexcept {
    Slot& slot = SlotOf(operation);
    slot.code.store(code, std::memory_order_relaxed);
    const auto capped = count > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                            ? std::numeric_limits<std::int64_t>::max()
                            : static_cast<std::int64_t>(count);
    slot.remaining.store(capped, std::memory_order_release);
}

void FaultInjector::FailAlways(Operation operation, Result::Code code) noexcept {
    Slot& slot = SlotOf(operation);
    slot.code.store(code, std::memory_order_relaxed);
    slot.remaining.store(-1, std::memory_order_release);
}

void FaultInjector::Apply(const FaultRule& rule) noexcept {
    if (rule.count) {
        FailNext(rule.operation, rule.code, *rule.count);
    } else {
        FailAlways(rule.operation, rule.code);
    }
}

void FaultInjector::Clear(Operation operation) noexcept { SlotOf(operation).remaining.store(0, std::memory_order_release); }

void FaultInjector::ClearAll() noexcept {
    for (Slot& slot : m_slots) slot.remaining.store(0, std::memory_order_release);
}

std::optional<Result::Code> FaultInjector::CheckArmed(Operation operation) noexcept {
    Slot& slot = SlotOf(operation);
    std::int64_t remaining = slot.remaining.load(std::memory_order_acquire);
    while (remaining != 0) {
        if (remaining < 0 ||
            slot.remaining.compare_exchange_weak(remaining, remaining - 1, std::memory_order_acquire)) {
            slot.failures.fetch_add(1, std::memory_order_relaxed);
            return slot.code.load(std::memory_order_relaxed);
        }
    }
    return std::nullopt;
}

std::uint64_t FaultInjector::Calls(Operation operation) const noexcept {
    return m_calls[static_cast<std::size_t>(operation)].load(std::memory_order_relaxed);
}

std::uint64_t FaultInjector::Failures(Operation operation) const noexcept {
    return SlotOf(operation).failures.load(std::memory_order_relaxed);
}

void FaultInjector::ResetCounts() noexcept {
    for (auto& calls : m_calls) calls.store(0, std::memory_order_relaxed);
    for (Slot& slot : m_slots) slot.failures.store(0, std::memory_order_relaxed);
}

}  // namespace KALVO::DevHost
