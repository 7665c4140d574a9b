#include "eil/core/LockSpinningFirst.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

namespace KALVO::EIL::Core {
namespace {

// A holder that keeps the lock far longer than the spin lasts: the waiter must block, not
// return without the lock, and get it once the holder lets go.
TEST(LockSpinningFirst, WaitsForAHolderBeyondTheSpinAndThenHoldsTheLock) {
    std::shared_mutex mutex;
    mutex.lock();
    std::atomic<bool> released{false};
    std::atomic<bool> acquired{false};
    std::thread waiter([&] {
        {
            const auto lock = LockSpinningFirst(mutex);
            EXPECT_TRUE(released.load());
            acquired = true;
            EXPECT_FALSE(mutex.try_lock_shared());  // held exclusively, by this thread
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(acquired.load());
    released = true;
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(acquired.load());
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

}  // namespace
}  // namespace KALVO::EIL::Core
