// kalvo-devhost end to end: the built program run as a user runs it, on traces made here, on
// the shipped example trace, and on this machine's own processes (none of them assumed to
// exist but the test's own and those it starts).
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "devhost/SqliteStore.h"
#include "eil/json/RapidJson.h"
#include "tests/devhost_tool/ToolProcess.h"

extern char** environ;

namespace KALVO::Testing {
namespace {

namespace fs = std::filesystem;
namespace RJ = EIL::RJ;

constexpr char const* CreatedTypeId = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";
constexpr char const* ExistsTypeId = "6e7f8c8a-9213-4020-aeb1-d8d608c63d78";

// The shipped example trace: its events by kind, and the creations the sensor reports of it
// with no configuration and with the example configuration (collapse expression, limit 2).
constexpr std::uint64_t ExampleCreate = 173;
constexpr std::uint64_t ExampleExists = 6;
constexpr std::uint64_t ExampleTerminate = 170;
constexpr std::uint64_t ExampleCreatedReported = 173;
constexpr std::uint64_t ExampleCreatedReportedConfigured = 49;

// A directory of the test's own, removed with everything in it.
class TempDir {
public:
    TempDir() {
        std::string pattern = (fs::temp_directory_path() / "kalvo-devhost-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        m_path = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(m_path, ignored);
    }
    std::string operator/(std::string_view name) const { return (m_path / name).string(); }
    std::string Path() const { return m_path.string(); }

private:
    fs::path m_path;
};

void WriteFile(const std::string& path, std::string_view text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
}

std::string Example(std::string_view name) { return std::string(KALVO_SOURCE_DIR) + "/examples/" + std::string(name); }

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

std::size_t CountContaining(const std::string& text, std::string_view part) {
    std::size_t count = 0;
    for (const std::string& line : Lines(text)) count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
}

struct Summary {
    std::uint64_t create = 0, exists = 0, terminate = 0, shell = 0;
    std::uint64_t filtered = 0, suppressed = 0, reported = 0;
    std::uint64_t reportedCreated = 0, reportedExists = 0, reportedShell = 0;
};

std::optional<Summary> ParseSummary(const std::string& err) {
    static const std::regex delivered(
        R"(delivered \d+ events: create (\d+), exists (\d+), terminate (\d+), shell (\d+))");
    static const std::regex outcome(
        R"(of \d+ reportable \(create, exists, shell\): filtered (\d+), suppressed (\d+), reported (\d+) )"
        R"(\(created (\d+), exists (\d+), shell (\d+)\))");
    std::smatch first, second;
    if (!std::regex_search(err, first, delivered) || !std::regex_search(err, second, outcome)) return std::nullopt;
    const auto number = [](const std::ssub_match& match) { return std::stoull(match.str()); };
    return Summary{number(first[1]),  number(first[2]),  number(first[3]),  number(first[4]),
                   number(second[1]), number(second[2]), number(second[3]), number(second[4]),
                   number(second[5]), number(second[6])};
}

// Parsed reported events, one per stdout line.
std::vector<RJ::Document> Events(const std::string& out) {
    std::vector<RJ::Document> events;
    for (const std::string& line : Lines(out)) {
        RJ::Document document;
        document.Parse(line.c_str());
        EXPECT_FALSE(document.HasParseError()) << "not JSON: " << line;
        EXPECT_TRUE(document.IsObject() && document.HasMember("observations")) << line;
        events.push_back(std::move(document));
    }
    return events;
}

const RJ::Value& FirstObservation(const RJ::Document& event) { return event["observations"][0]; }

// The member `name` of the observable `observable` of an event's first observation.
std::optional<std::string> ObservableText(const RJ::Document& event, char const* observable, char const* name) {
    const RJ::Value& observables = FirstObservation(event)["observables"];
    if (!observables.HasMember(observable) || !observables[observable].HasMember(name)) return std::nullopt;
    const RJ::Value& value = observables[observable][name];
    if (value.IsString()) return std::string(value.GetString(), value.GetStringLength());
    if (value.IsUint64()) return std::to_string(value.GetUint64());
    return std::nullopt;
}

// Reported existences: the uid of each process reported, with its pid and start time.
struct Existence {
    std::string uid;
    std::uint64_t pid = 0;
    std::uint64_t startTime = 0;
};

std::vector<Existence> Existences(const std::string& out) {
    std::vector<Existence> found;
    for (const RJ::Document& event : Events(out)) {
        if (std::string(FirstObservation(event)["type_id"].GetString()) != ExistsTypeId) continue;
        found.push_back(Existence{ObservableText(event, "process", "uid").value_or(""),
                                  std::stoull(ObservableText(event, "process", "pid").value_or("0")),
                                  std::stoull(ObservableText(event, "process", "start_time").value_or("0"))});
    }
    return found;
}

std::string ProcessJson(std::uint64_t pid, std::string_view path, std::string_view commandLine) {
    return R"({"pid":)" + std::to_string(pid) + R"(,"ppid":1,"path":")" + std::string(path) + R"(","command_line":")" +
           std::string(commandLine) + R"(","uid":"test:)" + std::to_string(pid) + R"("})";
}

