#include "eil/core/LRUCache.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <list>
#include <mutex>
#include <new>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace KALVO::EIL::Core {

// Reads the slot ring the way a debugger would, to check its invariants from outside.
template <class Key, class Value, std::size_t Capacity>
struct LRUCacheTestPeer<LRUCache<Key, Value, Capacity>> {
    using Cache = LRUCache<Key, Value, Capacity>;

    // Checks that the ring, the index map and the used flags agree (failing the test if not),
    // then calls `visit` with the key of each live entry from most to least recently used.
    template <class Visit>
    static void VisitCheckedRecencyOrder(const Cache& cache, Visit&& visit) {
        ASSERT_LT(cache.m_head, Capacity);
        ASSERT_LT(cache.m_tail, Capacity);
        ASSERT_EQ(cache.m_slots[cache.m_head].prev, cache.m_tail) << "the head's prev must wrap to the tail";
        ASSERT_EQ(cache.m_slots[cache.m_tail].next, cache.m_head) << "the tail's next must wrap to the head";
        std::array<bool, Capacity> seen{};
        std::size_t slot = cache.m_head;
        std::size_t used = 0;
        for (std::size_t step = 0; step < Capacity; ++step) {
            ASSERT_LT(slot, Capacity);
            ASSERT_FALSE(seen[slot]) << "slot " << slot << " visited twice";
            seen[slot] = true;
            const auto& s = cache.m_slots[slot];
            ASSERT_LT(s.next, Capacity);
            ASSERT_EQ(cache.m_slots[s.next].prev, slot) << "broken back link at slot " << slot;
            if (s.used) {
                ASSERT_EQ(used, step) << "a used slot behind an unused one: slot " << slot;
                const auto found = cache.m_index.find(s.key);
                ASSERT_NE(found, cache.m_index.end()) << "used slot " << slot << " missing from the index";
                ASSERT_EQ(found->second, slot);
                ++used;
            }
            if (step + 1 < Capacity) slot = s.next;
        }
        ASSERT_EQ(slot, cache.m_tail) << "the walk from the head must end at the tail";
        ASSERT_EQ(cache.m_index.size(), used) << "the index holds keys of unused slots";
        slot = cache.m_head;
        for (std::size_t i = 0; i < used; ++i, slot = cache.m_slots[slot].next) visit(cache.m_slots[slot].key);
    }

    static std::vector<Key> CheckedRecencyOrder(const Cache& cache) {
        std::vector<Key> keys;
        VisitCheckedRecencyOrder(cache, [&keys](const Key& key) { keys.push_back(key); });
        return keys;
    }

};

namespace {

template <class Cache>
auto RecencyOrder(const Cache& cache) {
    return LRUCacheTestPeer<Cache>::CheckedRecencyOrder(cache);
}

template <class Key, class Value, std::size_t Capacity>
std::size_t Insert(LRUCache<Key, Value, Capacity>& cache, const Key& key, const Value& value,
                   std::optional<Value>* existing = nullptr) {
    const std::lock_guard<std::shared_mutex> lock(cache.Mutex());
    return cache.InsertData(lock, key, value, existing);
}

using Strings = std::vector<std::string>;
using SmallCache = LRUCache<std::string, unsigned, 4>;

TEST(LRUCache, FillsSlotsFromTheHighestIndexDown) {
    SmallCache cache;
    unsigned value = 42;
    EXPECT_FALSE(cache.Get("a", value));
    EXPECT_EQ(value, 42U);
    EXPECT_EQ(Insert(cache, std::string("a"), 1U), 3U);
    EXPECT_EQ(Insert(cache, std::string("b"), 2U), 2U);
    EXPECT_EQ(cache.Update("c", 3U), 1U);
    EXPECT_EQ(RecencyOrder(cache), (Strings{"c", "b", "a"}));
}

// Each case starts from a full cache holding a (least recent), b, c, d (most recent), touches
// one key and inserts a new one, which evicts the least recently used entry.
TEST(LRUCache, EvictsTheLeastRecentlyUsedEntryWhenFull) {
    enum class Touch { None, Get, Update, InsertPresent };
    const struct {
        Touch touch;
        const char* key;
        Strings afterInsertingE;
        const char* evicted;
    } cases[] = {
        {Touch::None, "", {"e", "d", "c", "b"}, "a"},
        {Touch::Get, "a", {"e", "a", "d", "c"}, "b"},
        {Touch::Get, "c", {"e", "c", "d", "b"}, "a"},
        {Touch::Get, "d", {"e", "d", "c", "b"}, "a"},
        {Touch::Get, "missing", {"e", "d", "c", "b"}, "a"},
        {Touch::Update, "a", {"e", "a", "d", "c"}, "b"},
        {Touch::Update, "b", {"e", "b", "d", "c"}, "a"},
        {Touch::InsertPresent, "a", {"e", "d", "c", "b"}, "a"},  // InsertData leaves a present key's place alone
    };
    for (const auto& c : cases) {
        SmallCache cache;
        for (const char* key : {"a", "b", "c", "d"}) Insert(cache, std::string(key), 1U);
        unsigned value = 0;
        if (c.touch == Touch::Get) cache.Get(c.key, value);
        if (c.touch == Touch::Update) cache.Update(c.key, 2U);
        if (c.touch == Touch::InsertPresent) Insert(cache, std::string(c.key), 2U);
        Insert(cache, std::string("e"), 1U);
        EXPECT_EQ(RecencyOrder(cache), c.afterInsertingE) << "touched " << c.key;
        EXPECT_FALSE(cache.Get(c.evicted, value)) << "touched " << c.key;
    }
}

// The obvious model: a list in recency order and a map into it.
template <class Key, class Value>
class ReferenceLRU {
public:
    explicit ReferenceLRU(std::size_t capacity) : m_capacity(capacity) {}

