#include "devhost/tool/Replay.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "devhost/tool/Console.h"
#include "devhost/tool/LineReader.h"
#include "devhost/tool/TraceFormat.h"

namespace KALVO::DevHost::Tool {

namespace {

// Skipped lines are named one by one up to this many; a trace that is wrong throughout would
// otherwise bury everything else.
constexpr std::uint64_t NamedSkips = 20;

// Events handed from the reading thread to the delivering ones; bounded, so a long trace is
// never all in memory.
class EventQueue {
public:
    explicit EventQueue(std::size_t capacity) : m_capacity(capacity) {}

    void Push(TraceEvent event) {
        std::unique_lock lock(m_mutex);
        m_notFull.wait(lock, [this] { return m_events.size() < m_capacity; });
        m_events.push_back(std::move(event));
        m_notEmpty.notify_one();
    }
    // Nothing once closed and drained.
    std::optional<TraceEvent> Pop() {
        std::unique_lock lock(m_mutex);
        m_notEmpty.wait(lock, [this] { return !m_events.empty() || m_closed; });
        if (m_events.empty()) return std::nullopt;
        TraceEvent event = std::move(m_events.front());
        m_events.pop_front();
        m_notFull.notify_one();
        return event;
    }
    void Close() {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_notEmpty.notify_all();
    }

private:
    std::size_t m_capacity;
    std::mutex m_mutex;
    std::condition_variable m_notFull;
    std::condition_variable m_notEmpty;
    std::deque<TraceEvent> m_events;
    bool m_closed = false;
};

class Progress {
public:
    Progress(bool enabled, std::uint64_t total) : m_enabled(enabled), m_total(total) {}
    ~Progress() {
        if (m_shown) ShowProgress({});
    }
    void Update(std::uint64_t events, std::uint64_t bytes) {
        if (!m_enabled) return;
        const auto now = std::chrono::steady_clock::now();
        if (m_shown && now - m_last < std::chrono::milliseconds(200)) return;
        m_last = now;
        m_shown = true;
        std::string text = "replay: " + std::to_string(events) + " events";
        if (m_total > 0) text += " (" + std::to_string(bytes * 100 / m_total) + "%)";
        ShowProgress(text);
    }

private:
    bool m_enabled;
    std::uint64_t m_total;
    bool m_shown = false;
    std::chrono::steady_clock::time_point m_last{};
};

}  // namespace

ReplayResult Replay(const ReplayOptions& options, EventSink& sink, SignalWatcher& signals) {
    const bool fromStdin = options.path == "-";
    const int fd = fromStdin ? STDIN_FILENO : ::open(options.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot read trace " + options.path + ": " + std::strerror(errno));
    struct Closer {
        int fd;
        bool owned;
        ~Closer() {
            if (owned) ::close(fd);
        }
    } closer{fd, !fromStdin};

    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode))
        throw std::runtime_error("cannot read trace " + options.path + ": it is a directory");
    const std::uint64_t total = S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size) : 0;
    const std::string name = fromStdin ? std::string("stdin") : options.path;

    ReplayResult result;
    std::atomic<std::uint64_t> delivered{0};
    EventQueue queue(1024);
    std::vector<std::thread> workers;
    if (options.threads > 1) {
        for (unsigned index = 0; index < options.threads; ++index) {
            workers.emplace_back([&] {
                while (std::optional<TraceEvent> event = queue.Pop()) {
                    sink.Deliver(*event);
                    delivered.fetch_add(1, std::memory_order_relaxed);
                }
            });
        }
    }
    struct Joiner {
        EventQueue& queue;
        std::vector<std::thread>& workers;
        ~Joiner() {
            queue.Close();
            for (std::thread& worker : workers) worker.join();
        }
    } joiner{queue, workers};

    Progress progress(options.progress, total);
    LineReader reader(fd, [&] { return signals.StopRequested(); });
    std::string line;
    for (;;) {
        const LineReader::Status status = reader.Next(line);
        if (status == LineReader::Status::End || status == LineReader::Status::Stopped) break;
        std::optional<TraceEvent> event;
        std::string fault;
        if (status == LineReader::Status::TooLong) {
            fault = "line too long";
        } else if (line.find_first_not_of(" \t\r") == std::string::npos) {
            continue;  // blank lines separate nothing, but are harmless
        } else {
            try {
                event = ParseTraceLine(line);
            } catch (const TraceFormatError& error) {
                fault = error.what();
            }
        }
        if (!event) {
            ++result.skipped;
            if (result.skipped <= NamedSkips)
                Warn(name + ":" + std::to_string(reader.LineNumber()) + ": line skipped: " + fault);
            if (result.skipped == NamedSkips + 1) Warn("further skipped lines are only counted");
            continue;
        }
        if (workers.empty()) {
            sink.Deliver(*event);
            delivered.fetch_add(1, std::memory_order_relaxed);
        } else {
            queue.Push(std::move(*event));
        }
        progress.Update(delivered.load(std::memory_order_relaxed), reader.Consumed());
    }
    queue.Close();
    for (std::thread& worker : workers) worker.join();
    workers.clear();
    result.delivered = delivered.load(std::memory_order_relaxed);
    return result;
}

}  // namespace KALVO::DevHost::Tool
