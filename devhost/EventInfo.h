// EventInfo: the stand-in host's record of one delivered ESP event (IEventInfo). The sensor
// does not consult it; it exists so monitors receive a real, accounted-for object.
#pragma once

#include <cstdint>

#include "devhost/TrackedObject.h"
#include "host/IEventInfo.h"

namespace KALVO::DevHost {

enum class EventKind : std::uint32_t {
    ProcessCreate,
    ProcessCreateInstant,
    ProcessExists,
    ProcessTerminate,
    ProcessTerminateInstant,
    ShellCommand,
};

class EventInfo : public ESP::v0::IEventInfo {
public:
    static constexpr char const* Kind = "EventInfo";

    EventInfo(EventKind kind, std::uint64_t sequence) noexcept : m_kind(kind), m_sequence(sequence) {}

    EventKind Event() const noexcept { return m_kind; }
    std::uint64_t Sequence() const noexcept { return m_sequence; }

    // IObject only: IEventInfo has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<ESP::v0::IEventInfo>(this, id, out);
    }

protected:
    ~EventInfo() = default;

private:
    const EventKind m_kind;
    const std::uint64_t m_sequence;
};

}  // namespace KALVO::DevHost
