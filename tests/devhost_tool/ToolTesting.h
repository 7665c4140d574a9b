// Helpers of the kalvo-devhost tests: the built program run as a child process, and its pieces
// driven in the test's own process (a sink that keeps what it is given, scratch files, the
// program's stderr captured, the sensor in a session as the program runs it).
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "devhost/tool/SensorSession.h"

extern char** environ;

namespace KALVO::Testing {

using namespace KALVO::DevHost;
using namespace KALVO::DevHost::Tool;

inline std::string FileText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// This process's scratch directory, made at its first use and removed with its contents when
// the process exits (by the process that made it, not by a forked child).
inline const std::string& ScratchDirectory() {
    struct Directory {
        const pid_t owner = ::getpid();
        std::string path = ::testing::TempDir() + "kalvo-test-XXXXXX";
        Directory() {
            if (!::mkdtemp(path.data())) throw std::system_error(errno, std::generic_category(), path);
        }
        ~Directory() {
            std::error_code ignored;
            if (::getpid() == owner) std::filesystem::remove_all(path, ignored);
        }
    };
    static const Directory directory;
    return directory.path;
}

// A fresh path in this process's scratch directory.
inline std::string ScratchPath(const std::string& name) {
    const std::string path = ScratchDirectory() + "/" + name;
    std::filesystem::remove_all(path);
    return path;
}

// The built kalvo-devhost run as a child process (cross builds through their emulator) with
// nothing on stdin and its stdout and stderr in files of its own, which the test reads as they
// grow: it can wait for a line, signal the tool and collect its exit status.
class ToolProcess {
public:
    using Ready = std::function<bool(const std::string& out, const std::string& err)>;

    explicit ToolProcess(const std::vector<std::string>& arguments) {
        // The emulator's words are separated by '|'.
        std::vector<std::string> words;
        std::istringstream launcher(KALVO_TOOL_LAUNCHER);
        for (std::string word; std::getline(launcher, word, '|');)
            if (!word.empty()) words.push_back(word);
        words.emplace_back(KALVO_DEVHOST_TOOL);
        words.insert(words.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (std::string& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);

        static int serial = 0;
        const std::string stem = ScratchPath("tool-" + std::to_string(++serial));
        m_outPath = stem + ".out";
        m_errPath = stem + ".err";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, m_outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        posix_spawn_file_actions_addopen(&actions, 2, m_errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        // The child gets default signal handling and nothing blocked, whatever the test runner has.
        posix_spawnattr_t attributes;
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        const int spawned = ::posix_spawn(&m_pid, argv[0], &actions, &attributes, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        posix_spawnattr_destroy(&attributes);
        if (spawned != 0) throw std::system_error(spawned, std::generic_category(), "posix_spawn " + words.front());
    }

    // Kills the child if it still runs (its files go with the scratch directory).
    ~ToolProcess() {
        if (m_status == NotCollected) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
    }

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    // Reads the output until `ready` holds, the tool ends or `timeout` passes; whether it holds.
    bool WaitFor(const Ready& ready, std::chrono::seconds timeout = std::chrono::seconds(60)) {
        for (const auto deadline = std::chrono::steady_clock::now() + timeout;;) {
            int status = 0;  // collected before reading, so that its last output is read
            if (m_status == NotCollected && ::waitpid(m_pid, &status, WNOHANG) == m_pid)
                m_status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            m_out = FileText(m_outPath);
            m_err = FileText(m_errPath);
            if (ready(m_out, m_err)) return true;
            if (m_status != NotCollected || std::chrono::steady_clock::now() >= deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
    }

    void Signal(int signal) { ::kill(m_pid, signal); }

    // Waits for the end of the child and returns its exit status (128 + the signal when a
    // signal ended it; -1 when it still runs after `timeout`, to be killed by the destructor).
    int Finish(std::chrono::seconds timeout = std::chrono::seconds(120)) {
        WaitFor([this](const std::string&, const std::string&) { return m_status != NotCollected; }, timeout);
        return m_status == NotCollected ? -1 : m_status;
    }

    const std::string& Out() const noexcept { return m_out; }
    const std::string& Err() const noexcept { return m_err; }

private:
    static constexpr int NotCollected = -2;

    pid_t m_pid = -1;
    std::string m_outPath;
    std::string m_errPath;
    std::string m_out;
    std::string m_err;
    int m_status = NotCollected;
};

// Fed from one thread.
struct Recorder final : EventSink {
    void Deliver(TraceEvent event) override { events.push_back(std::move(event)); }
    std::vector<TraceEvent> events;
};

// Written whole and then renamed into place, so that a reader never sees a part.
inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path + ".new", std::ios::binary | std::ios::trunc) << text;
    std::filesystem::rename(path + ".new", path);
}

// What `work` writes to stderr (the program's notes and warnings), read again until `until`
// holds or ten seconds pass, for what other threads write.
inline std::string StderrOf(const std::function<void()>& work,
                            const std::function<bool(const std::string&)>& until = nullptr) {
    const std::string path = ScratchPath("stderr");
    const int saved = ::dup(STDERR_FILENO);
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
    work();
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (until && !until(FileText(path)) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ::dup2(saved, STDERR_FILENO);
    ::close(saved);
    return FileText(path);
}

// The built sensor started in a session, with the configuration file `config` and the state
// in `stateDir` (else in memory). Construct it before the test starts any thread.
struct RunningSensor {
    explicit RunningSensor(const std::optional<std::string>& config = std::nullopt,
                           std::optional<std::string> stateDir = std::nullopt)
        : options(Options(std::move(stateDir))), session(options, config, nullptr) {
        session.Start(signals);
    }
    static ToolOptions Options(std::optional<std::string> stateDir) {
        ToolOptions options;
        options.command = Command::Replay;
        options.plugin = KALVO_PLUGIN_PATH;
        options.stateDir = std::move(stateDir);
        return options;
    }
    std::uint64_t Reported() { return session.GetHost().Reports().EventCount(); }

    ToolOptions options;
    SignalWatcher signals;
    SensorSession session;
};

}  // namespace KALVO::Testing