    std::optional<Value> Get(const Key& key) {
        const auto found = m_index.find(key);
        if (found == m_index.end()) return std::nullopt;
        m_order.splice(m_order.begin(), m_order, found->second);
        return found->second->second;
    }

    void Update(const Key& key, const Value& value) {
        const auto found = m_index.find(key);
        if (found == m_index.end()) return (void)Insert(key, value);
        found->second->second = value;
        m_order.splice(m_order.begin(), m_order, found->second);
    }

    std::optional<Value> Insert(const Key& key, const Value& value) {
        const auto found = m_index.find(key);
        if (found != m_index.end()) return found->second->second;
        if (m_order.size() == m_capacity) {
            m_index.erase(m_order.back().first);
            m_order.pop_back();
        }
        m_order.emplace_front(key, value);
        m_index[key] = m_order.begin();
        return std::nullopt;
    }

    // Whether `cache` holds the same keys in the same recency order, compared without copies.
    template <class Cache>
    bool SameOrderAs(const Cache& cache) const {
        auto expected = m_order.begin();
        bool same = true;
        LRUCacheTestPeer<Cache>::VisitCheckedRecencyOrder(cache, [&](const Key& key) {
            if (expected == m_order.end() || expected->first != key) {
                same = false;
            } else {
                ++expected;
            }
        });
        return same && expected == m_order.end();
    }

private:
    std::size_t m_capacity;
    std::list<std::pair<Key, Value>> m_order;
    std::unordered_map<Key, typename std::list<std::pair<Key, Value>>::iterator> m_index;
};

// Random Get/Update/InsertData against the model, with a key space about twice the capacity so
// hits, misses and evictions all occur often. Long keys make every key copy allocate.
template <std::size_t Capacity>
void CompareWithReference(int operations, unsigned seed) {
    LRUCache<std::string, unsigned, Capacity> cache;
    ReferenceLRU<std::string, unsigned> reference(Capacity);
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> anyKey(0, 2 * Capacity + 1);
    std::uniform_int_distribution<int> anyOperation(0, 2);
    const std::string prefix(40, 'k');
    for (int step = 0; step < operations; ++step) {
        const std::string key = prefix + std::to_string(anyKey(random));
        const unsigned value = static_cast<unsigned>(step);
        switch (anyOperation(random)) {
            case 0: {
                unsigned got = 12345;
                const std::optional<unsigned> expected = reference.Get(key);
                ASSERT_EQ(cache.Get(key, got), expected.has_value()) << "step " << step;
                ASSERT_EQ(got, expected.value_or(12345)) << "step " << step;
                break;
            }
            case 1: {
                const std::size_t slot = cache.Update(key, value);
                reference.Update(key, value);
                ASSERT_LT(slot, Capacity);
                break;
            }
            default: {
                std::optional<unsigned> existing;
                const std::size_t slot = Insert(cache, key, value, &existing);
                ASSERT_EQ(existing, reference.Insert(key, value)) << "step " << step;
                ASSERT_LT(slot, Capacity);
                break;
            }
        }
        ASSERT_TRUE(reference.SameOrderAs(cache)) << "step " << step << " capacity " << Capacity;
        if (::testing::Test::HasFatalFailure()) return;
    }
}

#ifdef KALVO_SANITIZED
constexpr int RandomOperations = 50000;
#else
constexpr int RandomOperations = 1000000;
#endif

TEST(LRUCache, BehavesLikeAListBasedReference) {
    CompareWithReference<8>(RandomOperations, 1);
    CompareWithReference<1>(RandomOperations / 20, 2);
    CompareWithReference<2>(RandomOperations / 20, 3);
    CompareWithReference<3>(RandomOperations / 20, 4);
}

// A key whose copies can be made to fail, to check that a failed insert leaves the cache whole.
struct FragileKey {
    static inline int copiesUntilFailure = -1;  // -1: never fail

