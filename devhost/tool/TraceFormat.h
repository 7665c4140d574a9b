// The trace format, and the replay of a trace. JSON Lines, one event a line, so a trace can be
// recorded on one machine, read and edited by hand, and replayed into the sensor anywhere:
//
//   {"kind":"create","process":{…},"parent":{…}}
//   {"kind":"exists","process":{…}}            {"kind":"terminate","process":{…}}
//   {"kind":"shell","process":{…},"command":"ls -la"}
//
// Any event may carry "time", when it happened in nanoseconds since the epoch (recorded traces
// always do), from which a forecast scales a trace's volume to a day.
// A process is {"pid":N,"ppid":N,"path":"…","command_line":"…","uid":"…","user_id":N,
// "user":"…","start_time":N} with the names of the host's process view; every member may be
// left out (path or command_line null or absent: the host answers null). Unknown members are
// ignored, so traces stay readable by older builds.
//
// A replay delivers the events on one thread in the trace's order or on several at once (as the
// agent delivers events on several threads). The trace is streamed, so it may be of any length
// and may come from a pipe ("-" reads stdin) while it is written. Malformed lines are skipped,
// each named by its line number; the rest is delivered. So is a line over TraceLineLimit, without
// being held whole: a trace without line feeds cannot take all memory.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <iterator>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "devhost/ValidUtf8.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/EventSink.h"
#include "eil/core/ScopeGuard.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

// The kinds' spelling in a trace.
inline std::string_view TraceKindName(EventKind kind) noexcept {
    switch (kind) {
    case EventKind::Create: return "create";
    case EventKind::Exists: return "exists";
    case EventKind::Terminate: return "terminate";
    case EventKind::Shell: return "shell";
    }
    return "unknown";
}

inline std::optional<EventKind> TraceKindFromName(std::string_view name) noexcept {
    for (const EventKind kind : {EventKind::Create, EventKind::Exists, EventKind::Terminate, EventKind::Shell}) {
        if (TraceKindName(kind) == name) return kind;
    }
    return std::nullopt;
}