std::string ShellLine(std::string_view command) {
    return R"({"kind":"shell","process":)" + ProcessJson(700, "/bin/bash", "bash") + R"(,"command":")" +
           std::string(command) + "\"}\n";
}

std::string CreateLine(std::uint64_t pid, std::string_view path, std::string_view commandLine) {
    return R"({"kind":"create","process":)" + ProcessJson(pid, path, commandLine) +
           R"(,"parent":)" + ProcessJson(700, "/bin/bash", "bash") + "}\n";
}

std::string Limit(int limit) {
    return R"({"securitymonitor":{"process_tree_report_limit":)" + std::to_string(limit) + "}}";
}

// ---------------------------------------------------------------------------------------------
// Replays

TEST(KalvoDevhost, ReplayOfTheExampleTraceGivesItsKnownCounts) {
    struct Case {
        std::vector<std::string> options;
        std::uint64_t reportedCreated;
        // Two first occurrences of a key delivered at the same moment may both be reported,
        // so on several threads the creations reported are at least as many, not exactly.
        bool exact;
    };
    // Measured on the shipped trace; the README quotes the same numbers.
    const Case cases[] = {
        {{}, ExampleCreatedReported, true},
        {{"--config", Example("securitymonitor.json")}, ExampleCreatedReportedConfigured, true},
        {{"--config", Example("securitymonitor.json"), "--threads", "4"}, ExampleCreatedReportedConfigured, false},
    };
    for (const Case& c : cases) {
        std::vector<std::string> arguments = {"replay", Example("trace.jsonl")};
        arguments.insert(arguments.end(), c.options.begin(), c.options.end());
        const ToolRun run = RunTool(arguments);
        const std::string input = ::testing::PrintToString(c.options);
        ASSERT_EQ(run.status, 0) << input << "\n" << run.err;
        const std::optional<Summary> summary = ParseSummary(run.err);
        ASSERT_TRUE(summary) << input << "\n" << run.err;
        EXPECT_EQ(summary->create, ExampleCreate) << input;
        EXPECT_EQ(summary->exists, ExampleExists) << input;
        EXPECT_EQ(summary->terminate, ExampleTerminate) << input;
        if (c.exact) {
            EXPECT_EQ(summary->reportedCreated, c.reportedCreated) << input;
        } else {
            EXPECT_GE(summary->reportedCreated, c.reportedCreated) << input;
        }
        EXPECT_EQ(summary->reportedExists, ExampleExists) << input;
        EXPECT_EQ(summary->filtered, 0u) << input;
        EXPECT_EQ(summary->suppressed, summary->create + summary->exists - summary->reported) << input;
        EXPECT_EQ(Events(run.out).size(), summary->reported) << input;
    }
}

