// ToolProcess: the built kalvo-devhost run as a child process with its output on pipes (and
// nothing on stdin), so a test can watch its output as it comes, signal it, and collect its
// exit status. Cross builds run it through their emulator.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace KALVO::Testing {

class ToolProcess {
public:
    using Ready = std::function<bool(const std::string& out, const std::string& err)>;

    explicit ToolProcess(const std::vector<std::string>& arguments);
    // Kills the child if it still runs.
    ~ToolProcess();

    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    // Reads output until `ready` holds or `timeout` passes; returns whether it holds.
    bool WaitFor(const Ready& ready, std::chrono::seconds timeout = std::chrono::seconds(60));
    void Signal(int signal);
    // Reads until the child ends, and returns its exit status (128 + the signal when a signal
    // ended it; -1 when it had to be killed after `timeout`).
    int Finish(std::chrono::seconds timeout = std::chrono::seconds(120));

    const std::string& Out() const noexcept { return m_out; }
    const std::string& Err() const noexcept { return m_err; }

private:
    // Reads whatever is available within `timeoutMs`; false once both outputs have ended.
    bool Pump(int timeoutMs);

    pid_t m_pid = -1;
    int m_outFd = -1;
    int m_errFd = -1;
    std::string m_out;
    std::string m_err;
    int m_status = -2;  // not yet collected
};

struct ToolRun {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the tool to its end.
ToolRun RunTool(const std::vector<std::string>& arguments);

}  // namespace KALVO::Testing
