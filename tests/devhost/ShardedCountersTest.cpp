#include "devhost/ShardedCounters.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace KALVO::DevHost {
namespace {

TEST(ShardedCounters, SumsEveryThreadsAddsIncludingThoseWithoutAShardOfTheirOwn) {
    // More threads at once than there are exclusive shards, and then as many again after the
    // first ones ended and gave theirs back.
    constexpr int Threads = static_cast<int>(ThreadShard::Exclusive) + 8;
    constexpr int Adds = 2000;
    ShardedCounters<3> counters;
    std::atomic<int> ready{0};
    for (int wave = 0; wave < 2; ++wave) {
        std::vector<std::thread> threads;
        for (int t = 0; t < Threads; ++t) {
            threads.emplace_back([&, t] {
                counters.Add(2, 0);  // claims a shard
                ++ready;
                while (ready.load() < Threads * (wave + 1)) std::this_thread::yield();  // all alive at once
                for (int i = 0; i < Adds; ++i) counters.Add(static_cast<std::size_t>(t % 2), 1);
                counters.Add(2, static_cast<std::uint64_t>(t));
            });
        }
        for (auto& thread : threads) thread.join();
    }
    EXPECT_EQ(counters.Read(0) + counters.Read(1), 2u * Threads * Adds);
    EXPECT_EQ(counters.Read(0), 2u * (Threads / 2) * Adds);
    EXPECT_EQ(counters.Read(2), 2u * (Threads * (Threads - 1) / 2));
    counters.Reset();
    EXPECT_EQ(counters.Read(0) + counters.Read(1) + counters.Read(2), 0u);
}

}  // namespace
}  // namespace KALVO::DevHost
