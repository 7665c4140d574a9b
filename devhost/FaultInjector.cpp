#include "devhost/FaultInjector.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>
#include <string>
#include <system_error>

namespace KALVO::DevHost {

namespace {

// In enum order: an operation's name is found by its number.
constexpr std::string_view Names[] = {
    "GetInterface:IObject",       "GetInterface:IServiceProvider",    "GetInterface:IConfiguration",
    "GetInterface:IStorage",      "GetInterface:IMessageRouter",      "GetInterface:ILogSink",
    "GetService:IReportingService", "GetService:IMonitorRegistration", "GetService:IEventFilter",
    "GetData",                    "GetValue",                         "SetValue",
    "Log",                        "RegisterCommandHandler",           "UnregisterCommandHandler",
    "CreateSecurityEvent",        "ReportSecurityEvent",              "CreateObservation",
    "AddObservable",              "RegisterProcessMonitor",           "UnregisterProcessMonitor",
    "RegisterShellMonitor",       "UnregisterShellMonitor",           "Filter",
    "ProcessGetInterface:IObject", "ProcessGetInterface:IValues",
};
static_assert(std::size(Names) == OperationCount, "every operation needs a name");

constexpr auto All = [] {
    std::array<Operation, OperationCount> all{};
    for (std::size_t i = 0; i < OperationCount; ++i) all[i] = static_cast<Operation>(i);
    return all;
}();

template <class Number>
bool ParseNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return !text.empty() && error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::span<const Operation> AllOperations() noexcept { return All; }

std::string_view OperationName(Operation operation) noexcept {
    const auto index = static_cast<std::size_t>(operation);
    return index < OperationCount ? Names[index] : std::string_view("?");
}

FaultRule ParseFaultRule(std::string_view text) {
    const std::size_t equals = text.rfind('=');
    if (equals == std::string_view::npos) {
        throw std::invalid_argument("fault rule '" + std::string(text) + "' is not of the form Operation=code[xN]");
    }
    const std::string_view name = text.substr(0, equals);
    const auto* found = std::find(std::begin(Names), std::end(Names), name);
    if (found == std::end(Names)) {
        std::string known;
        for (const std::string_view each : Names) known.append(known.empty() ? "" : ", ").append(each);
        throw std::invalid_argument("unknown operation '" + std::string(name) + "' in fault rule; known: " + known);
    }
    std::string_view codeText = text.substr(equals + 1);
    std::optional<std::uint64_t> count;
    if (const std::size_t times = codeText.find('x'); times != std::string_view::npos) {
        std::uint64_t parsed = 0;
        if (!ParseNumber(codeText.substr(times + 1), parsed) || parsed == 0) {
            throw std::invalid_argument("bad count in fault rule '" + std::string(text) + "': expected a number from 1");
        }
        count = parsed;
        codeText = codeText.substr(0, times);
    }
    Result::Code code = 0;
    if (!ParseNumber(codeText, code)) {
        throw std::invalid_argument("bad code in fault rule '" + std::string(text) + "': expected an unsigned 32-bit number");
    }
    return FaultRule{static_cast<Operation>(found - std::begin(Names)), code, count};
}

void FaultInjector::Apply(const FaultRule& rule) noexcept {
    std::lock_guard lock(m_mutex);
    Slot& slot = m_slots[static_cast<std::size_t>(rule.operation)];
    slot.code = rule.code;
    slot.remaining = rule.count;
}

void FaultInjector::ClearAll() noexcept {
    std::lock_guard lock(m_mutex);
    for (Slot& slot : m_slots) slot.remaining = 0;
}

std::optional<Result::Code> FaultInjector::Check(Operation operation) noexcept {
    std::lock_guard lock(m_mutex);
    Slot& slot = m_slots[static_cast<std::size_t>(operation)];
    ++slot.calls;
    if (slot.remaining == std::uint64_t{0}) return std::nullopt;
    if (slot.remaining) --*slot.remaining;
    ++slot.failures;
    return slot.code;
}

std::uint64_t FaultInjector::Calls(Operation operation) const noexcept {
    std::lock_guard lock(m_mutex);
    return m_slots[static_cast<std::size_t>(operation)].calls;
}

std::uint64_t FaultInjector::Failures(Operation operation) const noexcept {
    std::lock_guard lock(m_mutex);
    return m_slots[static_cast<std::size_t>(operation)].failures;
}

void FaultInjector::ResetCounts() noexcept {
    std::lock_guard lock(m_mutex);
    for (Slot& slot : m_slots) slot.calls = slot.failures = 0;
}

}  // namespace KALVO::DevHost
