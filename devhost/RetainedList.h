// RetainedList<T>: what a host component records (log lines, filter contexts, reported
// events), kept up to a chosen number of the latest entries so that a long-running tool does
// not grow without bound, while tests keep everything. Thread-safe; with a limit of 0 an
// entry is only counted, per thread, so that a host that keeps nothing shares no lock.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

#include "devhost/ShardedCounters.h"

namespace KALVO::DevHost {

template <class T>
class RetainedList {
public:
    static constexpr std::size_t Unlimited = std::numeric_limits<std::size_t>::max();

    void Add(T item) { Emplace(std::move(item)); }

    // Adds an entry made of `args`, which is not made at all when nothing is retained.
    template <class... Args>
    void Emplace(Args&&... args) {
        // Relaxed: a limit set while entries are added applies from some entry on.
        if (m_limit.load(std::memory_order_relaxed) == 0) {
            m_unretained.Add(0);
            return;
        }
        std::lock_guard lock(m_mutex);
        ++m_total;
        const std::size_t limit = m_limit.load(std::memory_order_relaxed);
        if (limit == 0) return;
        m_items.emplace_back(std::forward<Args>(args)...);
        while (m_items.size() > limit) m_items.pop_front();
    }

    // The retained entries, oldest first.
    std::vector<T> Snapshot() const {
        std::lock_guard lock(m_mutex);
        return std::vector<T>(m_items.begin(), m_items.end());
    }

    // Entries ever added since construction or Clear, retained or not. Exact when no entry
    // is being added while nothing is retained.
    std::uint64_t Total() const {
        std::lock_guard lock(m_mutex);
        return m_total + m_unretained.Read(0);
    }

    // Keeps at most `limit` of the latest entries (0 keeps none).
    void SetLimit(std::size_t limit) {
        std::lock_guard lock(m_mutex);
        m_limit.store(limit, std::memory_order_relaxed);
        while (m_items.size() > limit) m_items.pop_front();
    }

    // Entries added while nothing is retained may be counted again if added during the call.
    void Clear() {
        std::deque<T> dropped;  // destroyed outside the lock
        std::lock_guard lock(m_mutex);
        dropped.swap(m_items);
        m_total = 0;
        m_unretained.Reset();
    }

private:
    mutable std::mutex m_mutex;
    std::deque<T> m_items;
    std::atomic<std::size_t> m_limit{Unlimited};  // written under m_mutex
    std::uint64_t m_total = 0;                    // entries added while retaining; guarded by m_mutex
    ShardedCounters<1> m_unretained;              // entries added while nothing was retained
};

}  // namespace KALVO::DevHost
