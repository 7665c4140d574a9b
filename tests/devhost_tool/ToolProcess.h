// ToolProcess: the built kalvo-devhost run as a child process (cross builds through their
// emulator) with nothing on stdin and its stdout and stderr in files of its own, which the test
// reads as they grow: it can wait for a line, signal the tool and collect its exit status.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

extern char** environ;

namespace KALVO::Testing {

inline std::string FileText(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

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
        const std::string stem =
            ::testing::TempDir() + "kalvo-tool-" + std::to_string(::getpid()) + "-" + std::to_string(++serial);
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
        sigset_t none, all;
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

    // Kills the child if it still runs.
    ~ToolProcess() {
        if (m_status == NotCollected) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, nullptr, 0);
        }
        std::remove(m_outPath.c_str());
        std::remove(m_errPath.c_str());
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
    std::string m_outPath, m_errPath, m_out, m_err;
    int m_status = NotCollected;
};

}  // namespace KALVO::Testing
