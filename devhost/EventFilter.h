// EventFilter: the stand-in host's IEventFilter. Answers every event with one settable answer
// (0 lets it through, 1 suppresses; an injected Filter fault's code takes its place), records
// the contexts it receives and counts the events it suppressed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/RetainedList.h"
#include "devhost/TrackedObject.h"
#include "host/IEventFilter.h"
#include "host/IObject.h"

namespace KALVO::DevHost {

class EventFilter : public ESP::v0::IEventFilter {
public:
    static constexpr char const* Kind = "EventFilter";

    explicit EventFilter(std::shared_ptr<FaultInjector> faults) : m_faults(std::move(faults)) {}

    // The answer to every event; 0 (let through) by default.
    void SetAnswer(std::uint32_t answer);

    // The context texts received, oldest first.
    std::vector<std::string> Contexts() const { return m_contexts.Snapshot(); }
    void SetRetention(std::size_t limit) { m_contexts.SetLimit(limit); }
    std::uint64_t Calls() const;
    // Calls answered 1.
    std::uint64_t Suppressed() const;

    // Only IObject: IEventFilter is found as a service and has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<ESP::v0::IEventFilter>(this, id, out);
    }

    // IEventFilter
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    // Any event thread, concurrently. Recording a context that fails for memory lets it through.
    std::uint32_t FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& actor,
                              Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& target, char const* context) override;

protected:
    ~EventFilter() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    RetainedList<std::string> m_contexts;
    mutable std::mutex m_mutex;  // guards the three below
    std::uint32_t m_answer = 0;
    std::uint64_t m_calls = 0;
    std::uint64_t m_suppressed = 0;
};

}  // namespace KALVO::DevHost
