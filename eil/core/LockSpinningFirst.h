// Takes a mutex exclusively, trying a few times before blocking: for locks whose critical
// sections are a few dozen nanoseconds long and taken on every event by every host thread.
// Blocking at once sends a contended lock through the kernel (a futex wait, then a wake on
// unlock), which costs many times the section itself; a short spin usually finds it free.
#pragma once

#include <mutex>
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

// Holds `mutex` exclusively for the life of the returned guard. Bounded: after SpinAttempts
// failed tries it blocks like lock().
[[nodiscard]] inline std::lock_guard<std::shared_mutex> LockSpinningFirst(std::shared_mutex& mutex) {
    constexpr int SpinAttempts = 64;
    for (int attempt = 0; attempt < SpinAttempts; ++attempt) {
        if (mutex.try_lock()) return std::lock_guard<std::shared_mutex>(mutex, std::adopt_lock);
        Detail::CpuRelax();
    }
    return std::lock_guard<std::shared_mutex>(mutex);
}

}  // namespace KALVO::EIL::Core
