// Takes a mutex exclusively, trying a few times before blocking: for locks whose critical
// sections are a few dozen nanoseconds long and taken on every event by every host thread.
// Blocking at once sends a contended lock through the kernel (a futex wait, then a wake on
// unlock), which costs many times the section itself; a short spin usually finds it free.
#pragma once

#include <shared_mutex>

namespace KALVO::EIL::Core {

namespace Detail {

// Tells the core that it is spinning (frees resources for the lock holder on the same core).
inline void CpuRelax() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__aarch64__) || defined(__arm__)
    __asm__ __volatile__("yield");
#endif
}

}  // namespace Detail

// Returns with `mutex` held exclusively; release it as usual (e.g. std::lock_guard with
// std::adopt_lock). Bounded: after SpinAttempts failed tries it blocks like lock().
inline void LockSpinningFirst(std::shared_mutex& mutex) {
    constexpr int SpinAttempts = 64;
    for (int attempt = 0; attempt < SpinAttempts; ++attempt) {
        if (mutex.try_lock()) return;
        Detail::CpuRelax();
    }
    mutex.lock();
}

}  // namespace KALVO::EIL::Core
