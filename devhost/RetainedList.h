// RetainedList<T>: what a host component records (log lines, filter contexts, reported
// events), kept up to a chosen number of the latest entries so that a long-running tool does
// not grow without bound, while tests keep everything. Thread-safe (one mutex).
#pragma once

#include <cstddef>
#include <deque>
#include <limits>
#include <mutex>
#include <utility>
#include <vector>

namespace KALVO::DevHost {

template <class T>
class RetainedList {
public:
    // Adds an entry made of `args`, which is not made at all when nothing is retained.
    template <class... Args>
    void Emplace(Args&&... args) {
        std::lock_guard lock(m_mutex);
        if (m_limit == 0) return;
        m_items.emplace_back(std::forward<Args>(args)...);
        while (m_items.size() > m_limit) m_items.pop_front();
    }

    // The retained entries, oldest first.
    std::vector<T> Snapshot() const {
        std::lock_guard lock(m_mutex);
        return std::vector<T>(m_items.begin(), m_items.end());
    }

    // Keeps at most `limit` of the latest entries (0 keeps none); unlimited by default.
    void SetLimit(std::size_t limit) {
        std::lock_guard lock(m_mutex);
        m_limit = limit;
        while (m_items.size() > limit) m_items.pop_front();
    }

    void Clear() {
        std::deque<T> dropped;  // destroyed outside the lock
        std::lock_guard lock(m_mutex);
        dropped.swap(m_items);
    }

private:
    mutable std::mutex m_mutex;  // guards both below
    std::deque<T> m_items;
    std::size_t m_limit = std::numeric_limits<std::size_t>::max();
};

}  // namespace KALVO::DevHost