    explicit FragileKey(int id = 0) : id(id) {}
    FragileKey(const FragileKey& other) : id(other.id) {
        if (copiesUntilFailure >= 0 && copiesUntilFailure-- == 0) throw std::bad_alloc();
    }
    FragileKey(FragileKey&&) noexcept = default;
    FragileKey& operator=(FragileKey&&) noexcept = default;
    friend bool operator==(const FragileKey& a, const FragileKey& b) { return a.id == b.id; }

    int id;
};

}  // namespace
}  // namespace KALVO::EIL::Core

template <>
struct std::hash<KALVO::EIL::Core::FragileKey> {
    std::size_t operator()(const KALVO::EIL::Core::FragileKey& key) const noexcept { return std::hash<int>{}(key.id); }
};

namespace KALVO::EIL::Core {
namespace {

TEST(LRUCache, AFailedInsertLeavesTheCacheConsistent) {
    using Cache = LRUCache<FragileKey, unsigned, 4>;
    for (int failAt = 0; failAt < 3; ++failAt) {
        Cache cache;
        for (int id = 1; id <= 4; ++id) Insert(cache, FragileKey(id), 1U);
        FragileKey::copiesUntilFailure = failAt;
        bool threw = false;
        try {
            Insert(cache, FragileKey(5), 1U);
        } catch (const std::bad_alloc&) {
            threw = true;
        }
        FragileKey::copiesUntilFailure = -1;
        if (!threw) continue;  // the insert needed fewer copies than failAt

        // At worst the least recently used entry is gone; the rest stay found.
        const auto keys = RecencyOrder(cache);
        ASSERT_GE(keys.size(), 3U) << "fail at copy " << failAt;
        for (int id = 2; id <= 4; ++id) {
            unsigned value = 0;
            EXPECT_TRUE(cache.Get(FragileKey(id), value)) << "fail at copy " << failAt << " lost key " << id;
        }
        for (int id = 6; id <= 9; ++id) Insert(cache, FragileKey(id), 1U);
        EXPECT_EQ(RecencyOrder(cache).size(), 4U) << "fail at copy " << failAt;
    }
}

// The handlers' pattern (Get, then Update on a hit or InsertData under the cache's lock on a
// miss) from several threads; ThreadSanitizer checks the locking, the ring checks the result.
TEST(LRUCache, SurvivesConcurrentCounting) {
#ifdef KALVO_SANITIZED
    constexpr int PerThread = 5000;
#else
    constexpr int PerThread = 50000;
#endif
    LRUCache<std::string, unsigned, 16> cache;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&cache, t] {
            for (int i = 0; i < PerThread; ++i) {
                const std::string key = "command " + std::to_string((i * 13 + t) % 24);
                unsigned count = 0;
                if (cache.Get(key, count)) {
                    cache.Update(key, count + 1);
                } else {
                    const std::lock_guard<std::shared_mutex> lock(cache.Mutex());
                    cache.InsertData(lock, key, 1U, nullptr);
                }
            }
        });
    }
    for (auto& thread : threads) thread.join();
    const auto keys = RecencyOrder(cache);
    EXPECT_EQ(keys.size(), 16U);
    for (const auto& key : keys) {
        unsigned count = 0;
        ASSERT_TRUE(cache.Get(key, count));
        EXPECT_LE(count, 4U * PerThread) << key;
    }
}

}  // namespace
}  // namespace KALVO::EIL::Core
