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
    std::optional<Result::Code> failure;
    try {
        m_contexts.Emplace(context ? std::string_view(context) : std::string_view());
        failure = m_faults->Check(Operation::Filter);
    } catch (...) {
        failure = 0;  // let the event through, as a filter that failed would
    }
    std::lock_guard lock(m_mutex);
    const std::uint32_t answer = failure ? *failure : m_answer;
    ++m_calls;
    if (answer == IEventFilter::Suppress) ++m_suppressed;
    return answer;
}

}  // namespace KALVO::DevHost
