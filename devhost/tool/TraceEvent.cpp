#include "devhost/tool/TraceEvent.h"

#include <array>

namespace KALVO::DevHost::Tool {

namespace {

constexpr std::array<std::string_view, EventKindCount> Names = {"create", "exists", "terminate", "shell"};

}  // namespace

std::string_view EventKindName(EventKind kind) noexcept { return Names[static_cast<std::size_t>(kind)]; }

std::optional<EventKind> EventKindFromName(std::string_view name) noexcept {
    for (std::size_t index = 0; index < Names.size(); ++index) {
        if (Names[index] == name) return static_cast<EventKind>(index);
    }
    return std::nullopt;
}

}  // namespace KALVO::DevHost::Tool
