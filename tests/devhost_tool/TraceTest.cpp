// The trace format: each malformed form refused with its fault, every kind read back field for
// field, and the reader's framing: line numbers in its messages, a last line without a line
// feed, stdin, and a line over the limit skipped without being held whole.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>

#include "devhost/tool/TraceFormat.h"
#include "tests/devhost_tool/ToolTesting.h"
#include "tests/support/ErrorOf.h"

namespace KALVO::Testing {
namespace {

auto Fields(const ProcessRecord& p) {
    return std::tuple(p.pid, p.parentPid, p.path, p.commandLine, p.uid, p.userId, p.user, p.startTime);
}

auto Fields(const TraceEvent& e) {
    return std::tuple(e.kind, Fields(e.process), e.parent ? std::optional(Fields(*e.parent)) : std::nullopt, e.command,
                      e.time);
}

TEST(TraceFormat, MalformedLinesAreRefusedWithTheirFault) {
    const struct {
        char const* line;
        char const* message;
    } rows[] = {
        {R"({"kind":"exists",})", "not JSON: Missing a name for object member. (column 18)"},
        {R"({"process":{}})", R"("kind" is missing)"},
        {R"({"kind":"fork"})", R"(unknown "kind" (create, exists, terminate or shell))"},
        {R"({"kind":"exists"})", R"("process" is missing)"},
        {R"({"kind":"exists","process":[]})", R"("process" is not an object)"},
        {R"({"kind":"exists","process":{"pid":-1}})", R"("process"."pid" is not an unsigned integer)"},
        {R"({"kind":"exists","process":{"path":1}})", R"("process"."path" is not a string or null)"},
        {R"({"kind":"exists","process":{"uid":null}})", R"("process"."uid" is not a string)"},
        {R"({"kind":"create","process":{}})", R"("parent" is missing)"},
        {R"({"kind":"shell","process":{}})", R"("command" is missing)"},
        {R"({"kind":"terminate","process":{},"time":1.5})", R"("time" is not an unsigned integer)"},
    };
    for (const auto& row : rows) EXPECT_EQ(ErrorOf([&] { ParseTraceLine(row.line); }), row.message) << row.line;
}

TEST(TraceFormat, EveryKindReadsBackFieldForField) {
    // JSON's escapes, a NUL, characters beyond ASCII and one outside the basic plane.
    const std::string odd = std::string("\"\\/\b\x01\t\n\0", 8) + "\u00e9\u2028\U0001F600";
    const ProcessRecord full{.pid = UINT64_MAX,
                             .parentPid = 1,
                             .path = "/p" + odd,
                             .commandLine = "c" + odd,
                             .uid = "u" + odd,
                             .userId = 0,
                             .user = "n" + odd,
                             .startTime = 7};
    for (const EventKind kind : {EventKind::Create, EventKind::Exists, EventKind::Terminate, EventKind::Shell}) {
        TraceEvent event{kind, full};
        if (kind == EventKind::Create) event.parent = ProcessRecord{.pid = 2, .path = "", .commandLine = ""};
        if (kind == EventKind::Shell) event.command = "cmd" + odd;
        if (kind != EventKind::Exists) event.time = 1;
        const std::string line = FormatTraceLine(event);
        EXPECT_EQ(Fields(ParseTraceLine(line)), Fields(event)) << line;
    }
    // Other bytes are written as U+FFFD, so that every line is JSON to any reader.
    TraceEvent shell{EventKind::Shell, {}};
    shell.command = "a\xff";
    EXPECT_EQ(ParseTraceLine(FormatTraceLine(shell)).command, "a\uFFFD");
}

TEST(TraceFormat, ReplaySkipsBadLinesByNumberAndDeliversTheRest) {
    const std::string event = R"({"kind":"exists","process":{"pid":7}})";
    const std::string file = ScratchPath("trace.jsonl");
    constexpr std::size_t limit = std::size_t{1} << 20;
    const struct {
        std::string trace;
        bool fromStdin;
        std::uint64_t delivered;
        std::string messages;
    } rows[] = {
        // A blank line counts; a last line of exactly the limit needs no line feed.
        {event + "\n \r\nnot json\n" + event + std::string(limit - event.size(), ' '), false, 2,
         file + ":3: line skipped: not JSON"},
        {"[]\n" + event + "\n", true, 1, "stdin:1: line skipped: not a JSON object"},
        // Over the limit: skipped whether it ends within one read or only far after.
        {event + "\n" + std::string(limit + 1, ' ') + "x\n" + event, false, 2, ":2: line skipped: longer than 1 MiB"},
        {std::string(limit * 3, 'x') + "\n" + event + "\n[]", false, 1,
         ":1: line skipped: longer than 1 MiB\nkalvo-devhost: warning: " + file + ":3: line skipped: not a JSON"},
        // 21 malformed lines: the first 20 named, the rest only counted.
        {"1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n", false, 0,
         ":20: line skipped: not a JSON object\nkalvo-devhost: warning: further skipped lines are only counted\n"},
    };
    for (const auto& row : rows) {
        WriteFile(file, row.trace);
        Recorder recorder;
        SignalWatcher signals;
        std::uint64_t skipped = 0;
        const std::string messages = StderrOf([&] {
            const int saved = ::dup(STDIN_FILENO);
            const int input = ::open(file.c_str(), O_RDONLY);
            ::dup2(input, STDIN_FILENO);
            skipped = Replay(row.fromStdin ? "-" : file, 1, recorder, signals, limit);
            ::dup2(saved, STDIN_FILENO);
            ::close(input);
            ::close(saved);
        });
        EXPECT_EQ(recorder.events.size(), row.delivered) << messages;
        EXPECT_NE(messages.find(row.messages), std::string::npos) << messages;
        EXPECT_EQ(skipped, static_cast<std::uint64_t>(std::count(messages.begin(), messages.end(), '\n'))) << messages;
    }
}

}  // namespace
}  // namespace KALVO::Testing
