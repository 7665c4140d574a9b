// ShardedCounters<N>: N event counters that any number of threads bump at once without
// sharing a cache line. Each thread adds to its own shard (ThreadShard) with a plain load and
// store, and a reader sums the shards; used for the host's call counts, which are bumped on
// every event but read only by tests.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "devhost/ThreadShard.h"

namespace KALVO::DevHost {

template <std::size_t N>
class ShardedCounters {
public:
    ShardedCounters() = default;
    ShardedCounters(const ShardedCounters&) = delete;  // the counts of one owner
    ShardedCounters& operator=(const ShardedCounters&) = delete;

    void Add(std::size_t index, std::uint64_t amount = 1) noexcept {
        const std::size_t shard = ThreadShard::Current();
        std::atomic<std::uint64_t>& count = m_shards[shard].counts[index];
        // Relaxed: a count orders nothing. An exclusive shard has one writer, so it needs no
        // locked instruction; the overflow shard is shared.
        if (shard == ThreadShard::Overflow) {
            count.fetch_add(amount, std::memory_order_relaxed);
        } else {
            count.store(count.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
        }
    }

    // Exact when no Add is running.
    std::uint64_t Read(std::size_t index) const noexcept {
        std::uint64_t total = 0;
        for (const Shard& shard : m_shards) total += shard.counts[index].load(std::memory_order_relaxed);
        return total;
    }

    // Only while no Add is running: an Add in progress may store its old count back.
    void Reset() noexcept {
        for (Shard& shard : m_shards) {
            for (std::atomic<std::uint64_t>& count : shard.counts) count.store(0, std::memory_order_relaxed);
        }
    }

private:
    // 64: the cache line of the machines this runs on (the standard's constant would make the
    // layout depend on compiler flags, and g++ warns about its use in headers).
    struct alignas(64) Shard {
        std::array<std::atomic<std::uint64_t>, N> counts{};
    };

    std::array<Shard, ThreadShard::Count> m_shards{};
};

}  // namespace KALVO::DevHost
