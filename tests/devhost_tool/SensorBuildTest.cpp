// Which sensor kalvo-devhost runs: --version names the build-tree sensor it finds by itself and
// the version that library reports; a forecast's JSON says whether the sensor loaded is the
// build whose keys it uses.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

#include "devhost/tool/KeyForecast.h"
#include "package/Version.h"
#include "tests/devhost_tool/ToolTesting.h"

namespace KALVO::Testing {
namespace {

TEST(KalvoDevhostSensorBuild, VersionNamesTheSensorFoundBesideTheBuild) {
    ToolProcess tool({"--version"});
    EXPECT_EQ(tool.Finish(), 0) << tool.Err();
    const std::string plugin = std::filesystem::path(KALVO_PLUGIN_PATH).lexically_normal().string();
    EXPECT_EQ(tool.Out(), fmt::format("kalvo-devhost {0}\nsensor {0} ({1})\n", SecurityMonitor::Version, plugin));
}

TEST(KalvoDevhostSensorBuild, ForecastJsonMarksAnotherBuild) {
    const std::string tool = SecurityMonitor::Version;
    const std::pair<std::optional<std::string>, std::string> cases[] = {
        {tool, fmt::format(R"("sensor":{{"version":"{0}","tool_version":"{0}","same_build":true}})", tool)},
        {"0.0.1", fmt::format(R"("sensor":{{"version":"0.0.1","tool_version":"{}","same_build":false}})", tool)},
        {std::nullopt, fmt::format(R"("sensor":{{"version":null,"tool_version":"{}","same_build":false}})", tool)},
    };
    for (const auto& [version, json] : cases) {
        ForecastReport report;
        report.sensor = SensorIdentity{version};
        EXPECT_NE(ForecastJson(report).find(json), std::string::npos) << ForecastJson(report);
    }
}

}  // namespace
}  // namespace KALVO::Testing
