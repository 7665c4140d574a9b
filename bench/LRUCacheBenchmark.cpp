// The repeat-count cache against the textbook LRU cache (std::unordered_map of keys to
// std::list iterators, the list in recency order), both used as the handlers use them: look
// a key up, then store its new count or insert it. Both lock a mutex per operation, as the
// handlers' concurrent use requires. Keys are process-tree keys of a realistic length.
#include <benchmark/benchmark.h>

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/Letters.h"
#include "bench/RatioTarget.h"
#include "eil/core/LRUCache.h"

namespace KALVO::Bench {
namespace {

constexpr std::size_t Capacity = 512;

class TextbookLRUCache {
public:
    bool Get(const std::string& key, unsigned& value) {
        std::lock_guard lock(m_mutex);
        const auto found = m_index.find(key);
        if (found == m_index.end()) return false;
        m_order.splice(m_order.begin(), m_order, found->second);
        value = found->second->second;
        return true;
    }

    void Put(const std::string& key, unsigned value) {
        std::lock_guard lock(m_mutex);
        if (const auto found = m_index.find(key); found != m_index.end()) {
            found->second->second = value;
            m_order.splice(m_order.begin(), m_order, found->second);
            return;
        }
        if (m_index.size() == Capacity) {
            m_index.erase(m_order.back().first);
            m_order.pop_back();
        }
        m_order.emplace_front(key, value);
        m_index.emplace(key, m_order.begin());
    }

private:
    std::mutex m_mutex;
    std::list<std::pair<std::string, unsigned>> m_order;
    std::unordered_map<std::string, std::list<std::pair<std::string, unsigned>>::iterator> m_index;
};

using Cache = EIL::Core::LRUCache<std::string, unsigned, Capacity>;

std::vector<std::string> Keys(std::size_t count) {
    std::vector<std::string> keys;
    for (std::size_t i = 0; i < count; ++i) {
        keys.push_back(
            "/bin/zsh|/usr/bin/python3|-zsh|/usr/bin/python3 -m pip install --cache-dir <tmp> requests==2.31.0 " +
            Letters(i));
    }
    return keys;
}

// The handlers' sequence: Get, then Update on a hit or InsertData under the lock on a miss.
void Count(Cache& cache, const std::string& key) {
    unsigned count = 0;
    if (cache.Get(key, count)) {
        cache.Update(key, count + 1);
    } else {
        const std::lock_guard<std::shared_mutex> lock(cache.Mutex());
        cache.InsertData(lock, key, 1, nullptr);
    }
}

void Count(TextbookLRUCache& cache, const std::string& key) {
    unsigned count = 0;
    cache.Put(key, cache.Get(key, count) ? count + 1 : 1);
}

// Hits: a working set of 256 keys, all resident. Misses: 4096 keys in turn, each evicting.
template <class C>
void Run(benchmark::State& state, std::size_t keyCount) {
    auto cache = std::make_unique<C>();
    const std::vector<std::string> keys = Keys(keyCount);
    for (const std::string& key : keys) Count(*cache, key);
    std::size_t next = 0;
    for (auto _ : state) {
        Count(*cache, keys[next]);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}

void BM_LRUCache_Hit(benchmark::State& state) { Run<Cache>(state, 256); }
BENCHMARK(BM_LRUCache_Hit);
void BM_LRUCache_HitTextbook(benchmark::State& state) { Run<TextbookLRUCache>(state, 256); }
BENCHMARK(BM_LRUCache_HitTextbook);
void BM_LRUCache_MissEvict(benchmark::State& state) { Run<Cache>(state, 4096); }
BENCHMARK(BM_LRUCache_MissEvict);
void BM_LRUCache_MissEvictTextbook(benchmark::State& state) { Run<TextbookLRUCache>(state, 4096); }
BENCHMARK(BM_LRUCache_MissEvictTextbook);

const bool registered =
    RegisterRatio({"LRUCache hit (Get+Update): textbook / ours", "BM_LRUCache_HitTextbook", "BM_LRUCache_Hit",
                   Metric::Time, std::nullopt, std::nullopt, ""}) &&
    RegisterRatio({"LRUCache miss (Get+InsertData, evicting): textbook / ours", "BM_LRUCache_MissEvictTextbook",
                   "BM_LRUCache_MissEvict", Metric::Time, std::nullopt, std::nullopt, ""});

}  // namespace
}  // namespace KALVO::Bench
