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
        auto original = MakeScopeExit([&fired] { ++fired; });
        auto moved = std::move(original);
    }
    EXPECT_EQ(fired, 1);
}

// A guard made inside a destructor that runs during unwinding sees that exception already in
// flight; only a new failure inside that destructor counts as failing its own scope.
struct MakesGuardsWhileUnwinding {
    int* failFired;
    int* successFired;
    ~MakesGuardsWhileUnwinding() {
        auto fail = MakeScopeFail([this] { ++*failFired; });
        auto success = MakeScopeSuccess([this] { ++*successFired; });
    }
};

TEST(ScopeGuard, JudgesFailureByItsOwnScopeDuringUnwinding) {
    int failFired = 0;
    int successFired = 0;
    try {
        MakesGuardsWhileUnwinding unwinding{&failFired, &successFired};
        throw std::runtime_error("outer");
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(failFired, 0);
    EXPECT_EQ(successFired, 1);
}

TEST(ScopeGuard, SuccessGuardMayThrowToTheCaller) {
    EXPECT_THROW({ auto guard = MakeScopeSuccess([] { throw std::logic_error("commit failed"); }); },
                 std::logic_error);
}

}  // namespace
}  // namespace KALVO::EIL::Core
