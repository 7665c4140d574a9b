// The sensor's session in kalvo-devhost: its configuration served again on SIGHUP and when the
// file changes, but never once the file is broken; its state kept from one run to the next in
// a directory only its owner may write to.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>

#include "tests/devhost_tool/ToolTesting.h"
#include "tests/support/ErrorOf.h"

namespace KALVO::Testing {
namespace {

// Three creations of the same program, whose reports the limit caps.
std::uint64_t ReportsOfThree(RunningSensor& sensor, const std::string& program) {
    const std::uint64_t before = sensor.Reported();
    for (std::uint64_t pid = 100; pid < 103; ++pid) {
        sensor.session.Deliver(
            TraceEvent{EventKind::Create,
                       {.pid = pid, .parentPid = 1, .path = "/bin/" + program, .commandLine = program},
                       ProcessRecord{.pid = 1, .path = "/bin/sh", .commandLine = "sh"}});
    }
    return sensor.Reported() - before;
}

unsigned ModeOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST(SensorSession, ConfigurationIsServedAgainOnSighupAndOnChangeButNotWhenBroken) {
    const std::string config = ScratchPath("config.json");
    const auto limit = [&](int value) {
        WriteFile(config, R"({"securitymonitor":{"process_tree_report_limit":)" + std::to_string(value) + "}}");
    };
    limit(1);
    RunningSensor sensor(config);
    const auto served = [](const std::string& text) {
        return text.find("Synchronize answered 0") != std::string::npos;
    };
    const std::string signalled = StderrOf([&] { ::kill(::getpid(), SIGHUP); }, served);
    EXPECT_EQ(signalled, "kalvo-devhost: configuration " + config + " served again; Synchronize answered 0\n");
    StderrOf([&] { limit(20); }, served);
    std::this_thread::sleep_for(std::chrono::seconds(1));  // checked twice meanwhile: unchanged, not served again
    EXPECT_EQ(ReportsOfThree(sensor, "b"), 3u);
    const std::string warned = StderrOf([&] { WriteFile(config, "{\"securitymonitor\":"); },
                                        [](const std::string& text) { return !text.empty(); });
    EXPECT_EQ(warned, "kalvo-devhost: warning: configuration " + config +
                          " is not JSON: Invalid value. (offset 19); the sensor keeps its configuration\n");
    EXPECT_EQ(sensor.session.Reconfigurations(), 2u);
    EXPECT_EQ(ReportsOfThree(sensor, "c"), 3u);
}

TEST(SensorSession, StateIsKeptPrivatelyFromOneRunToTheNext) {
    const std::string state = ScratchPath("state") + "/nested";
    const TraceEvent exists{EventKind::Exists, {.pid = 42, .path = "/bin/x", .commandLine = "x", .uid = "b:42:7"}};
    for (const std::uint64_t reported : {1u, 0u}) {
        RunningSensor sensor(std::nullopt, state);
        sensor.session.Deliver(exists);
        EXPECT_EQ(sensor.Reported(), reported);
    }
    EXPECT_EQ(ModeOf(state), 0700u);
    EXPECT_EQ(ModeOf(state + "/storage.sqlite3"), 0600u);
}

TEST(SensorSession, StateDirectoryOthersMayWriteToIsRefused) {
    const std::string directory = ScratchPath("shared");
    const struct {
        unsigned mode;  // 0: a file instead
        std::string error;
    } rows[] = {
        {0755, ""},
        {0720,
         "state directory " + directory + " is writable by other users (mode 720); make it private with chmod 700"},
        {0702, "state directory " + directory + " is writable by other users (mode 702)"},
        {0, "cannot create state directory " + directory + ": Not a directory"},
    };
    for (const auto& row : rows) {
        std::filesystem::remove_all(directory);
        if (row.mode == 0) {
            WriteFile(directory, "");
        } else {
            ::mkdir(directory.c_str(), 0);
            ::chmod(directory.c_str(), row.mode);
        }
        const std::string error = ErrorOf([&] { StoragePath(RunningSensor::Options(directory)); });
        EXPECT_EQ(error.substr(0, row.error.size()), row.error) << row.mode;
        EXPECT_EQ(row.error.empty(), error.empty()) << error;
    }
}

}  // namespace
}  // namespace KALVO::Testing
