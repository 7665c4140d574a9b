// kalvo-devhost live on the BPF source, end to end. Each test skips only where BPF cannot load
// at all (not root, no BTF, a build without libbpf, a foreign build run through an emulator,
// which has no bpf() system call) and says which; elsewhere a failure to load or attach fails.
#include <gtest/gtest.h>

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "devhost/ValidUtf8.h"
#include "eil/json/RapidJson.h"
#include "tests/devhost_tool/ToolTesting.h"

namespace KALVO::Testing::LiveBpf {
namespace {

namespace fs = std::filesystem;
namespace RJ = EIL::RJ;

constexpr char const* CreatedTypeId = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";

// live on the BPF source, limited to this test's own processes, reporting every event (no
// report limit), with its state in a directory of its own; Start() runs it, so that a test
// may set something up first.
struct BpfLive {
    BpfLive() {
        fs::create_directories(dir);
        std::ofstream(dir / "config.json") << R"({"securitymonitor":{"process_tree_report_limit":0}})";
        std::ofstream(dir / "inputrc") << "set input-meta on\nset output-meta on\nset convert-meta off\n";
    }
    void Start() {
        tool = std::make_unique<ToolProcess>(
            std::vector<std::string>{"live", "--source", "bpf", "--tree", std::to_string(::getpid()), "--state",
                                     dir.string(), "--config", (dir / "config.json").string()});
        const bool started = tool->WaitFor([](const std::string&, const std::string& err) {
            return err.find("following new ones") != std::string::npos;
        });
        ASSERT_TRUE(started) << "live --source bpf did not start: " << tool->Err();
    }
    // Waits until the output holds `part`, then stops live; returns its status.
    int StopAfter(const std::string& part) {
        tool->WaitFor([&](const std::string& out, const std::string&) { return out.find(part) != std::string::npos; });
        tool->Signal(SIGINT);
        return tool->Finish();
    }

    const fs::path dir = ScratchPath("bpf");
    std::unique_ptr<ToolProcess> tool;
};

class KalvoDevhostBpf : public ::testing::Test {
protected:
    void SetUp() override {
#ifndef KALVO_BPF
        GTEST_SKIP() << "this build has no libbpf";
#endif
        if (::geteuid() != 0) GTEST_SKIP() << "not root";
        if (!fs::exists("/sys/kernel/btf/vmlinux")) GTEST_SKIP() << "no /sys/kernel/btf/vmlinux";
        if (!std::string(KALVO_TOOL_LAUNCHER).empty()) GTEST_SKIP() << "run through an emulator: no bpf() there";
    }
};

// A program under a pseudo-terminal of the test's own, started before live where the test
// wants it: each line is typed once the prompt before it has appeared, and everything the
// program writes is read so that neither side blocks on a full terminal.
struct Terminal {
    Terminal(char const* file, const std::vector<char const*>& arguments, const std::vector<std::string>& env) {
        pid = ::forkpty(&fd, nullptr, nullptr, nullptr);
        if (pid != 0) return;
        for (const std::string& setting : env) ::putenv(const_cast<char*>(setting.c_str()));
        std::vector<char*> argv;
        for (char const* argument : arguments) argv.push_back(const_cast<char*>(argument));
        argv.push_back(nullptr);
        ::execv(file, argv.data());
        ::_exit(127);
    }

    // Waits for `prompt` after what was read so far (bytes the program echoed are not a prompt).
    bool WaitFor(const std::string& prompt) {
        for (;;) {
            if (const std::size_t at = shown.find(prompt, from); at != std::string::npos) {
                from = at + prompt.size();
                return true;
            }
            if (!Read()) return false;
        }
    }

    // Types `line` and its newline after `prompt` shows; false when the program ended first.
    bool Type(const std::string& prompt, const std::string& line) {
        if (!WaitFor(prompt)) return false;
        const std::string pending = line + "\n";
        for (std::size_t written = 0; written < pending.size();) {
            pollfd waiting{fd, POLLIN | POLLOUT, 0};
            if (::poll(&waiting, 1, 10000) <= 0) return false;
            if (waiting.revents & POLLIN) {
                if (!Read()) return false;
            } else if (waiting.revents & POLLOUT) {
                // Small pieces: a long line then never fills the terminal's input queue.
                const ssize_t count =
                    ::write(fd, pending.data() + written, std::min<std::size_t>(512, pending.size() - written));
                if (count > 0) written += static_cast<std::size_t>(count);
            } else {
                return false;
            }
        }
        from = shown.size();
        return true;
    }

    // Reads until the program ends and returns its status.
    int Finish() {
        while (Read()) {
        }
        ::close(fd);
        int status = 0;
        ::waitpid(pid, &status, 0);
        return status;
    }

    bool Read() {
        pollfd waiting{fd, POLLIN, 0};
        if (::poll(&waiting, 1, 10000) <= 0) return false;
        char buffer[4096];
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count <= 0) return false;  // EIO once the program is gone
        shown.append(buffer, static_cast<std::size_t>(count));
        return true;
    }

