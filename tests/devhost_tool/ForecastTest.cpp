// The volume forecast of kalvo-devhost against counts made here from the trace itself: keys
// built from the normalisation functions and std::regex (not the sensor's key or collapse
// code), and reports as the report limit allows.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "eil/json/RapidJson.h"
#include "monitor/Normalize.h"
#include "tests/devhost_tool/ToolProcess.h"

namespace KALVO::Testing {
namespace {

namespace RJ = EIL::RJ;

struct KeyCounts {
    std::uint64_t delivered = 0, reported = 0, suppressed = 0, again = 0;
    bool operator==(const KeyCounts&) const = default;
};

std::string ExampleFile(const char* name) { return std::string(KALVO_SOURCE_DIR) + "/examples/" + name; }

std::string StringMember(const RJ::Value& object, const char* name) {
    const auto found = object.FindMember(name);
    return found == object.MemberEnd() || !found->value.IsString()
               ? std::string()
               : std::string(found->value.GetString(), found->value.GetStringLength());
}

std::string Normalized(std::string text, bool path) {
    path ? SecurityMonitor::NormalizeProcessPath(text) : SecurityMonitor::NormalizeCommandline(text);
    return text;
}

// Creation keys counted from the trace, each reported while its count is within `limit`.
std::map<std::string, KeyCounts> CountFromTrace(const std::string& trace, const std::string& collapse,
                                                std::uint64_t limit) {
    const std::regex expression(collapse, std::regex::ECMAScript | std::regex::icase);
    std::map<std::string, KeyCounts> keys;
    std::ifstream in(trace);
    for (std::string line; std::getline(in, line);) {
        RJ::Document event;
        event.Parse(line.c_str());
        if (StringMember(event, "kind") != "create") continue;
        const RJ::Value& child = event["process"];
        const RJ::Value& parent = event["parent"];
        const auto collapsed = [&](const RJ::Value& process) {
            const std::string text = Normalized(StringMember(process, "command_line"), false);
            return std::regex_match(text, expression) ? "<>" : text;
        };
        const std::string key = Normalized(StringMember(parent, "path"), true) + "|" +
                                Normalized(StringMember(child, "path"), true) + "|" + collapsed(parent) + "|" +
                                collapsed(child);
        KeyCounts& figures = keys[key];
        ++figures.delivered;
        (figures.delivered <= limit ? figures.reported : figures.suppressed) += 1;
    }
    return keys;
}

std::map<std::string, KeyCounts> ForecastOf(const std::vector<std::string>& options, RJ::Document& json) {
    const std::string file = ::testing::TempDir() + "forecast-" + std::to_string(::getpid()) + ".json";
    std::vector<std::string> arguments = {"replay", "--keys", "4096", "--keys-json", file};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ToolProcess tool(arguments);
    EXPECT_EQ(tool.Finish(), 0) << tool.Err();
    const std::string text = FileText(file);
    json.Parse(text.c_str());
    EXPECT_TRUE(json.IsObject()) << text;
    std::map<std::string, KeyCounts> keys;
    if (!json.IsObject()) return keys;
    for (const RJ::Value& row : json["keys"].GetArray()) {
        keys[StringMember(row, "key")] = KeyCounts{row["delivered"].GetUint64(), row["reported"].GetUint64(),
                                                   row["suppressed"].GetUint64(), row["reported_again"].GetUint64()};
    }
    return keys;
}

TEST(KalvoDevhostForecast, ExampleTraceKeysMatchCountsMadeFromTheTrace) {
    struct Case {
        std::vector<std::string> options;
        std::string collapse;
        std::uint64_t limit;
    };
    RJ::Document settings;
    settings.Parse(FileText(ExampleFile("securitymonitor.json")).c_str());
    const RJ::Value& example = settings["securitymonitor"];
    const Case cases[] = {
        {{ExampleFile("trace.jsonl")}, "this_will_not_match//any_process", 3},
        {{ExampleFile("trace.jsonl"), "--config", ExampleFile("securitymonitor.json")},
         StringMember(example, "process_tree_collapse_regex"),
         example["process_tree_report_limit"].GetUint64()},
    };
    for (const Case& c : cases) {
        RJ::Document json;
        EXPECT_EQ(ForecastOf(c.options, json), CountFromTrace(ExampleFile("trace.jsonl"), c.collapse, c.limit))
            << c.collapse;
    }
}

}  // namespace
}  // namespace KALVO::Testing
