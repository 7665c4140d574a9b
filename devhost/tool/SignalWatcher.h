// SignalWatcher: turns SIGINT and SIGTERM into a clean stop (the sensor is stopped and its
// state saved) and SIGHUP into a configuration reload, on a thread of its own, so no work ever
// runs inside a signal handler. A second SIGINT or SIGTERM while stopping ends the program at
// once, for a user whose clean stop hangs.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace KALVO::DevHost::Tool {

class SignalWatcher {
public:
    using Clock = std::chrono::steady_clock;

    // Blocks the three signals in the calling thread, and so in every thread it starts later,
    // then starts the watching thread. Construct it before any other thread exists.
    SignalWatcher();
    // Stops the watching thread; the signals stay blocked.
    ~SignalWatcher();

    SignalWatcher(const SignalWatcher&) = delete;  // owns a thread
    SignalWatcher& operator=(const SignalWatcher&) = delete;

    bool StopRequested() const noexcept { return m_stop.load(std::memory_order_acquire); }
    void RequestStop();
    // Sleeps until `deadline` or a stop request, whichever comes first; true on a stop request.
    bool SleepUntil(Clock::time_point deadline);

    // Runs `handler` on the watching thread for each SIGHUP (empty: none). Returns only once no
    // call of the previous handler is running, so the handler's objects may go right after.
    void SetReloadHandler(std::function<void()> handler);

private:
    void Watch();

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_exit{false};
    std::mutex m_sleepMutex;  // pairs with m_wake
    std::condition_variable m_wake;
    std::mutex m_handlerMutex;  // guards m_reload and is held while it runs
    std::function<void()> m_reload;
    std::thread m_thread;
};

}  // namespace KALVO::DevHost::Tool