TEST(KalvoDevhost, MalformedTraceLinesAreSkippedByLineNumberAndTheRestDelivered) {
    TempDir dir;
    const std::string lines[] = {
        CreateLine(10, "/usr/bin/make", "make"),
        "not json at all\n",
        "[1,2]\n",
        R"({"kind":"explode","process":{}})" "\n",
        R"({"kind":"create","process":{"pid":3}})" "\n",
        R"({"kind":"exists","process":{"pid":-4}})" "\n",
        R"({"kind":"shell","process":{"pid":5}})" "\n",
        "\n",
        std::string(100000, '[') + "\n",  // deep nesting: refused, not a crash
        ShellLine("ls"),
        R"({"kind":"exists","process":{"pid":11,"path":null,"uid":"x"}})",  // no final line feed
    };
    std::string trace;
    for (const std::string& line : lines) trace += line;
    WriteFile(dir / "trace.jsonl", trace);

    const ToolRun run = RunTool({"replay", dir / "trace.jsonl"});
    ASSERT_EQ(run.status, 0) << run.err;
    for (const int number : {2, 3, 4, 5, 6, 7, 9}) {
        EXPECT_NE(run.err.find(dir / "trace.jsonl" + ":" + std::to_string(number) + ": line skipped: "), std::string::npos)
            << "line " << number << "\n" << run.err;
    }
    EXPECT_EQ(CountContaining(run.err, "line skipped"), 7u) << run.err;
    EXPECT_NE(run.err.find(R"("parent" is missing)"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(R"("process"."pid" is not an unsigned integer)"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("skipped 7 malformed line(s)"), std::string::npos) << run.err;
    const std::optional<Summary> summary = ParseSummary(run.err);
    ASSERT_TRUE(summary) << run.err;
    EXPECT_EQ(summary->create + summary->exists + summary->shell, 3u);
    EXPECT_EQ(summary->reported, 3u);
}

TEST(KalvoDevhost, NewReportLimitIsServedOnSighupAndOnFileChange) {
    TempDir dir;
    const std::string config = dir / "config.json";
    WriteFile(config, Limit(1));
    ToolProcess tool({"replay", "-", "--config", config});
    const auto makeReports = [&] { return CountContaining(tool.Out(), "received make all"); };
    const auto reported = [&](std::string_view marker) {
        return [marker](const std::string& out, const std::string&) { return out.find(marker) != std::string::npos; };
    };
    const auto reloads = [](std::size_t count) {
        return [count](const std::string&, const std::string& err) { return CountContaining(err, "served again") >= count; };
    };

    // The single thread delivers in order: once a marker is reported, everything before it is done.
    tool.Write(ShellLine("make all") + ShellLine("make all") + ShellLine("make all") + ShellLine("marker-1"));
    ASSERT_TRUE(tool.WaitFor(reported("marker-1"))) << tool.Err();
    EXPECT_EQ(makeReports(), 1u);

    // The same size and modification time: only the signal can make it served again.
    struct stat before {};
    ASSERT_EQ(::stat(config.c_str(), &before), 0);
    WriteFile(config, Limit(5));
    const timespec times[2] = {before.st_atim, before.st_mtim};
    ASSERT_EQ(::utimensat(AT_FDCWD, config.c_str(), times, 0), 0);
    tool.Signal(SIGHUP);
    ASSERT_TRUE(tool.WaitFor(reloads(1))) << tool.Err();
    tool.Write(ShellLine("make all") + ShellLine("make all") + ShellLine("marker-2"));
    ASSERT_TRUE(tool.WaitFor(reported("marker-2"))) << tool.Err();
    EXPECT_EQ(makeReports(), 3u);  // the 4th and 5th are within the new limit

    // A changed file is noticed without a signal; the counts carry on (6th, 7th > 2).
    WriteFile(config, Limit(2) + "\n");
    ASSERT_TRUE(tool.WaitFor(reloads(2))) << tool.Err();
    tool.Write(ShellLine("make all") + ShellLine("make all") + ShellLine("marker-3"));
    ASSERT_TRUE(tool.WaitFor(reported("marker-3"))) << tool.Err();
    EXPECT_EQ(makeReports(), 3u);

    ASSERT_EQ(tool.Finish(), 0) << tool.Err();
    const std::optional<Summary> summary = ParseSummary(tool.Err());
    ASSERT_TRUE(summary) << tool.Err();
    EXPECT_EQ(summary->shell, 10u);
    EXPECT_EQ(summary->reported, 6u);
    EXPECT_EQ(summary->suppressed, 4u);
}

// ---------------------------------------------------------------------------------------------
// This machine's processes

TEST(KalvoDevhost, SecondLiveRunReportsOnlyProcessesTheFirstDidNotSee) {
    TempDir dir;
    const std::time_t started = std::time(nullptr);
    const ToolRun first = RunTool({"live", "--duration", "1", "--state", dir.Path()});
    ASSERT_EQ(first.status, 0) << first.err;
    const ToolRun second = RunTool({"live", "--duration", "1", "--state", dir.Path()});
    ASSERT_EQ(second.status, 0) << second.err;

    const std::vector<Existence> before = Existences(first.out);
    const std::vector<Existence> after = Existences(second.out);
    std::set<std::string> known;
    bool sawThisTest = false;
    for (const Existence& existence : before) {
        known.insert(existence.uid);
        sawThisTest = sawThisTest || existence.pid == static_cast<std::uint64_t>(::getpid());
    }
    EXPECT_TRUE(sawThisTest) << first.out;
    EXPECT_LT(after.size(), before.size()) << second.out;
    for (const Existence& existence : after) {
        EXPECT_FALSE(known.contains(existence.uid)) << "reported twice: " << existence.uid;
        EXPECT_NE(existence.pid, static_cast<std::uint64_t>(::getpid()));
        // Only processes started since the first run began (start times are whole seconds).
        EXPECT_GE(existence.startTime + 2, static_cast<std::uint64_t>(started)) << existence.uid;
    }
    const std::optional<Summary> summary = ParseSummary(second.err);
    ASSERT_TRUE(summary) << second.err;
    EXPECT_EQ(summary->reportedExists, after.size());
    EXPECT_GT(summary->exists, summary->reportedExists);
}

TEST(KalvoDevhost, LiveReportsAProgramStartedWhileItRunsAndSavesStateOnSigint) {
    TempDir dir;
    ToolProcess tool({"live", "--state", dir.Path()});
    ASSERT_TRUE(tool.WaitFor([](const std::string&, const std::string& err) {
        return err.find("running process(es); following new ones") != std::string::npos;
    })) << tool.Err();

    pid_t sleeper = -1;
    char const* argv[] = {"sleep", "3", nullptr};
    ASSERT_EQ(::posix_spawnp(&sleeper, "sleep", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
    const std::string pid = "\"pid\":" + std::to_string(sleeper) + ",";
    const bool seen = tool.WaitFor([&](const std::string& out, const std::string&) {
        for (const std::string& line : Lines(out)) {
            if (line.find(CreatedTypeId) != std::string::npos && line.find(pid) != std::string::npos &&
                line.find("sleep 3") != std::string::npos)
                return true;
        }
        return false;
    });
    tool.Signal(SIGINT);
    const int status = tool.Finish();
    ::kill(sleeper, SIGKILL);
    ::waitpid(sleeper, nullptr, 0);

    EXPECT_TRUE(seen) << tool.Out() << tool.Err();
    EXPECT_EQ(status, 0) << tool.Err();
    EXPECT_TRUE(ParseSummary(tool.Err())) << tool.Err();
    const std::optional<std::string> saved =
        DevHost::SqliteStore(dir / "storage.sqlite3").Read("securitymonitor", "CachedProcessUIDs");
    ASSERT_TRUE(saved);
    EXPECT_NE(saved->find(":" + std::to_string(::getpid()) + ":"), std::string::npos) << *saved;
}

TEST(KalvoDevhost, RecordedTraceReplaysEventForEvent) {
    for (const bool poll : {false, true}) {
        std::vector<std::string> arguments = {"record", "--duration", "0.5", "--tree", std::to_string(::getpid())};
        if (poll) arguments.emplace_back("--poll");
        const ToolRun recorded = RunTool(arguments);
        ASSERT_EQ(recorded.status, 0) << "poll " << poll << "\n" << recorded.err;
        const std::vector<std::string> lines = Lines(recorded.out);
        std::size_t exists = 0;
        bool sawThisTest = false;
        for (const std::string& line : lines) {
            RJ::Document event;
            event.Parse(line.c_str());
            ASSERT_TRUE(event.IsObject()) << line;
            if (std::string(event["kind"].GetString()) != "exists") continue;
            ++exists;
            sawThisTest = sawThisTest || event["process"]["pid"].GetUint64() == static_cast<std::uint64_t>(::getpid());
        }
        EXPECT_TRUE(sawThisTest) << "poll " << poll << "\n" << recorded.out;

        const ToolRun replayed = RunTool({"replay", "-"}, recorded.out);
        ASSERT_EQ(replayed.status, 0) << replayed.err;
        const std::optional<Summary> summary = ParseSummary(replayed.err);
        ASSERT_TRUE(summary) << replayed.err;
        EXPECT_EQ(summary->create + summary->exists + summary->terminate, lines.size()) << "poll " << poll;
        EXPECT_EQ(summary->reportedExists, exists) << "poll " << poll;
    }
}

// ---------------------------------------------------------------------------------------------
// Bad use

TEST(KalvoDevhost, BadUseEndsWithOneClearLine) {
    TempDir dir;
    const std::string trace = dir / "trace.jsonl";
    WriteFile(trace, ShellLine("ls"));
    WriteFile(dir / "malformed.json", "{\"securitymonitor\": ");
    WriteFile(dir / "array.json", "[1]");
    WriteFile(dir / "plain-file", "");

    struct Case {
        std::vector<std::string> arguments;
        int status;
        std::string message;
    };
    const Case cases[] = {
        {{"live", "--bogus"}, 2, "not expected: --bogus"},
        {{"-x"}, 2, "not expected: -x"},
        {{}, 2, "no command given"},
        {{"launch"}, 2, "not expected: launch"},
        {{"replay"}, 2, "trace is required"},
        {{"replay", trace, "extra"}, 2, "not expected: extra"},
        {{"live", "--threads", "2"}, 2, "--threads"},
        {{"live", "--duration", "soon"}, 2, "--duration: 'soon' is not a positive number of seconds"},
        {{"live", "--config"}, 2, "--config: 1 required TEXT missing"},
        {{"replay", trace, "--fail", "Nothing=1"}, 2, "--fail Nothing=1: "},
        {{"replay", trace, "--plugin", dir / "absent.so"}, 1, "plug-in library not found: " + dir / "absent.so"},
        {{"replay", trace, "--plugin", DEVHOST_TOOL_NO_ENTRY}, 1, "does not export CreateInstance"},
        {{"replay", trace, "--config", dir / "absent.json"}, 1, "cannot read configuration " + dir / "absent.json"},
        {{"replay", trace, "--config", dir / "malformed.json"}, 1, "is not JSON"},
        {{"replay", trace, "--config", dir / "array.json"}, 1, "is not a JSON object"},
        {{"replay", dir / "absent.jsonl"}, 1, "cannot read trace " + dir / "absent.jsonl"},
        {{"replay", trace, "--state", dir / "plain-file/state"}, 1, "cannot create state directory"},
        {{"live", "--state", dir / "plain-file"}, 1, "cannot create state directory"},
    };
    for (const Case& c : cases) {
        const ToolRun run = RunTool(c.arguments);
        const std::string input = ::testing::PrintToString(c.arguments);
        EXPECT_EQ(run.status, c.status) << input << "\n" << run.err;
        EXPECT_EQ(Lines(run.err).size(), 1u) << input << "\n" << run.err;
        EXPECT_TRUE(run.err.starts_with("kalvo-devhost: ")) << input << "\n" << run.err;
        EXPECT_NE(run.err.find(c.message), std::string::npos) << input << "\n" << run.err;
        EXPECT_EQ(run.out, "") << input;
    }
}

TEST(KalvoDevhost, FailedStartEndsTheRunAfterTheSensorSaysWhy) {
    TempDir dir;
    WriteFile(dir / "trace.jsonl", ShellLine("ls"));
    const ToolRun run = RunTool({"replay", dir / "trace.jsonl", "--fail", "RegisterProcessMonitor=13"});
    EXPECT_EQ(run.status, 1);
    const std::vector<std::string> lines = Lines(run.err);
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back(), "kalvo-devhost: the sensor's Start failed with code 100 (its log lines above say why)");
    EXPECT_GT(lines.size(), 1u) << "the sensor's own error lines are shown";
    EXPECT_EQ(run.out, "");
}

}  // namespace
}  // namespace KALVO::Testing
