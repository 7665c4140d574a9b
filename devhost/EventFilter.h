// EventFilter: the stand-in host's IEventFilter. Lets every event through (answer 0) unless
// a Filter fault is injected, whose code is then the answer (1 suppresses); records the
// contexts it receives and counts the events it suppressed.
#pragma once

#include "devhost/FaultInjector.h"
#include "devhost/RetainedList.h"
#include "devhost/TrackedObject.h"
#include "host/IEventFilter.h"

namespace KALVO::DevHost {

class EventFilter : public ObjectOnly<ESP::v0::IEventFilter> {
public:
    static constexpr char const* Kind = "EventFilter";

    explicit EventFilter(std::shared_ptr<FaultInjector> faults) : m_faults(std::move(faults)) {}

    // The context texts received, oldest first.
    std::vector<std::string> Contexts() const { return m_contexts.Snapshot(); }
    // Contexts are recorded by default; false records none (and drops those recorded).
    void SetRetention(bool keep) { m_contexts.SetKeep(keep); }
    // Calls answered 1.
    std::uint64_t Suppressed() const { return m_suppressed; }

    // IEventFilter
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    // Any event thread, concurrently. Recording a context that fails for memory lets it through.
    std::uint32_t FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>&,
                              Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>&, char const* context) override {
        try {
            m_contexts.Emplace(context ? std::string_view(context) : std::string_view());
        } catch (...) {
            return 0;  // let the event through, as a filter that failed would
        }
        const std::uint32_t answer = m_faults->Check(Operation::Filter).value_or(0);
        if (answer == IEventFilter::Suppress) ++m_suppressed;
        return answer;
    }

private:
    std::shared_ptr<FaultInjector> m_faults;
    RetainedList<std::string> m_contexts;
    std::atomic<std::uint64_t> m_suppressed{0};
};

}  // namespace KALVO::DevHost
