// RetainedList<T>: what a host component records (log lines, filter contexts, reported
// events), kept up to a chosen number of the latest entries so that a long-running tool does
// not grow without bound, while tests keep everything. Thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <limits>
#include <mutex>
#include <vector>

namespace KALVO::DevHost {

template <class T>
class RetainedList {
public:
    static constexpr std::size_t Unlimited = std::numeric_limits<std::size_t>::max();

    void Add(T item) {
        std::lock_guard lock(m_mutex);
        ++m_total;
        if (m_limit == 0) return;
        m_items.push_back(std::move(item));
        while (m_items.size() > m_limit) m_items.pop_front();
    }

    // The retained entries, oldest first.
    std::vector<T> Snapshot() const {
        std::lock_guard lock(m_mutex);
        return std::vector<T>(m_items.begin(), m_items.end());
    }

    // Entries ever added since construction or Clear, retained or not.
    std::uint64_t Total() const {
        std::lock_guard lock(m_mutex);
        return m_total;
    }

    // Keeps at most `limit` of the latest entries (0 keeps none).
    void SetLimit(std::size_t limit) {
        std::lock_guard lock(m_mutex);
        m_limit = limit;
        while (m_items.size() > m_limit) m_items.pop_front();
    }

    void Clear() {
        std::deque<T> dropped;  // destroyed outside the lock
        std::lock_guard lock(m_mutex);
        dropped.swap(m_items);
        m_total = 0;
    }

private:
    mutable std::mutex m_mutex;
    std::deque<T> m_items;
    std::size_t m_limit = Unlimited;
    std::uint64_t m_total = 0;
};

}  // namespace KALVO::DevHost
