// kalvo-devhost live on the BPF source, end to end, where the kernel lets it load (root, BTF);
// elsewhere (no root, an emulator) each test skips and says why.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "devhost/ValidUtf8.h"
#include "eil/json/RapidJson.h"
#include "tests/devhost_tool/ToolProcess.h"

namespace KALVO::Testing::LiveBpf {
namespace {

namespace fs = std::filesystem;
namespace RJ = EIL::RJ;

constexpr char const* CreatedTypeId = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";

// How many times `part` occurs in `text`.
std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// live on the BPF source, limited to this test's own processes, reporting every event (no
// report limit), with its state in a directory of its own.
struct BpfLive {
    BpfLive() {
        dir = fs::path(::testing::TempDir()) / ("kalvo-bpf-test-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        std::ofstream(dir / "config.json") << R"({"securitymonitor":{"process_tree_report_limit":0}})";
        std::ofstream(dir / "inputrc") << "set input-meta on\nset output-meta on\nset convert-meta off\n";
        tool = std::make_unique<ToolProcess>(
            std::vector<std::string>{"live", "--source", "bpf", "--tree", std::to_string(::getpid()), "--state",
                                     dir.string(), "--config", (dir / "config.json").string()});
        started = tool->WaitFor([](const std::string&, const std::string& err) {
            return err.find("following new ones") != std::string::npos;
        });
    }
    ~BpfLive() {
        tool.reset();
        std::error_code ignored;
        fs::remove_all(dir, ignored);
    }

    // Whether live runs on BPF; if not, its first line says why.
    std::string Why() const { return tool->Err().substr(0, tool->Err().find('\n')); }

    // Waits until `count` lines of the output hold `part`, then stops live; returns its status.
    int StopAfter(std::size_t count, const std::string& part) {
        tool->WaitFor([&](const std::string& out, const std::string&) { return Count(out, part) >= count; });
        tool->Signal(SIGINT);
        return tool->Finish();
    }

    fs::path dir;
    std::unique_ptr<ToolProcess> tool;
    bool started = false;
};

// The reports on live's output, each as the texts at these JSON pointers into its first
// observation (numbers in decimal, "" where there is none).
std::vector<std::vector<std::string>> Reports(const std::string& out, std::initializer_list<char const*> pointers) {
    std::vector<std::vector<std::string>> reports;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        RJ::Document document;
        if (document.Parse(line.c_str()).HasParseError()) continue;
        auto& fields = reports.emplace_back();
        for (char const* pointer : pointers) {
            const RJ::Value* value = RJ::Pointer((std::string("/observations/0") + pointer).c_str()).Get(document);
            if (value && value->IsUint64())
                fields.push_back(std::to_string(value->GetUint64()));
            else
                fields.emplace_back(value && value->IsString() ? value->GetString() : "");
        }
    }
    return reports;
}

TEST(KalvoDevhostBpf, StormOfShortProgramsIsDeliveredWholeWithoutLoss) {
    BpfLive live;
    if (!live.started) GTEST_SKIP() << "BPF source not available here: " << live.Why();

    // As fast as the machine allows: eight at a time, each waited for in turn.
    constexpr int Programs = 2000;
    std::deque<pid_t> running;
    for (int index = 0; index < Programs; ++index) {
        if (running.size() == 8) {
            ::waitpid(running.front(), nullptr, 0);
            running.pop_front();
        }
        const std::string number = std::to_string(index);
        char const* argv[] = {"/bin/true", "storm", number.c_str(), nullptr};
        ASSERT_EQ(
            ::posix_spawn(&running.emplace_back(), "/bin/true", nullptr, nullptr, const_cast<char**>(argv), environ),
            0);
    }
    for (const pid_t child : running) ::waitpid(child, nullptr, 0);
    EXPECT_EQ(live.StopAfter(Programs, "\"command_line\":\"/bin/true storm "), 0) << live.tool->Err();

    const std::string path = fs::canonical("/bin/true").string();
    std::map<std::string, int> seen;
    for (const auto& report :
         Reports(live.tool->Out(), {"/type_id", "/observables/child/command_line", "/observables/child/path"})) {
        if (report[0] == CreatedTypeId && report[1].starts_with("/bin/true storm ")) {
            ++seen[report[1]];
            EXPECT_EQ(report[2], path) << report[1];
        }
    }
    for (int index = 0; index < Programs; ++index) {
        const std::string commandLine = "/bin/true storm " + std::to_string(index);
        EXPECT_EQ(seen[commandLine], 1) << commandLine;
    }
    EXPECT_EQ(live.tool->Err().find("could not hand over"), std::string::npos) << live.tool->Err();
}

TEST(KalvoDevhostBpf, EveryLineTypedIntoBashIsReportedOnceWithItsBytes) {
    BpfLive live;
    if (!live.started) GTEST_SKIP() << "BPF source not available here: " << live.Why();

    // The first is the first line typed after live started; a construct over several lines
    // arrives line by line, as bash's readline returns them.
    const std::vector<std::string> lines = {
        "echo first",
        R"(echo 'single' "double \"inner\"" back\\slash \$HOME)",
        "echo \xff\xfe not UTF-8 \x80 end",
        "echo " + std::string(9995, 'x'),
        "for word in a b; do",
        "echo $word",
        "done",
        "exit",
    };
    int terminal = -1;
    const pid_t bash = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    ASSERT_GE(bash, 0);
    if (bash == 0) {
        ::setenv("INPUTRC", (live.dir / "inputrc").c_str(), 1);
        ::setenv("TERM", "dumb", 1);
        ::setenv("HISTFILE", "/dev/null", 1);
        ::setenv("PS1", "PROMPT>", 1);
        ::setenv("PS2", "PROMPT>", 1);
        ::execl("/bin/bash", "bash", "--norc", "--noprofile", "-i", nullptr);
        ::_exit(127);
    }
    // Types each line once bash prompts for it (a line typed while a command runs would pass
    // through the terminal's line editing, which cuts it at 4 KiB), reading all bash writes
    // so neither side blocks on a full pty.
    std::string shown, pending;
    std::size_t next = 0;
    for (;;) {
        if (pending.empty() && next < lines.size() && Count(shown, "PROMPT>") > next) pending = lines[next++] + "\n";
        pollfd waiting{terminal, static_cast<short>(POLLIN | (pending.empty() ? 0 : POLLOUT)), 0};
        if (::poll(&waiting, 1, 10000) <= 0) break;
        if (waiting.revents & POLLIN) {
            char buffer[4096];
            const ssize_t count = ::read(terminal, buffer, sizeof buffer);
            if (count <= 0) break;  // EIO once bash is gone
            shown.append(buffer, static_cast<std::size_t>(count));
        } else if (waiting.revents & POLLOUT) {
            const ssize_t count = ::write(terminal, pending.data(), std::min<std::size_t>(512, pending.size()));
            if (count > 0) pending.erase(0, static_cast<std::size_t>(count));
        } else {
            break;
        }
    }
    ::close(terminal);
    int status = 0;
    ::waitpid(bash, &status, 0);
    EXPECT_EQ(next, lines.size()) << shown.substr(0, 2000);

    EXPECT_EQ(live.StopAfter(1, "Shell " + fs::canonical("/bin/bash").string() + " received exit"), 0)
        << live.tool->Err();
    std::map<std::string, int> seen;
    for (const auto& report : Reports(live.tool->Out(), {"/observables/command/command", "/observables/process/pid"})) {
        if (!report[0].empty() && report[1] == std::to_string(bash)) ++seen[report[0]];
    }
    for (const std::string& line : lines) {
        // The report shows bytes that are not UTF-8 as U+FFFD, as it shows every text.
        EXPECT_EQ(seen[DevHost::ValidUtf8(line)], 1) << line.substr(0, 60);
    }
    EXPECT_EQ(seen.size(), lines.size()) << "lines reported that were not typed";
}

}  // namespace
}  // namespace KALVO::Testing::LiveBpf
