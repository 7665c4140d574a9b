#include "devhost/tool/TraceFormat.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <exception>
#include <iterator>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <type_traits>
#include <vector>

#include "devhost/ValidUtf8.h"
#include "devhost/tool/Console.h"
#include "eil/core/ScopeGuard.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

namespace {

namespace RJ = EIL::RJ;
using Writer = RJ::Writer<RJ::StringBuffer>;

// The kinds' spelling in a trace, in EventKind's order.
constexpr std::string_view KindNames[EventKindCount] = {"create", "exists", "terminate", "shell"};

void WriteProcess(Writer& writer, const ProcessRecord& process) {
    const auto number = [&](char const* name, std::uint64_t value) { writer.Key(name), writer.Uint64(value); };
    const auto text = [&](char const* name, std::string_view value) { writer.Key(name), WriteJsonText(writer, value); };
    writer.StartObject();
    number("pid", process.pid);
    number("ppid", process.parentPid);
    if (process.path) text("path", *process.path);
    if (process.commandLine) text("command_line", *process.commandLine);
    text("uid", process.uid);
    if (process.userId) number("user_id", *process.userId);
    if (!process.user.empty()) text("user", process.user);
    if (process.startTime != 0) number("start_time", process.startTime);
    writer.EndObject();
}

// The member `name` of `object` (`owner` prefixes its name in messages): nothing when absent
// (or null, where `nullable`), else a value of type T (std::uint64_t or std::string), else a
// TraceFormatError.
template <class T>
std::optional<T> MemberOf(const RJ::Value& object, std::string_view owner, char const* name, bool nullable = false) {
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd() || (nullable && member->value.IsNull())) return std::nullopt;
    const RJ::Value& value = member->value;
    constexpr bool text = std::is_same_v<T, std::string>;
    if constexpr (text) {
        if (value.IsString()) return std::string(value.GetString(), value.GetStringLength());
    } else if (value.IsUint64()) {
        return value.GetUint64();
    }
    throw TraceFormatError(fmt::format("{}\"{}\" is not {}", owner, name,
                                       !text ? "an unsigned integer" : nullable ? "a string or null" : "a string"));
}

ProcessRecord ReadProcess(const RJ::Value& document, char const* name) {
    const auto member = document.FindMember(name);
    if (member == document.MemberEnd()) throw TraceFormatError(fmt::format("\"{}\" is missing", name));
    if (!member->value.IsObject()) throw TraceFormatError(fmt::format("\"{}\" is not an object", name));
    const RJ::Value& object = member->value;
    const std::string owner = fmt::format("\"{}\".", name);
    // In the members' order, so a line with several faults is named by its first.
    return ProcessRecord{.pid = MemberOf<std::uint64_t>(object, owner, "pid").value_or(0),
                         .parentPid = MemberOf<std::uint64_t>(object, owner, "ppid").value_or(0),
                         .path = MemberOf<std::string>(object, owner, "path", true),
                         .commandLine = MemberOf<std::string>(object, owner, "command_line", true),
                         .uid = MemberOf<std::string>(object, owner, "uid").value_or(""),
                         .userId = MemberOf<std::uint64_t>(object, owner, "user_id"),
                         .user = MemberOf<std::string>(object, owner, "user").value_or(""),
                         .startTime = MemberOf<std::uint64_t>(object, owner, "start_time").value_or(0)};
}

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

std::string FormatTraceLine(const TraceEvent& event) {
    RJ::StringBuffer buffer;
    Writer writer(buffer);
    writer.StartObject();
    writer.Key("kind"), WriteJsonText(writer, KindNames[static_cast<std::size_t>(event.kind)]);
    writer.Key("process"), WriteProcess(writer, event.process);
    if (event.kind == EventKind::Create) writer.Key("parent"), WriteProcess(writer, event.parent.value_or(ProcessRecord{}));
    if (event.kind == EventKind::Shell) writer.Key("command"), WriteJsonText(writer, event.command);
    if (event.time) writer.Key("time"), writer.Uint64(*event.time);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

TraceEvent ParseTraceLine(std::string_view line) {
    RJ::Document document;
    document.Parse<RJ::kParseIterativeFlag>(line.data(), line.size());
    if (document.HasParseError()) {
        throw TraceFormatError(
            fmt::format("not JSON: {} (column {})", RJ::GetParseError_En(document.GetParseError()), document.GetErrorOffset() + 1));
    }
    if (!document.IsObject()) throw TraceFormatError("not a JSON object");
    const std::optional<std::string> kindName = MemberOf<std::string>(document, {}, "kind");
    if (!kindName) throw TraceFormatError("\"kind\" is missing");
    const auto* kind = std::find(std::begin(KindNames), std::end(KindNames), *kindName);
    if (kind == std::end(KindNames)) throw TraceFormatError("unknown \"kind\" (create, exists, terminate or shell)");

    TraceEvent event{.kind = static_cast<EventKind>(kind - std::begin(KindNames)), .process = ReadProcess(document, "process")};
    if (event.kind == EventKind::Create) event.parent = ReadProcess(document, "parent");
    if (event.kind == EventKind::Shell) {
        std::optional<std::string> command = MemberOf<std::string>(document, {}, "command");
        if (!command) throw TraceFormatError("\"command\" is missing");
        event.command = std::move(*command);
    }
    event.time = MemberOf<std::uint64_t>(document, {}, "time");
    return event;
}

std::uint64_t Replay(const std::string& path, unsigned threads, EventSink& sink, SignalWatcher& signals) {
    const bool fromStdin = path == "-";
    const int fd = fromStdin ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot read trace " + path + ": " + std::strerror(errno));
    const auto closer = EIL::Core::MakeScopeExit([&] {
        if (!fromStdin) ::close(fd);
    });
    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode)) throw std::runtime_error("cannot read trace " + path + ": it is a directory");

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
                if (++skipped <= NamedSkips)
                    Warn(fmt::format("{}:{}: line skipped: {}", fromStdin ? "stdin" : path, lineNumber, error.what()));
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
