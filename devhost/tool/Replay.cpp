#include "devhost/tool/Replay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <exception>
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

}  // namespace

std::uint64_t Replay(const std::string& path, unsigned threads, EventSink& sink, SignalWatcher& signals) {
    const bool fromStdin = path == "-";
    const int fd = fromStdin ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot read trace " + path + ": " + std::strerror(errno));
    const auto closer = EIL::Core::MakeScopeExit([&] {
        if (!fromStdin) ::close(fd);
    });
    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) throw std::runtime_error("cannot read trace " + path + ": it is a directory");
    const std::string name = fromStdin ? std::string("stdin") : path;

    // Every thread reads its next event itself, under the lock, and delivers it outside; the
    // first failure stops them all and is thrown once they are joined.
    std::mutex mutex;
    std::string buffer;
    std::size_t start = 0;  // of the next line in `buffer`
    std::uint64_t lineNumber = 0, skipped = 0;
    bool more = true;  // the input has not ended
    std::exception_ptr failure;
    const auto next = [&]() -> std::optional<TraceEvent> {
        std::lock_guard lock(mutex);
        while (!failure) {
            std::size_t end = buffer.find('\n', start);
            if (end == std::string::npos) {
                buffer.erase(0, start);
                start = 0;
                if (more && (more = ReadMore(fd, buffer, signals))) continue;
                if (signals.StopRequested() || buffer.empty()) break;
                end = buffer.size();  // a last line without a line feed
            }
            const std::string_view line(buffer.data() + start, end - start);
            start = std::min(end + 1, buffer.size());
            ++lineNumber;
            if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;  // blank lines are harmless
            try {
                return ParseTraceLine(line);
            } catch (const TraceFormatError& error) {
                if (++skipped <= NamedSkips) Warn(fmt::format("{}:{}: line skipped: {}", name, lineNumber, error.what()));
                if (skipped == NamedSkips + 1) Warn("further skipped lines are only counted");
            }
        }
        return std::nullopt;
    };
    const auto work = [&] {
        try {
            while (std::optional<TraceEvent> event = next()) sink.Deliver(*event);
        } catch (...) {
            std::lock_guard lock(mutex);
            if (!failure) failure = std::current_exception();
        }
    };
    {
        std::vector<std::thread> workers;
        const auto joiner = EIL::Core::MakeScopeExit([&] {
            for (std::thread& worker : workers) worker.join();
        });
        for (unsigned index = 1; index < threads; ++index) workers.emplace_back(work);
        work();
    }
    if (failure) std::rethrow_exception(failure);
    return skipped;
}

}  // namespace KALVO::DevHost::Tool
