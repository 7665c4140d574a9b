// Pieces of kalvo-devhost driven in the test's own process: a sink that keeps what it is given,
// scratch files, the program's stderr captured, and the sensor in a session as the program
// runs it.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "devhost/tool/SensorSession.h"

namespace KALVO::Testing {

using namespace KALVO::DevHost;
using namespace KALVO::DevHost::Tool;

struct Recorder final : EventSink {
    void Deliver(const TraceEvent& event) override {
        std::lock_guard lock(mutex);
        events.push_back(event);
    }
    std::mutex mutex;
    std::vector<TraceEvent> events;
};

// A fresh path in the test's scratch directory, unique to this process.
inline std::string ScratchPath(const std::string& name) {
    const std::string path = ::testing::TempDir() + "kalvo-" + std::to_string(::getpid()) + "-" + name;
    std::filesystem::remove_all(path);
    return path;
}

inline void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

// What `work` writes to stderr (the program's notes and warnings).
inline std::string StderrOf(const std::function<void()>& work) {
    ::testing::internal::CaptureStderr();
    work();
    return ::testing::internal::GetCapturedStderr();
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
