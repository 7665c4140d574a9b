#include "devhost/ThreadShard.h"

#include <atomic>
#include <bit>
#include <cstdint>

namespace KALVO::DevHost::ThreadShard::Detail {

namespace {

static_assert(Exclusive <= 32, "the claims are bits of one word");

// Bit i set: exclusive slot i belongs to a live thread. acq_rel on claim and release, so a
// new owner sees the counts its predecessor stored with plain load-and-store.
std::atomic<std::uint32_t> g_claimed{0};

// Gives the slot back when its thread ends. A thread-local destructor that runs later and
// still counts something goes to the shared slot.
struct Release {
    std::size_t shard = Overflow;
    ~Release() {
        t_shard = Overflow;
        if (shard < Exclusive) g_claimed.fetch_and(~(std::uint32_t{1} << shard), std::memory_order_acq_rel);
    }
};

}  // namespace

std::size_t Claim() noexcept {
    thread_local Release release;
    std::uint32_t claimed = g_claimed.load(std::memory_order_relaxed);
    std::size_t shard = Overflow;
    while (true) {
        const std::uint32_t free = ~claimed & ((std::uint32_t{1} << Exclusive) - 1);
        if (free == 0) break;
        const auto bit = static_cast<std::size_t>(std::countr_zero(free));
        if (g_claimed.compare_exchange_weak(claimed, claimed | (std::uint32_t{1} << bit), std::memory_order_acq_rel)) {
            shard = bit;
            break;
        }
    }
    release.shard = shard;
    t_shard = shard;
    return shard;
}

}  // namespace KALVO::DevHost::ThreadShard::Detail
