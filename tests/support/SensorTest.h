// SensorHarness: the built plug-in loaded through dlopen into a stand-in host, driven only
// through the host interfaces, as the agent drives it; tests build on this instead of reaching
// into the core. SensorTest: a fixture around it that, when each test ends, unloads the plug-in
// and checks that it gave back everything it took from the host: references and configuration
// texts.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/Host.h"
#include "devhost/Plugin.h"
#include "host/IPackage.h"

namespace KALVO::Testing {

class SensorHarness {
public:
    explicit SensorHarness(DevHost::HostOptions options = {})
        : m_host(std::make_unique<DevHost::Host>(std::move(options))),
          m_plugin(std::make_unique<DevHost::Plugin>(KALVO_PLUGIN_PATH, m_host->Root())) {}

    ~SensorHarness() { Unload(); }

    DevHost::Host& Host() { return *m_host; }
    Agent::Hosting::IPackage& Package() { return *m_plugin->Package(); }

    // Drops what the host keeps of the plug-in's (a command handler survives DestroyThis when
    // the test did not Stop), then DestroyThis and dlclose.
    void Unload() {
        if (!m_plugin) return;
        DevHost::UnloadFrom(*m_host, *m_plugin);
        m_plugin.reset();
    }

    Result::Code Start() { return Package().Start(nullptr, 0); }
    Result::Code Stop() { return Package().Stop(nullptr, 0); }
    Result::Code Synchronize(std::string_view context) {
        return Package().Synchronize(context.data(), static_cast<unsigned long>(context.size()));
    }
    // Replaces the configuration text and tells the sensor, as the host does.
    Result::Code Reconfigure(std::string text) {
        m_host->Config().SetText(std::move(text));
        return Synchronize(R"({"reason":"configuration"})");
    }

    Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo> Process(std::string uid, std::string path,
                                                             std::string commandLine) {
        return m_host->MakeProcess(
            {.path = std::move(path), .commandLine = std::move(commandLine), .uid = std::move(uid)});
    }

    std::size_t Created(const Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>& child,
                        const Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>& parent) {
        return m_host->Monitors().DeliverProcessCreate(child, parent);
    }
    std::uint64_t Reported() const { return m_host->Reports().EventCount(); }
    // How many events `deliver` got reported.
    std::uint64_t ReportsFrom(const std::function<void()>& deliver) {
        const auto before = Reported();
        deliver();
        return Reported() - before;
    }
    // Delivers `times` creations of one key, each by a fresh child whose command line differs only
    // in a number of four digits (normalised away); returns, per creation, whether it was reported.
    std::vector<bool> RepeatedCreation(int times, const std::string& command = "sleep") {
        std::vector<bool> reported;
        auto parent = Process("parent", "/bin/bash", "bash");
        for (int n = 0; n < times; ++n) {
            auto child = Process("child" + std::to_string(n), "/bin/sleep", command + " " + std::to_string(1000 + n));
            reported.push_back(ReportsFrom([&] { Created(child, parent); }) > 0);
        }
        return reported;
    }
    std::size_t Logged(std::uint32_t severity, std::string_view text) const {
        return m_host->Logs().CountContaining(severity, text);
    }

private:
    std::unique_ptr<DevHost::Host> m_host;
    std::unique_ptr<DevHost::Plugin> m_plugin;
};

namespace LogLevel {
inline constexpr std::uint32_t Error = 2;
inline constexpr std::uint32_t Warn = 3;
inline constexpr std::uint32_t Info = 4;
inline constexpr std::uint32_t Trace = 7;
}  // namespace LogLevel

class SensorTest : public ::testing::Test {
protected:
    void TearDown() override {
        sensor.Unload();
        EXPECT_EQ(sensor.Host().OutstandingReferences(), "");
        EXPECT_EQ(sensor.Host().Config().OutstandingTexts(), 0u);
        EXPECT_EQ(sensor.Host().Monitors().EscapedExceptions(), 0u);
    }

    // Starts the sensor with `configuration` served by the host.
    void StartWith(std::string configuration) {
        sensor.Host().Config().SetText(std::move(configuration));
        ASSERT_EQ(sensor.Start(), Result::Success);
    }

    SensorHarness sensor;
};

}  // namespace KALVO::Testing
