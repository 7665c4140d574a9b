#include "tests/devhost_tool/ToolProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <system_error>

extern char** environ;

namespace KALVO::Testing {

ToolProcess::ToolProcess(const std::vector<std::string>& arguments) {
    // A cross build runs the tool through its emulator, whose words are separated by '|'.
    std::vector<std::string> words;
    std::istringstream launcher(KALVO_TOOL_LAUNCHER);
    for (std::string word; std::getline(launcher, word, '|');)
        if (!word.empty()) words.push_back(word);
    words.emplace_back(KALVO_DEVHOST_TOOL);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_adddup2(&actions, err[1], 2);
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
    ::close(out[1]);
    ::close(err[1]);
    m_outFd = out[0];
    m_errFd = err[0];
    if (spawned != 0) {
        m_pid = -1;
        throw std::system_error(spawned, std::generic_category(), "posix_spawn " + words.front());
    }
}

ToolProcess::~ToolProcess() {
    if (m_pid > 0 && m_status == -2) {
        ::kill(m_pid, SIGKILL);
        ::waitpid(m_pid, nullptr, 0);
    }
    for (int fd : {m_outFd, m_errFd}) if (fd >= 0) ::close(fd);
}

bool ToolProcess::Pump(int timeoutMs) {
    pollfd fds[2] = {{m_outFd, POLLIN, 0}, {m_errFd, POLLIN, 0}};  // a negative fd is skipped
    if (m_outFd < 0 && m_errFd < 0) return false;
    if (::poll(fds, 2, timeoutMs) <= 0) return true;
    for (const pollfd& ready : fds) {
        if (ready.fd < 0 || ready.revents == 0) continue;
        int& fd = ready.fd == m_outFd ? m_outFd : m_errFd;
        char buffer[65536];
        const ssize_t length = ::read(fd, buffer, sizeof buffer);
        if (length > 0) {
            (&fd == &m_outFd ? m_out : m_err).append(buffer, static_cast<std::size_t>(length));
        } else if (length == 0 || errno != EINTR) {
            ::close(fd);
            fd = -1;
        }
    }
    return true;
}

bool ToolProcess::WaitFor(const Ready& ready, std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!ready(m_out, m_err)) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        if (!Pump(50)) return ready(m_out, m_err);
    }
    return true;
}

void ToolProcess::Signal(int signal) { ::kill(m_pid, signal); }

int ToolProcess::Finish(std::chrono::seconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    bool killed = false;
    while (!killed && Pump(50)) killed = std::chrono::steady_clock::now() >= deadline && ::kill(m_pid, SIGKILL) == 0;
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_status = killed ? -1 : WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return m_status;
}

ToolRun RunTool(const std::vector<std::string>& arguments) {
    ToolProcess tool(arguments);
    const int status = tool.Finish();
    return ToolRun{status, tool.Out(), tool.Err()};
}

}  // namespace KALVO::Testing
