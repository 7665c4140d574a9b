// The three scope guards, each leaving its scope both ways, and released or moved-from guards.
#include "eil/core/ScopeGuard.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <utility>

namespace KALVO::EIL::Core {
namespace {

enum class Exit { Normally, ByException };

// Leaves a scope holding the guard made by `make` the given way; returns how often it fired.
template <class Make>
int FiringsWhenLeaving(Exit how, Make make) {
    int fired = 0;
    try {
        auto guard = make([&fired] { ++fired; });
        if (how == Exit::ByException) throw std::runtime_error("leaving");
    } catch (const std::runtime_error&) {
    }
    return fired;
}

TEST(ScopeGuard, EachFormFiresOnItsOwnWayOut) {
    const auto exit = [](auto fn) { return MakeScopeExit(std::move(fn)); };
    const auto fail = [](auto fn) { return MakeScopeFail(std::move(fn)); };
    const auto success = [](auto fn) { return MakeScopeSuccess(std::move(fn)); };
    EXPECT_EQ(FiringsWhenLeaving(Exit::Normally, exit), 1);
    EXPECT_EQ(FiringsWhenLeaving(Exit::ByException, exit), 1);
    EXPECT_EQ(FiringsWhenLeaving(Exit::Normally, fail), 0);
    EXPECT_EQ(FiringsWhenLeaving(Exit::ByException, fail), 1);
    EXPECT_EQ(FiringsWhenLeaving(Exit::Normally, success), 1);
    EXPECT_EQ(FiringsWhenLeaving(Exit::ByException, success), 0);
}

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
