// Pieces of kalvo-devhost driven in the test's own process: a sink that keeps what it is given,
// scratch files, the program's stderr captured, and the sensor in a session as the program
// runs it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "devhost/tool/SensorSession.h"
#include "tests/devhost_tool/ToolProcess.h"

namespace KALVO::Testing {

using namespace KALVO::DevHost;
using namespace KALVO::DevHost::Tool;

// Fed from one thread.
struct Recorder final : EventSink {
    void Deliver(const TraceEvent& event) override { events.push_back(event); }
    std::vector<TraceEvent> events;
};

// A fresh path in the test's scratch directory, unique to this process.
inline std::string ScratchPath(const std::string& name) {
    const std::string path = ::testing::TempDir() + "kalvo-" + std::to_string(::getpid()) + "-" + name;
    std::filesystem::remove_all(path);
    return path;
}

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
