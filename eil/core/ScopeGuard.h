// Scope guards: run a function when a scope ends, always (ScopeExit), only when it is left by
// an exception (ScopeFail) or only when it is left normally (ScopeSuccess). Used to undo or
// finish partial work on every path out of a function without a try block per step.
#pragma once

#include <exception>
#include <type_traits>
#include <utility>

namespace KALVO::EIL::Core {

namespace Detail {

enum class ScopePolicy { Exit, Fail, Success };

// Fires on destruction according to Policy unless Release() was called. "Left by an exception"
// means more exceptions are in flight than when the guard was made, so a guard made inside a
// destructor during unwinding still fires correctly.
template <class F, ScopePolicy Policy>
class BasicScope {
    static_assert(std::is_nothrow_move_constructible_v<F>, "a guard must be movable without throwing");

    static constexpr bool FiresOnFailure = Policy != ScopePolicy::Success;

public:
    // If copying `fn` in throws, an exit or fail guard calls `fn` before the exception leaves,
    // as the guard would have.
    template <class Fn>
    explicit BasicScope(Fn&& fn) try : m_fn(std::forward<Fn>(fn)) {
    } catch (...) {
        if constexpr (FiresOnFailure) fn();
    }

    BasicScope(BasicScope&& other) noexcept
        : m_fn(std::move(other.m_fn)), m_uncaught(other.m_uncaught), m_active(std::exchange(other.m_active, false)) {}

    BasicScope(const BasicScope&) = delete;
    BasicScope& operator=(const BasicScope&) = delete;
    BasicScope& operator=(BasicScope&&) = delete;

    // Exit and fail guards must not throw (they may run during unwinding); a success guard runs
    // on a normal exit only, so its function may throw to the caller.
    ~BasicScope() noexcept(FiresOnFailure) {
        if (!m_active) return;
        const bool failing = std::uncaught_exceptions() > m_uncaught;
        if (Policy == ScopePolicy::Exit || (Policy == ScopePolicy::Fail) == failing) m_fn();
    }

    // Disarms the guard.
    void Release() noexcept { m_active = false; }

private:
    F m_fn;
    int m_uncaught = std::uncaught_exceptions();
    bool m_active = true;
};

}  // namespace Detail

template <class F>
using ScopeExit = Detail::BasicScope<F, Detail::ScopePolicy::Exit>;
template <class F>
using ScopeFail = Detail::BasicScope<F, Detail::ScopePolicy::Fail>;
template <class F>
using ScopeSuccess = Detail::BasicScope<F, Detail::ScopePolicy::Success>;

template <class F>
[[nodiscard]] ScopeExit<std::decay_t<F>> MakeScopeExit(F&& fn) {
    return ScopeExit<std::decay_t<F>>(std::forward<F>(fn));
}

template <class F>
[[nodiscard]] ScopeFail<std::decay_t<F>> MakeScopeFail(F&& fn) {
    return ScopeFail<std::decay_t<F>>(std::forward<F>(fn));
}

template <class F>
[[nodiscard]] ScopeSuccess<std::decay_t<F>> MakeScopeSuccess(F&& fn) {
    return ScopeSuccess<std::decay_t<F>>(std::forward<F>(fn));
}

}  // namespace KALVO::EIL::Core
