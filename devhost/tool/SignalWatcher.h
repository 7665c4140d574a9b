// SignalWatcher: turns SIGINT and SIGTERM into a clean stop (the sensor is stopped and its
// state saved) and SIGHUP into a configuration reload, on a thread of its own, so no work ever
// runs inside a signal handler. A second SIGINT or SIGTERM while stopping ends the program at
// once, for a user whose clean stop hangs.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <ctime>
#include <functional>
#include <mutex>
#include <thread>

namespace KALVO::DevHost::Tool {

class SignalWatcher {
public:
    using Clock = std::chrono::steady_clock;

    // Blocks the three signals in the calling thread, and so in every thread it starts later,
    // then starts the watching thread. Construct it before any other thread exists.
    SignalWatcher() {
        sigemptyset(&m_signals);
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&m_signals, signal);
        pthread_sigmask(SIG_BLOCK, &m_signals, nullptr);
        m_thread = std::thread([this] { Watch(); });
    }
    // Stops the watching thread; the signals stay blocked.
    ~SignalWatcher() {
        m_exit.store(true, std::memory_order_release);
        m_thread.join();
    }

    bool StopRequested() const noexcept { return m_stop.load(std::memory_order_acquire); }
    void RequestStop() {
        {
            std::lock_guard lock(m_sleepMutex);
            m_stop.store(true, std::memory_order_release);
        }
        m_wake.notify_all();
    }
    // Sleeps until `deadline` or a stop request, whichever comes first; true on a stop request.
    bool SleepUntil(Clock::time_point deadline) {
        std::unique_lock lock(m_sleepMutex);
        return m_wake.wait_until(lock, deadline, [this] { return StopRequested(); });
    }

    // Runs `handler` on the watching thread at each SIGHUP with true, and with false every half
    // second, for a check of whether the configuration changed (empty: none). Returns only once
    // no call of the previous handler is running, so the handler's objects may go right after.
    // A handler keeps this thread from signals while it runs, so it must be quick.
    void SetReloadHandler(std::function<void(bool signalled)> handler) {
        std::lock_guard lock(m_handlerMutex);
        m_reload = std::move(handler);
    }

private:
    void Watch() {
        // A short wait, so the destructor is never kept waiting for a signal that does not come.
        const timespec timeout{0, 200'000'000};
        Clock::time_point nextCheck = Clock::now();
        while (!m_exit.load(std::memory_order_acquire)) {
            const int signal = ::sigtimedwait(&m_signals, nullptr, &timeout);
            if (signal == SIGINT || signal == SIGTERM) {
                if (StopRequested()) {
                    static constexpr char message[] =
                        "kalvo-devhost: second signal: exiting without stopping the sensor\n";
                    (void)!::write(STDERR_FILENO, message, sizeof message - 1);
                    ::_exit(128 + signal);
                }
                RequestStop();
            } else if (signal == SIGHUP || Clock::now() >= nextCheck) {
                nextCheck = Clock::now() + std::chrono::milliseconds(500);
                std::lock_guard lock(m_handlerMutex);
                if (m_reload) m_reload(signal == SIGHUP);
            }
        }
    }

    sigset_t m_signals;  // the three watched
    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_exit{false};
    std::mutex m_sleepMutex;  // pairs with m_wake
    std::condition_variable m_wake;
    std::mutex m_handlerMutex;  // guards m_reload and is held while it runs
    std::function<void(bool signalled)> m_reload;
    std::thread m_thread;  // owned, so the watcher is neither copied nor moved
};

}  // namespace KALVO::DevHost::Tool
