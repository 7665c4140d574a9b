// RetainedList<T>: what a host component records (log lines, filter contexts, reported
// events), kept for tests to inspect; a long-running tool turns keeping off so that it does
// not grow without bound. Thread-safe (one mutex).
#pragma once

#include <mutex>
#include <utility>
#include <vector>

namespace KALVO::DevHost {

template <class T>
class RetainedList {
public:
    // Adds an entry made of `args`, which is not made at all when nothing is kept.
    template <class... Args>
    void Emplace(Args&&... args) {
        std::lock_guard lock(m_mutex);
        if (m_keep) m_items.emplace_back(std::forward<Args>(args)...);
    }

    // The entries kept, oldest first.
    std::vector<T> Snapshot() const {
        std::lock_guard lock(m_mutex);
        return m_items;
    }

    // Keeps the entries added from now on (the default), or none; false drops those kept.
    void SetKeep(bool keep) {
        std::vector<T> dropped;  // destroyed outside the lock
        std::lock_guard lock(m_mutex);
        m_keep = keep;
        if (!keep) dropped.swap(m_items);
    }

    void Clear() {
        std::vector<T> dropped;  // destroyed outside the lock
        std::lock_guard lock(m_mutex);
        dropped.swap(m_items);
    }

private:
    mutable std::mutex m_mutex;  // guards both below
    std::vector<T> m_items;
    bool m_keep = true;
};

}  // namespace KALVO::DevHost
