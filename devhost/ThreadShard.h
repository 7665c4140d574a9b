// ThreadShard: which slot of a per-thread structure (ShardedCounters) the calling thread
// writes. Up to Exclusive threads at a time each own a slot that no other thread writes, so
// their writes never move a cache line between cores; any further thread shares Overflow,
// where writes must be atomic read-modify-writes.
#pragma once

#include <cstddef>

namespace KALVO::DevHost::ThreadShard {

inline constexpr std::size_t Exclusive = 16;
inline constexpr std::size_t Overflow = Exclusive;  // the slot every thread without its own shares
inline constexpr std::size_t Count = Exclusive + 1;

namespace Detail {
inline constexpr std::size_t Unclaimed = Count;
// Constant-initialised, so reading it costs no guard call.
inline thread_local std::size_t t_shard = Unclaimed;
std::size_t Claim() noexcept;
}  // namespace Detail

// This thread's slot, claimed on its first call and given back when the thread ends.
inline std::size_t Current() noexcept {
    const std::size_t shard = Detail::t_shard;
    return shard != Detail::Unclaimed ? shard : Detail::Claim();
}

}  // namespace KALVO::DevHost::ThreadShard
