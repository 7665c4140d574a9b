// EventFilter: the stand-in host's IEventFilter. Answers from a script (a queue of answers,
// then a fixed answer) or from a rule that sees the actor, the target and the context; records
// the contexts it receives and counts the events it suppressed (answered 1). With neither a
// queue nor a rule, and no contexts retained, an answer reads only what the setters write.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/ProcessRecord.h"
#include "devhost/RetainedList.h"
#include "host/IEventFilter.h"
#include "host/IObject.h"

namespace KALVO::DevHost {

// What a rule sees of one FilterEvent call; everything is borrowed for the call.
struct FilterRequest {
    Agent::Hosting::IObject* actor = nullptr;
    Agent::Hosting::IObject* target = nullptr;
    const ProcessRecord* actorProcess = nullptr;   // when the actor is this host's process record
    const ProcessRecord* targetProcess = nullptr;  // likewise for the target
    std::string_view context;                      // empty when the context was null
};

class EventFilter : public ESP::v0::IEventFilter {
public:
    static constexpr char const* Kind = "EventFilter";

    using Rule = std::function<std::uint32_t(const FilterRequest&)>;

    explicit EventFilter(std::shared_ptr<FaultInjector> faults);

    // The answer when no queued answer and no rule applies; 0 (let through) by default.
    void SetAnswer(std::uint32_t answer);
    // Answers used one per call, before anything else, in order.
    void QueueAnswers(std::vector<std::uint32_t> answers);
    // A rule consulted when the queue is empty (empty removes it). Runs on the calling thread,
    // without the filter's lock; it must be thread-safe and must not throw (a throw answers 0).
    void SetRule(Rule rule);

    // The context texts received, oldest first.
    std::vector<std::string> Contexts() const;
    void SetRetention(std::size_t limit);
    std::uint64_t Calls() const noexcept;
    // Calls answered 1.
    std::uint64_t Suppressed() const noexcept;
    // Forgets contexts and counts (not the answers or the rule).
    void ClearRecords();

    // Only IObject: IEventFilter is found as a service and has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

    // IEventFilter
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    // Any event thread, concurrently. An injected failure's code is the answer.
    std::uint32_t FilterEvent(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& actor,
                              Agent::Hosting::ObjectPtr<Agent::Hosting::IObject>& target, char const* context) override;

protected:
    ~EventFilter() = default;

private:
    enum Count : std::size_t { CallCount, SuppressedCount, CountKinds };

    // Whether an answer must look at the queue or the rule, under m_mutex. Written under it.
    void UpdateConsult();

    std::shared_ptr<FaultInjector> m_faults;
    RetainedList<std::string> m_contexts;
    std::array<std::atomic<std::uint64_t>, CountKinds> m_counts{};  // relaxed: counts only
    // Relaxed loads: each is a setting on its own, and FilterEvent rechecks under m_mutex
    // when m_consult is set.
    std::atomic<std::uint32_t> m_answer{0};
    std::atomic<bool> m_consult{false};  // the queue is not empty or a rule is set
    mutable std::mutex m_mutex;          // guards the queue and the rule
    std::deque<std::uint32_t> m_queue;
    std::shared_ptr<const Rule> m_rule;
};

}  // namespace KALVO::DevHost
