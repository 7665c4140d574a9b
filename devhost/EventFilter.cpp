#include "devhost/EventFilter.h"

#include <utility>

#include "devhost/ProcessInfo.h"
#include "devhost/TrackedObject.h"

namespace KALVO::DevHost {

namespace {

const ProcessRecord* RecordOf(Agent::Hosting::IObject* object) noexcept {
    const ProcessInfo* process = HostObjectCast<ProcessInfo>(object);
    return process ? &process->Record() : nullptr;
}

}  // namespace

EventFilter::EventFilter(std::shared_ptr<FaultInjector> faults) : m_faults(std::move(faults)) {}

void EventFilter::UpdateConsult() { m_consult.store(!m_queue.empty() || m_rule, std::memory_order_relaxed); }

void EventFilter::SetAnswer(std::uint32_t answer) { m_answer.store(answer, std::memory_order_relaxed); }

void EventFilter::QueueAnswers(std::vector<std::uint32_t> answers) {
    std::lock_guard lock(m_mutex);
    m_queue.insert(m_queue.end(), answers.begin(), answers.end());
    UpdateConsult();
}

void EventFilter::SetRule(Rule rule) {
    auto shared = rule ? std::make_shared<const Rule>(std::move(rule)) : nullptr;
    std::lock_guard lock(m_mutex);
    m_rule = std::move(shared);
    UpdateConsult();
}

std::vector<std::string> EventFilter::Contexts() const { return m_contexts.Snapshot(); }

void EventFilter::SetRetention(std::size_t limit) { m_contexts.SetLimit(limit); }

std::uint64_t EventFilter::Calls() const noexcept { return m_counts[CallCount].load(std::memory_order_relaxed); }

std::uint64_t EventFilter::Suppressed() const noexcept {
    return m_counts[SuppressedCount].load(std::memory_order_relaxed);
}

void EventFilter::ClearRecords() {
    m_contexts.Clear();
    for (auto& count : m_counts) count.store(0, std::memory_order_relaxed);
}

Result::Code EventFilter::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<ESP::v0::IEventFilter>(this, id, out);
}

std::uint32_t EventFilter::FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& actor,
                                       Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& target, char const* context) {
    m_counts[CallCount].fetch_add(1, std::memory_order_relaxed);
    std::uint32_t answer = 0;
    try {
        const std::string_view contextText = context ? std::string_view(context) : std::string_view();
        m_contexts.Emplace(contextText);
        if (const auto failure = m_faults->Check(Operation::Filter)) {
            answer = *failure;
        } else if (!m_consult.load(std::memory_order_relaxed)) {
            answer = m_answer.load(std::memory_order_relaxed);
        } else {
            std::shared_ptr<const Rule> rule;
            bool queued = false;
            {
                std::lock_guard lock(m_mutex);
                if (!m_queue.empty()) {
                    answer = m_queue.front();
                    m_queue.pop_front();
                    queued = true;
                    UpdateConsult();
                } else {
                    answer = m_answer.load(std::memory_order_relaxed);
                    rule = m_rule;
                }
            }
            if (!queued && rule) {
                const FilterRequest request{actor.Get(), target.Get(), RecordOf(actor.Get()), RecordOf(target.Get()),
                                            contextText};
                answer = (*rule)(request);
            }
        }
    } catch (...) {
        answer = 0;  // let the event through, as a filter that failed would
    }
    if (answer == IEventFilter::Suppress) m_counts[SuppressedCount].fetch_add(1, std::memory_order_relaxed);
    return answer;
}

}  // namespace KALVO::DevHost
