#include "devhost/ReaderGate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace KALVO::DevHost {
namespace {

#ifdef KALVO_SANITIZED
constexpr int Replacements = 300;
#else
constexpr int Replacements = 5000;
#endif

// What readers use and a writer replaces: poisoned when freed, so a reader that sees the
// poison used it after the writer's wait returned (a sanitizer build also reports the read).
struct Published {
    explicit Published(int value) : value(value) {}
    ~Published() { value.store(-1, std::memory_order_relaxed); }
    std::atomic<int> value;
};

TEST(ReaderGate, WriterFreesOnlyWhatNoReaderCanStillUse) {
    ReaderGate gate;
    auto first = std::make_unique<Published>(0);
    std::atomic<Published*> current{first.release()};
    std::atomic<bool> stop{false};
    std::atomic<int> poisoned{0};
    std::vector<std::thread> readers;
    for (int t = 0; t < 3; ++t) {
        readers.emplace_back([&] {
            while (!stop.load(std::memory_order_relaxed)) {
                const ReaderGate::Section section = gate.Enter();
                const Published* seen = current.load(std::memory_order_seq_cst);
                std::this_thread::yield();  // holds it across the writer's replacement
                if (seen->value.load(std::memory_order_relaxed) < 0) ++poisoned;
            }
        });
    }
    for (int i = 1; i <= Replacements; ++i) {
        std::unique_ptr<Published> old(current.exchange(new Published(i), std::memory_order_seq_cst));
        gate.WaitForReaders();
    }
    stop = true;
    for (auto& reader : readers) reader.join();
    delete current.load();
    EXPECT_EQ(poisoned.load(), 0);
}

TEST(ReaderGate, WaitDoesNotReturnWhileAnotherThreadIsInside) {
    ReaderGate gate;
    std::atomic<bool> entered{false}, waiting{false}, returned{false};
    bool returnedWhileInside = true;
    std::thread reader([&] {
        const ReaderGate::Section section = gate.Enter();
        entered = true;
        while (!waiting) std::this_thread::yield();
        for (int i = 0; i < 100; ++i) std::this_thread::yield();  // room for an early return to show
        returnedWhileInside = returned.load();
    });
    while (!entered) std::this_thread::yield();
    waiting = true;
    gate.WaitForReaders();
    returned = true;
    reader.join();
    EXPECT_FALSE(returnedWhileInside);
}

TEST(ReaderGate, OwnSectionsAreNotWaitedFor) {
    ReaderGate gate;
    EXPECT_FALSE(gate.Inside());
    {
        const ReaderGate::Section outer = gate.Enter();
        {
            const ReaderGate::Section inner = gate.Enter();
            gate.WaitForReaders();  // would never return if it waited for this thread
        }
        EXPECT_TRUE(gate.Inside()) << "the outer section is still open";
        gate.WaitForReaders();
    }
    EXPECT_FALSE(gate.Inside());
}

TEST(ReaderGate, RecordsSurviveTheirGateAndTheirThread) {
    // More threads than one gate ever has at once, each entering several gates, some of which
    // die before the thread does and some after: the records must be reused or dropped
    // without a dangling reference (a sanitizer build checks).
    auto longLived = std::make_unique<ReaderGate>();
    for (int round = 0; round < 4; ++round) {
        std::vector<std::thread> threads;
        for (int t = 0; t < 20; ++t) {
            threads.emplace_back([&] {
                ReaderGate local;
                { const ReaderGate::Section section = local.Enter(); }
                { const ReaderGate::Section section = longLived->Enter(); }
                auto shortLived = std::make_unique<ReaderGate>();
                { const ReaderGate::Section section = shortLived->Enter(); }
                shortLived.reset();
                ReaderGate another;  // prunes the dead gate's record
                { const ReaderGate::Section section = another.Enter(); }
            });
        }
        for (auto& thread : threads) thread.join();
        longLived->WaitForReaders();
    }
    longLived.reset();
}

}  // namespace
}  // namespace KALVO::DevHost
