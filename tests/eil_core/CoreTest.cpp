// The foundation's core: the fixed-capacity LRU cache the sensor counts repeat keys in (random
// operations against a list-based model, where hits, values and evictions must agree; the
// handlers' locking pattern from several threads is the sensor's concurrency test), the lock it
// takes, and the scope guard's release (the stand-in host's rollbacks run through it).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>

#include "eil/core/LRUCache.h"
#include "eil/core/LockSpinningFirst.h"
#include "eil/core/ScopeGuard.h"
#include "tests/support/Scaled.h"

namespace KALVO::EIL::Core {
namespace {

// The obvious model: a list in recency order, searched from the front.
template <class Key, class Value>
class ReferenceLRU {
public:
    explicit ReferenceLRU(std::size_t capacity) : m_capacity(capacity) {}

    std::optional<Value> Get(const Key& key) {
        const auto found = Find(key);
        if (found == m_order.end()) return std::nullopt;
        m_order.splice(m_order.begin(), m_order, found);
        return found->second;
    }

    // An update of a missing key inserts it; of a present one, replaces its value and moves it first.
    void Update(const Key& key, const Value& value) {
        if (Get(key))
            m_order.front().second = value;
        else
            Insert(key, value);
    }

    // An insertion of a present key leaves it where it is.
    std::optional<Value> Insert(const Key& key, const Value& value) {
        if (const auto found = Find(key); found != m_order.end()) return found->second;
        if (m_order.size() == m_capacity) m_order.pop_back();
        m_order.emplace_front(key, value);
        return std::nullopt;
    }

private:
    auto Find(const Key& key) {
        return std::find_if(m_order.begin(), m_order.end(), [&](const auto& entry) { return entry.first == key; });
    }

    std::size_t m_capacity;
    std::list<std::pair<Key, Value>> m_order;
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
            const std::lock_guard<std::shared_mutex> lock(cache.Mutex());
            const std::size_t slot = cache.InsertData(lock, key, value, &existing);
            ASSERT_EQ(existing, reference.Insert(key, value)) << "step " << step;
            ASSERT_LT(slot, Capacity);
            break;
        }
        }
    }
}

constexpr int RandomOperations = Testing::Scaled(1'000'000, 50'000);

TEST(LRUCache, BehavesLikeAListBasedReference) {
    CompareWithReference<8>(RandomOperations, 1);
    CompareWithReference<1>(RandomOperations / 20, 2);
}

// The lock the cache takes: a spin first, then a wait like std::mutex's.
// A holder that keeps the lock far longer than the spin lasts: the waiter must block, not
// return without the lock, and get it once the holder lets go.
TEST(LockSpinningFirst, WaitsForAHolderBeyondTheSpinAndThenHoldsTheLock) {
    std::shared_mutex mutex;
    mutex.lock();
    std::atomic<bool> released{false};
    std::thread waiter([&] {
        const auto lock = LockSpinningFirst(mutex);
        EXPECT_TRUE(released.load());
        EXPECT_FALSE(mutex.try_lock_shared());  // held exclusively, by this thread
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    released = true;
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

// The scope guard.

TEST(ScopeGuard, ReleasedOrMovedFromGuardsDoNotFire) {
    int fired = 0;
    {
        auto released = MakeScopeExit([&fired] { ++fired; });
        released.Release();
        auto moved = std::move(released);
        auto original = MakeScopeExit([&fired] { ++fired; });
        auto kept = std::move(original);
    }
    EXPECT_EQ(fired, 1);
}

}  // namespace
}  // namespace KALVO::EIL::Core
