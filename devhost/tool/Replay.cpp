#include "devhost/tool/Replay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <vector>

#include "devhost/tool/Console.h"
#include "devhost/tool/TraceFormat.h"
#include "eil/core/ScopeGuard.h"

namespace KALVO::DevHost::Tool {

namespace {

// Skipped lines are named one by one up to this many; a trace that is wrong throughout would
// otherwise bury everything else.
constexpr std::uint64_t NamedSkips = 20;

// Events handed from the reading thread to the delivering ones; bounded, so a long trace is
// never all in memory.
class EventQueue {
public:
    void Push(TraceEvent event) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return m_events.size() < 1024; });
        m_events.push_back(std::move(event));
        m_changed.notify_all();
    }
    // Nothing once closed and drained.
    std::optional<TraceEvent> Pop() {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [this] { return !m_events.empty() || m_closed; });
        if (m_events.empty()) return std::nullopt;
        TraceEvent event = std::move(m_events.front());
        m_events.pop_front();
        m_changed.notify_all();
        return event;
    }
    void Close() {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<TraceEvent> m_events;
    bool m_closed = false;
};

// Appends what `fd` has to `buffer`, waiting at most 200 ms at a time so that a replay fed from
// a pipe still notices a stop request. False at the end of the input or on a stop request.
bool ReadMore(int fd, std::string& buffer, const SignalWatcher& signals) {
    char block[65536];
    while (!signals.StopRequested()) {
        pollfd waiting{fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, 200);
        if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
        if (ready <= 0) continue;
        const ssize_t count = ::read(fd, block, sizeof block);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) throw std::system_error(errno, std::generic_category(), "read");
        buffer.append(block, static_cast<std::size_t>(count));
        return count > 0;
    }
    return false;
}

// Parses the lines of `fd` until its end or a stop request and hands each event to `deliver`;
// returns how many lines were skipped. `name` names the trace in warnings.
template <class Deliver>
std::uint64_t ReadTrace(int fd, const std::string& name, const SignalWatcher& signals, Deliver&& deliver) {
    std::uint64_t skipped = 0;
    std::string buffer;
    std::size_t start = 0;  // of the next line in `buffer`
    std::uint64_t lineNumber = 0;
    for (bool more = true;;) {
        std::size_t end = buffer.find('\n', start);
        if (end == std::string::npos) {
            buffer.erase(0, start);
            start = 0;
            if (more && (more = ReadMore(fd, buffer, signals))) continue;
            if (signals.StopRequested() || buffer.empty()) return skipped;
            end = buffer.size();  // a last line without a line feed
        }
        const std::string_view line(buffer.data() + start, end - start);
        start = std::min(end + 1, buffer.size());
        ++lineNumber;
        if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;  // blank lines are harmless
        try {
            deliver(ParseTraceLine(line));
        } catch (const TraceFormatError& error) {
            if (++skipped <= NamedSkips) Warn(name + ":" + std::to_string(lineNumber) + ": line skipped: " + error.what());
            if (skipped == NamedSkips + 1) Warn("further skipped lines are only counted");
        }
    }
}

}  // namespace

ReplayResult Replay(const ReplayOptions& options, EventSink& sink, SignalWatcher& signals) {
    const bool fromStdin = options.path == "-";
    const int fd = fromStdin ? STDIN_FILENO : ::open(options.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot read trace " + options.path + ": " + std::strerror(errno));
    const auto closer = EIL::Core::MakeScopeExit([&] {
        if (!fromStdin) ::close(fd);
    });
    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode))
        throw std::runtime_error("cannot read trace " + options.path + ": it is a directory");
    const std::string name = fromStdin ? std::string("stdin") : options.path;

    std::atomic<std::uint64_t> delivered{0};
    const auto deliver = [&](const TraceEvent& event) {
        sink.Deliver(event);
        delivered.fetch_add(1, std::memory_order_relaxed);
    };
    ReplayResult result;
    if (options.threads <= 1) {
        result.skipped = ReadTrace(fd, name, signals, deliver);
    } else {
        EventQueue queue;
        std::vector<std::thread> workers;
        const auto joiner = EIL::Core::MakeScopeExit([&] {
            queue.Close();
            for (std::thread& worker : workers) worker.join();
        });
        for (unsigned index = 0; index < options.threads; ++index) {
            workers.emplace_back([&] {
                while (std::optional<TraceEvent> event = queue.Pop()) deliver(*event);
            });
        }
        result.skipped = ReadTrace(fd, name, signals, [&](TraceEvent event) { queue.Push(std::move(event)); });
    }
    result.delivered = delivered.load(std::memory_order_relaxed);
    return result;
}

}  // namespace KALVO::DevHost::Tool
