// Several host threads delivering every kind of event while the configuration flips and
// health checks arrive; meant for the ThreadSanitizer and AddressSanitizer builds.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Scaled.h"
#include "tests/support/SensorTest.h"

namespace KALVO::Testing {
namespace {

TEST_F(SensorTest, EventsConfigurationAndHealthChecksRunConcurrently) {
    ASSERT_EQ(sensor.Start(), Result::Success);
    sensor.Host().Reports().SetRetention(false);
    sensor.Host().Filter().SetRetention(false);
    std::atomic<bool> stop{false};

    auto deliverer = [&](int thread) {
        auto parent = sensor.Process("parent" + std::to_string(thread), "/bin/bash", "bash");
        for (std::uint64_t n = 0; !stop.load(); ++n) {
            const std::string id = std::to_string(thread) + "-" + std::to_string(n % 700);
            auto child = sensor.Process("child" + id, "/usr/bin/tool", "tool --run " + std::to_string(n % 700));
            sensor.Created(child, parent);
            sensor.Host().Monitors().DeliverProcessExists(child);
            sensor.Host().Monitors().DeliverShellCommand(parent, "make -j" + std::to_string(n % 600));
            sensor.Host().Monitors().DeliverProcessTerminate(child);
        }
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) threads.emplace_back(deliverer, t);
    threads.emplace_back([&] {
        for (int n = 0; !stop.load(); ++n) {
            const std::string pattern = n % 2 ? "tool.*" : "make.*";
            EXPECT_EQ(sensor.Reconfigure(R"({"securitymonitor":{"process_tree_collapse_regex":")" + pattern +
                                         R"(","process_tree_report_limit":)" + std::to_string(n % 4) + "}}"),
                      Result::Success);
        }
    });
    threads.emplace_back([&] {
        for (int n = 0; !stop.load(); ++n) {
            std::string answer;
            EXPECT_EQ(sensor.Host().Router().Execute("securitymonitor!OnHealthCheck",
                                                     R"({"id":")" + std::to_string(n) + R"("})", answer),
                      Result::Success);
        }
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(Scaled(2500, 1500)));
    stop.store(true);
    for (auto& thread : threads) thread.join();

    EXPECT_GT(sensor.Reported(), 0u);
    EXPECT_EQ(sensor.Logged(LogLevel::Error, ""), 0u);
    EXPECT_EQ(sensor.Stop(), Result::Success);
}

}  // namespace
}  // namespace KALVO::Testing
