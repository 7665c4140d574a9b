#include "devhost/EventFilter.h"

#include <string_view>


namespace KALVO::DevHost {

void EventFilter::SetAnswer(std::uint32_t answer) {
    std::lock_guard lock(m_mutex);
    m_answer = answer;
}

std::uint64_t EventFilter::Calls() const {
    std::lock_guard lock(m_mutex);
    return m_calls;
}

std::uint64_t EventFilter::Suppressed() const {
    std::lock_guard lock(m_mutex);
    return m_suppressed;
}

std::uint32_t EventFilter::FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>&,
                                       Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>&, char const* context) {
    std::uint32_t answer = 0;
    try {
        m_contexts.Emplace(context ? std::string_view(context) : std::string_view());
        const std::optional<Result::Code> failure = m_faults->Check(Operation::Filter);
        std::lock_guard lock(m_mutex);
        answer = failure ? *failure : m_answer;
    } catch (...) {
        answer = 0;  // let the event through, as a filter that failed would
    }
    std::lock_guard lock(m_mutex);
    ++m_calls;
    if (answer == IEventFilter::Suppress) ++m_suppressed;
    return answer;
}

}  // namespace KALVO::DevHost