inline void WriteProcess(EIL::RJ::Writer<EIL::RJ::StringBuffer>& writer, const ProcessRecord& process) {
    const auto number = [&](char const* name, std::uint64_t value) {
        writer.Key(name);
        writer.Uint64(value);
    };
    const auto text = [&](char const* name, std::string_view value) {
        writer.Key(name);
        WriteJsonText(writer, value);
    };
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

// One line of JSON, without the line feed. Bytes that are not UTF-8 are written as U+FFFD,
// so every line is valid JSON for any reader. Throws std::bad_alloc only.
inline std::string FormatTraceLine(const TraceEvent& event) {
    EIL::RJ::StringBuffer buffer;
    EIL::RJ::Writer<EIL::RJ::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("kind");
    WriteJsonText(writer, TraceKindName(event.kind));
    writer.Key("process");
    WriteProcess(writer, event.process);
    if (event.kind == EventKind::Create) {
        writer.Key("parent");
        WriteProcess(writer, event.parent.value_or(ProcessRecord{}));
    }
    if (event.kind == EventKind::Shell) {
        writer.Key("command");
        WriteJsonText(writer, event.command);
    }
    if (event.time) {
        writer.Key("time");
        writer.Uint64(*event.time);
    }
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

// The member `name` of `object` (`owner` prefixes its name in messages): nothing when absent
// (or null, where `nullable`), else a value of type T (std::uint64_t or std::string), else
// std::invalid_argument.
template <class T>
std::optional<T> MemberOf(const EIL::RJ::Value& object, std::string_view owner, char const* name,
                          bool nullable = false) {
    const auto member = object.FindMember(name);
    if (member == object.MemberEnd() || (nullable && member->value.IsNull())) return std::nullopt;
    const EIL::RJ::Value& value = member->value;
    constexpr bool text = std::is_same_v<T, std::string>;
    if constexpr (text) {
        if (value.IsString()) return std::string(value.GetString(), value.GetStringLength());
    } else if (value.IsUint64()) {
        return value.GetUint64();
    }
    throw std::invalid_argument(fmt::format("{}\"{}\" is not {}", owner, name,
                                            !text      ? "an unsigned integer"
                                            : nullable ? "a string or null"
                                                       : "a string"));
}

inline ProcessRecord ReadProcess(const EIL::RJ::Value& document, char const* name) {
    const auto member = document.FindMember(name);
    if (member == document.MemberEnd()) throw std::invalid_argument(fmt::format("\"{}\" is missing", name));
    if (!member->value.IsObject()) throw std::invalid_argument(fmt::format("\"{}\" is not an object", name));
    const EIL::RJ::Value& object = member->value;
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

// Parses one line. Strings are taken byte for byte, valid UTF-8 or not, so a hand-made trace
// can hand the sensor any bytes. Nesting is parsed without recursion. A line that is not an
// event throws std::invalid_argument, whose message says what is wrong with it in one line.
inline TraceEvent ParseTraceLine(std::string_view line) {
    EIL::RJ::Document document;
    document.Parse<EIL::RJ::kParseIterativeFlag>(line.data(), line.size());
    if (document.HasParseError())
        throw std::invalid_argument(fmt::format("not JSON: {} (column {})",
                                                EIL::RJ::GetParseError_En(document.GetParseError()),
                                                document.GetErrorOffset() + 1));
    if (!document.IsObject()) throw std::invalid_argument("not a JSON object");
    const std::optional<std::string> kindName = MemberOf<std::string>(document, {}, "kind");
    if (!kindName) throw std::invalid_argument("\"kind\" is missing");
    const std::optional<EventKind> kind = TraceKindFromName(*kindName);
    if (!kind) throw std::invalid_argument("unknown \"kind\" (create, exists, terminate or shell)");

    TraceEvent event{.kind = *kind, .process = ReadProcess(document, "process")};
    if (event.kind == EventKind::Create) event.parent = ReadProcess(document, "parent");
    if (event.kind == EventKind::Shell) {
        std::optional<std::string> command = MemberOf<std::string>(document, {}, "command");
        if (!command) throw std::invalid_argument("\"command\" is missing");
        event.command = std::move(*command);
    }
    event.time = MemberOf<std::uint64_t>(document, {}, "time");
    return event;
}

// Appends what `fd` has to `buffer`, waiting at most 200 ms at a time so that a replay fed from
// a pipe still notices a stop request. False at the end of the input or on a stop request.
inline bool ReadMore(int fd, std::string& buffer, const SignalWatcher& signals) {
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

// Longer than any event a recorder writes (two records and a command).
inline constexpr std::size_t TraceLineLimit = std::size_t{64} << 20;

// Delivers the trace at `path` ("-": stdin) on `threads` threads until its end or a stop
// request; returns how many malformed lines were skipped (the first 20 named, so that a trace
// wrong throughout does not bury everything else). Throws std::runtime_error when the trace
// cannot be opened or read, and what the sink throws. `lineLimit` is TraceLineLimit but in tests.
inline std::uint64_t Replay(const std::string& path, unsigned threads, EventSink& sink, SignalWatcher& signals,
                            std::size_t lineLimit = TraceLineLimit) {
    constexpr std::uint64_t namedSkips = 20;
    const bool fromStdin = path == "-";
    // stdin is read through a copy of its descriptor, so either is closed the same way.
    const int fd = fromStdin ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0) : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) throw std::runtime_error("cannot read trace " + path + ": " + std::strerror(errno));
    const auto closer = EIL::Core::MakeScopeExit([fd] { ::close(fd); });
    struct stat status {};
    if (::fstat(fd, &status) == 0 && S_ISDIR(status.st_mode))
        throw std::runtime_error("cannot read trace " + path + ": it is a directory");

    // Every thread reads its next event itself, under the lock, and delivers it outside; the
    // first failure stops them all and is thrown once they are joined.
    std::mutex mutex;
    std::string buffer;
    std::size_t start = 0;  // of the next line in `buffer`
    std::uint64_t lineNumber = 0;
    std::uint64_t skipped = 0;
    bool more = true;       // the input has not ended
    bool overlong = false;  // the bytes up to the next line feed end a line over the limit
    std::exception_ptr failure;
    const auto skip = [&](std::string_view why) {
        if (++skipped <= namedSkips)
            Warn(fmt::format("{}:{}: line skipped: {}", fromStdin ? "stdin" : path, lineNumber, why));
        if (skipped == namedSkips + 1) Warn("further skipped lines are only counted");
    };
    const std::string tooLong = fmt::format("longer than {} MiB", lineLimit >> 20);
    const auto next = [&]() -> std::optional<TraceEvent> {
        std::lock_guard lock(mutex);
        while (!failure) {
            std::size_t end = buffer.find('\n', start);
            if (end == std::string::npos) {
                buffer.erase(0, start);
                start = 0;
                if (buffer.size() > lineLimit) {
                    // Skipped as soon as it is too long; the rest of it is dropped as it comes.
                    if (!overlong) {
                        ++lineNumber;
                        skip(tooLong);
                    }
                    overlong = true;
                    buffer.clear();
                }
                if (more) more = ReadMore(fd, buffer, signals);
                if (more) continue;
                if (signals.StopRequested() || buffer.empty()) break;
                end = buffer.size();  // a last line without a line feed
            }
            const std::string_view line(buffer.data() + start, end - start);
            start = std::min(end + 1, buffer.size());
            if (std::exchange(overlong, false)) continue;  // the end of a line already skipped
            ++lineNumber;
            if (line.find_first_not_of(" \t\r") == std::string_view::npos) continue;  // blank lines are harmless
            if (line.size() > lineLimit) {
                skip(tooLong);
                continue;
            }
            try {
                return ParseTraceLine(line);
            } catch (const std::invalid_argument& error) {
                skip(error.what());
            }
        }
        return std::nullopt;
    };
    const auto work = [&] {
        try {
            while (std::optional<TraceEvent> event = next()) sink.Deliver(std::move(*event));
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
