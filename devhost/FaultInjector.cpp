#include "devhost/FaultInjector.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

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

// The number after `separator` at the end of `text` (cut off from it), or `absent` when there is
// none. A number below `min` is refused as `what`.
template <class Number>
Number TakeNumber(std::string_view rule, std::string_view& text, char const* separator, Number absent, Number min,
                  char const* what) {
    const std::size_t at = separator ? text.find(*separator) : 0;
    if (at == std::string_view::npos) return absent;
    const std::string_view digits = text.substr(separator ? at + 1 : 0);
    Number number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() || number < min) {
        throw std::invalid_argument(fmt::format("bad {} in fault rule '{}': expected {}", what, rule,
                                                min == 0 ? "an unsigned 32-bit number" : "a number from 1"));
    }
    text = text.substr(0, at);
    return number;
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
        throw std::invalid_argument(fmt::format("fault rule '{}' is not of the form Operation=code[xN][@M]", text));
    }
    const std::string_view name = text.substr(0, equals);
    const auto* found = std::find(std::begin(Names), std::end(Names), name);
    if (found == std::end(Names)) {
        throw std::invalid_argument(fmt::format("unknown operation '{}' in fault rule; known: {}", name, fmt::join(Names, ", ")));
    }
    std::string_view rest = text.substr(equals + 1);
    const auto start = TakeNumber<std::uint64_t>(text, rest, "@", 0, 1, "start");
    // No count: every call, or once from the start given.
    const auto count = TakeNumber<std::uint64_t>(text, rest, "x", start != 0 ? 1 : 0, 1, "count");
    const auto code = TakeNumber<Result::Code>(text, rest, nullptr, 0, 0, "code");
    return FaultRule{static_cast<Operation>(found - std::begin(Names)), code,
                     count == 0 ? std::nullopt : std::optional<std::uint64_t>(count), start == 0 ? 0 : start - 1};
}

}  // namespace KALVO::DevHost
