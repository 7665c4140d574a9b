#include "devhost/tool/SignalWatcher.h"

#include <pthread.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

namespace KALVO::DevHost::Tool {

namespace {

sigset_t WatchedSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    return set;
}

}  // namespace

SignalWatcher::SignalWatcher() {
    const sigset_t set = WatchedSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    m_thread = std::thread([this] { Watch(); });
}

SignalWatcher::~SignalWatcher() {
    m_exit.store(true, std::memory_order_release);
    m_thread.join();
}

void SignalWatcher::RequestStop() {
    {
        std::lock_guard lock(m_sleepMutex);
        m_stop.store(true, std::memory_order_release);
    }
    m_wake.notify_all();
}

bool SignalWatcher::SleepUntil(Clock::time_point deadline) {
    std::unique_lock lock(m_sleepMutex);
    return m_wake.wait_until(lock, deadline, [this] { return StopRequested(); });
}

void SignalWatcher::SetReloadHandler(std::function<void()> handler) {
    std::lock_guard lock(m_handlerMutex);
    m_reload = std::move(handler);
}

void SignalWatcher::Watch() {
    const sigset_t set = WatchedSignals();
    // A short wait, so the destructor is never kept waiting for a signal that does not come.
    const timespec timeout{0, 200'000'000};
    while (!m_exit.load(std::memory_order_acquire)) {
        const int signal = ::sigtimedwait(&set, nullptr, &timeout);
        if (signal == SIGHUP) {
            std::lock_guard lock(m_handlerMutex);
            if (m_reload) m_reload();
        } else if (signal == SIGINT || signal == SIGTERM) {
            if (StopRequested()) {
                static constexpr char message[] = "kalvo-devhost: second signal: exiting without stopping the sensor\n";
                (void)!::write(STDERR_FILENO, message, sizeof message - 1);
                ::_exit(128 + signal);
            }
            RequestStop();
        }
    }
}

}  // namespace KALVO::DevHost::Tool
