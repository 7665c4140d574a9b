// LRUCache: a thread-safe, fixed-capacity map with least-recently-used eviction, used to count
// how often the same happening recurs (a key per normalised process-tree step or command).
//
// All Capacity slots live in an array inside the object, threaded into a circular doubly
// linked recency list by index, so touching or evicting an entry never allocates; only the
// index map's nodes and long keys do, and the map is sized for the full capacity up front.
#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <unordered_map>
#include <utility>

#include "eil/core/LockSpinningFirst.h"

namespace KALVO::EIL::Core {

// Every operation changes the recency order, so the mutex is always taken exclusively. Get and
// Update lock it themselves; InsertData relies on its caller's lock (taken through Mutex()), so
// a caller's Get followed by InsertData is two critical sections and may race with another
// thread inserting the same key: both then see it as new. The callers accept that.
//
// Failures: copying a key or growing the map may throw std::bad_alloc to the caller; the cache
// stays consistent (at worst the least recently used entry has been evicted).
template <class Key, class Value, std::size_t Capacity>
class LRUCache {
    static_assert(Capacity > 0, "a cache holds at least one entry");

public:
    LRUCache() {
        for (std::size_t i = 0; i < Capacity; ++i) {
            m_slots[i].next = (i + 1) % Capacity;
            m_slots[i].prev = (i + Capacity - 1) % Capacity;
        }
        m_index.max_load_factor(1.0F);
        m_index.reserve(Capacity);
    }

    LRUCache(const LRUCache&) = delete;  // owns a mutex and self-referencing indices; not needed
    LRUCache& operator=(const LRUCache&) = delete;

    // The lock a caller of InsertData must hold (exclusively).
    std::shared_mutex& Mutex() noexcept { return m_mutex; }

    // On a hit copies the value into `value`, makes the key the most recently used and returns
    // true; on a miss returns false and leaves `value` alone.
    bool Get(const Key& key, Value& value) {
        const auto lock = LockSpinningFirst(m_mutex);
        const auto found = m_index.find(key);
        if (found == m_index.end()) return false;
        value = m_slots[found->second].value;
        MoveToFront(found->second);
        return true;
    }

    // Stores `value` under `key` and makes it the most recently used, inserting it (and evicting
    // the least recently used entry when full) if absent. Returns the key's slot index.
    std::size_t Update(const Key& key, const Value& value) {
        const auto lock = LockSpinningFirst(m_mutex);
        const auto found = m_index.find(key);
        if (found == m_index.end()) return InsertData(lock, key, value, nullptr);
        Slot& slot = m_slots[found->second];
        slot.value = value;
        slot.used = true;
        MoveToFront(found->second);
        return found->second;
    }

    // Inserts `key` with `value` as the most recently used entry if it is absent, evicting the
    // least recently used entry when the cache is full (silently). A present key is left as it
    // is, value and recency alike, and its value is copied into `existing` when that is not
    // null. Returns the key's slot index. `lock` must hold Mutex(); it is only the proof of that.
    std::size_t InsertData(const std::lock_guard<std::shared_mutex>& lock, const Key& key, const Value& value,
                           std::optional<Value>* existing) {
        (void)lock;
        if (const auto found = m_index.find(key); found != m_index.end()) {
            if (existing) *existing = m_slots[found->second].value;
            return found->second;
        }

        // The tail is the least recently used entry or a slot never used yet: slots are taken
        // from the highest index down. The new key is copied first, so a bad_alloc there changes
        // nothing; after the eviction the slot is marked unused until the map holds the new key.
        const std::size_t target = m_tail;
        Slot& slot = m_slots[target];
        Key copy(key);
        if (slot.used) {
            m_index.erase(slot.key);
            slot.used = false;
        }
        slot.value = value;
        m_index.emplace(key, target);
        slot.key = std::move(copy);
        slot.used = true;
        MoveToFront(target);
        return target;
    }

private:
    struct Slot {
        Value value{};
        Key key{};
        std::size_t next = 0;  // one step less recently used; the tail's wraps to the head
        std::size_t prev = 0;  // one step more recently used; the head's wraps to the tail
        bool used = false;
    };

    void MoveToFront(std::size_t s) noexcept {
        if (s == m_head) return;
        Slot& slot = m_slots[s];
        const std::size_t oldHead = m_head;
        if (s == m_tail) {
            // Rotating the ring by one: the tail's predecessor becomes the tail.
            const std::size_t newTail = slot.prev;
            m_slots[newTail].next = s;
            m_slots[oldHead].prev = s;
            slot.next = oldHead;
            slot.prev = newTail;
            m_head = s;
            m_tail = newTail;
            return;
        }
        m_slots[slot.prev].next = slot.next;
        m_slots[slot.next].prev = slot.prev;
        slot.next = oldHead;
        slot.prev = m_slots[oldHead].prev;
        m_slots[oldHead].prev = s;
        // Nothing reads the tail's next before it is rewritten, but keeping the ring whole
        // costs one store and lets the list be walked in either direction at any time.
        m_slots[m_tail].next = s;
        m_head = s;
    }

    std::shared_mutex m_mutex;
    std::unordered_map<Key, std::size_t> m_index;  // exactly the keys of the used slots
    std::array<Slot, Capacity> m_slots;
    std::size_t m_head = 0;             // the most recently used slot
    std::size_t m_tail = Capacity - 1;  // the least recently used slot, the next to be reused
};

}  // namespace KALVO::EIL::Core