    pid_t pid = -1;
    int fd = -1;
    std::string shown;     // all the program wrote
    std::size_t from = 0;  // where the next prompt is looked for
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

// With the reader stopped, a storm of programs with long argument vectors fills the ring
// buffer: what is lost is lost only as counted, exactly.
TEST_F(KalvoDevhostBpf, OverflowLosesOnlyWhatItCounts) {
    BpfLive live;
    live.Start();
    ASSERT_FALSE(HasFatalFailure());
    live.tool->Signal(SIGSTOP);
    // About 16 KiB a record: twice what the ring holds.
    constexpr int Programs = 2048;
    const std::string padding(16000, 'p');
    for (int index = 0; index < Programs; ++index) {
        const std::string number = std::to_string(index);
        char const* argv[] = {"/bin/true", "overflow", number.c_str(), padding.c_str(), nullptr};
        pid_t child = -1;
        ASSERT_EQ(::posix_spawn(&child, "/bin/true", nullptr, nullptr, const_cast<char**>(argv), environ), 0);
        ::waitpid(child, nullptr, 0);
    }
    live.tool->Signal(SIGCONT);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    live.tool->Signal(SIGINT);
    EXPECT_EQ(live.tool->Finish(), 0) << live.tool->Err();

    std::size_t delivered = 0;
    for (const auto& report : Reports(live.tool->Out(), {"/type_id", "/observables/child/command_line"}))
        delivered += report[0] == CreatedTypeId && report[1].starts_with("/bin/true overflow ");
    const std::string& err = live.tool->Err();
    const std::string key = "lost creations of the processes followed: ";
    const std::size_t at = err.find(key);
    ASSERT_NE(at, std::string::npos) << "no loss counted: " << err;
    const std::size_t counted = std::stoull(err.substr(at + key.size()));
    EXPECT_GT(counted, 0u);
    EXPECT_EQ(Programs - delivered, counted) << err;
}

// Lines typed into bash, the first at a prompt that was already waiting when live started, and
// into zsh, which keeps its line metafied: each reported once with the bytes typed, 0x83 (zsh's
// meta byte) included. Lines typed at sqlite3, which links the same readline but is no shell,
// are not reported.
TEST_F(KalvoDevhostBpf, EveryLineTypedIntoAShellIsReportedOnceWithItsBytes) {
    BpfLive live;
    // A construct over several lines arrives line by line, as bash's readline returns them.
    const std::vector<std::string> bashLines = {
        "echo first",
        R"(echo 'single' "double \"inner\"" back\\slash \$HOME)",
        "echo \xff\xfe not UTF-8 \x80 end",
        "echo " + std::string(9995, 'x'),
        "for word in a b; do",
        "echo $word",
        "done",
        "exit",
    };
    // In UTF-8: in the C locale zsh itself turns every byte above 0x7f into '?'.
    const std::vector<std::string> zshLines = {
        "echo \xc3\x83 meta \xc3\x83\xc3\x83 twice",         // Ã: C3 83
        "echo \xe2\x82\xac \xc3\xa9 \xf0\x9f\x98\x80 high",  // €, é, 😀
        "exit",
    };
    Terminal bash("/bin/bash", {"bash", "--norc", "--noprofile", "-i"},
                  {"INPUTRC=" + (live.dir / "inputrc").string(), "TERM=dumb", "HISTFILE=/dev/null", "PS1=PROMPT>",
                   "PS2=PROMPT>"});
    ASSERT_GT(bash.pid, 0);
    ASSERT_TRUE(bash.WaitFor("PROMPT>")) << bash.shown;
    bash.from = 0;
    live.Start();
    ASSERT_FALSE(HasFatalFailure());
    Terminal sqlite("/usr/bin/sqlite3", {"sqlite3", "-interactive"}, {"TERM=dumb", "HOME=" + live.dir.string()});
    ASSERT_TRUE(sqlite.Type("sqlite> ", "select 'typed at sqlite';")) << sqlite.shown;
    ASSERT_TRUE(sqlite.Type("sqlite> ", ".quit")) << sqlite.shown;
    sqlite.Finish();
    Terminal zsh("/bin/zsh", {"zsh", "-f", "-i"}, {"TERM=vt100", "PS1=PROMPT>", "HISTFILE=/dev/null", "LANG=C.UTF-8"});
    const std::pair<Terminal*, const std::vector<std::string>*> shells[] = {{&bash, &bashLines}, {&zsh, &zshLines}};
    for (const auto& [terminal, lines] : shells) {
        for (const std::string& line : *lines)
            ASSERT_TRUE(terminal->Type("PROMPT>", line)) << terminal->shown.substr(0, 2000);
        terminal->Finish();
    }

    EXPECT_EQ(live.StopAfter("Shell " + fs::canonical("/bin/zsh").string() + " received exit"), 0) << live.tool->Err();
    EXPECT_EQ(live.tool->Out().find("typed at sqlite"), std::string::npos);
    for (const auto& [terminal, lines] : shells) {
        std::map<std::string, int> seen;
        for (const auto& report :
             Reports(live.tool->Out(), {"/observables/command/command", "/observables/process/pid"})) {
            if (!report[0].empty() && report[1] == std::to_string(terminal->pid)) ++seen[report[0]];
        }
        for (const std::string& line : *lines) {
            // The report shows bytes that are not UTF-8 as U+FFFD, as it shows every text.
            EXPECT_EQ(seen[DevHost::ValidUtf8(line)], 1) << line.substr(0, 60);
        }
        EXPECT_EQ(seen.size(), lines->size()) << "lines reported that were not typed";
    }
}

}  // namespace
}  // namespace KALVO::Testing::LiveBpf
