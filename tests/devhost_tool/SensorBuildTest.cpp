// Which sensor kalvo-devhost runs: --version names the build-tree sensor it finds by itself and
// the version that library reports; a forecast's JSON says whether the sensor loaded is the build whose keys it uses.
#include <gtest/gtest.h>

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

#include "devhost/tool/KeyForecast.h"
#include "devhost/tool/SensorSession.h"
#include "eil/json/RapidJson.h"
#include "package/Version.h"
#include "tests/devhost_tool/ToolProcess.h"

namespace KALVO::Testing {
namespace {

using DevHost::Tool::ForecastJson;
using DevHost::Tool::ForecastReport;
using DevHost::Tool::SensorIdentity;

TEST(KalvoDevhostSensorBuild, VersionNamesTheSensorFoundBesideTheBuild) {
    ToolProcess tool({"--version"});
    EXPECT_EQ(tool.Finish(), 0) << tool.Err();
    const std::string plugin = std::filesystem::path(KALVO_PLUGIN_PATH).lexically_normal().string();
    EXPECT_EQ(tool.Out(), fmt::format("kalvo-devhost {0}\nsensor {0} ({1})\n", SecurityMonitor::Version, plugin));
}

TEST(KalvoDevhostSensorBuild, ForecastJsonMarksAnotherBuild) {
    const struct {
        std::optional<std::string> version;
        std::string json;  // the "sensor" member
    } cases[] = {
        {SecurityMonitor::Version,
         fmt::format(R"({{"version":"{0}","tool_version":"{0}","same_build":true}})", SecurityMonitor::Version)},
        {"0.0.1",
         fmt::format(R"({{"version":"0.0.1","tool_version":"{}","same_build":false}})", SecurityMonitor::Version)},
        {std::nullopt,
         fmt::format(R"({{"version":null,"tool_version":"{}","same_build":false}})", SecurityMonitor::Version)},
    };
    for (const auto& c : cases) {
        ForecastReport report;
        report.sensor = SensorIdentity{c.version};
        EIL::RJ::Document document;
        document.Parse(ForecastJson(report).c_str());
        ASSERT_TRUE(document.IsObject() && document.HasMember("sensor")) << c.json;
        EIL::RJ::StringBuffer buffer;
        EIL::RJ::Writer<EIL::RJ::StringBuffer> writer(buffer);
        document["sensor"].Accept(writer);
        EXPECT_EQ(std::string(buffer.GetString()), c.json);
    }
}

}  // namespace
}  // namespace KALVO::Testing
