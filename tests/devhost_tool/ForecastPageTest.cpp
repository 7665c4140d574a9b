// The forecast page of kalvo-devhost against its --keys-json document for the same run: every
// figure the page tags is the document's, and every figure of the document is on the page; and
// texts of any bytes from a trace show as text, never as markup.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstring>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "eil/json/RapidJson.h"
#include "tests/devhost_tool/ToolTesting.h"

namespace KALVO::Testing {
namespace {

namespace RJ = EIL::RJ;

std::string Unescaped(std::string text) {
    for (const auto& [from, to] : {std::pair{"&lt;", "<"}, std::pair{"&gt;", ">"}, std::pair{"&quot;", "\""},
                                   std::pair{"&#39;", "'"}, std::pair{"&amp;", "&"}}) {
        for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + 1))
            text.replace(at, std::strlen(from), to);
    }
    return text;
}

// The member at a dotted path ("keys.3.reported") of `value`, or nullptr.
const RJ::Value* At(const RJ::Value& value, std::string path) {
    std::replace(path.begin(), path.end(), '.', '/');
    return RJ::Pointer(("/" + path).c_str()).Get(value);
}

// The paths of the document's strings and non-zero numbers: what the page must show.
void Figures(const RJ::Value& value, const std::string& path, std::set<std::string>& paths) {
    if (value.IsObject()) {
        for (const auto& member : value.GetObject())
            Figures(member.value, path + (path.empty() ? "" : ".") + member.name.GetString(), paths);
    } else if (value.IsArray()) {
        for (RJ::SizeType index = 0; index < value.Size(); ++index)
            Figures(value[index], path + "." + std::to_string(index), paths);
    } else if (value.IsString() || (value.IsNumber() && value.GetDouble() != 0)) {
        paths.insert(path);
    }
}

// Replays with --keys-json and --keys-html; checks each tagged figure of the page against the
// document and that none of the document's figures is missing; returns the page.
std::string CheckedPage(const std::vector<std::string>& options) {
    const std::string stem = ScratchPath("page");
    std::vector<std::string> arguments = {"replay",       "--keys",      "4096",        "--keys-json",
                                          stem + ".json", "--keys-html", stem + ".html"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    ToolProcess tool(arguments);
    EXPECT_EQ(tool.Finish(), 0) << tool.Err();
    RJ::Document json;
    json.Parse(FileText(stem + ".json").c_str());
    EXPECT_TRUE(json.IsObject());
    const std::string html = FileText(stem + ".html");
    if (!json.IsObject()) return html;

    static const std::regex tagged(R"re(data-json="([^"]*)"(?: data-value="([^"]*)")?[^>]*>([^<]*))re");
    std::set<std::string> shown;
    for (std::sregex_iterator match(html.begin(), html.end(), tagged), end; match != end; ++match) {
        const std::string path = (*match)[1];
        const std::string text = Unescaped((*match)[2].matched ? (*match)[2] : (*match)[3]);
        shown.insert(path);
        const RJ::Value* expected = At(json, path);
        if (expected == nullptr || expected->IsString()) {
            EXPECT_TRUE(expected != nullptr && text == expected->GetString()) << path << ": " << text;
        } else {
            std::string digits = text;
            std::erase(digits, ',');
            const double value = expected->GetDouble();
            EXPECT_NEAR(std::stod(digits), value, 1e-9 * std::max(1.0, std::abs(value))) << path << ": " << text;
        }
    }
    std::set<std::string> figures;
    Figures(json, "", figures);
    for (const std::string& path : figures) EXPECT_TRUE(shown.contains(path)) << "not on the page: " << path;
    return html;
}

TEST(KalvoDevhostForecastPage, ShowsTheJsonFiguresOfTheSameRun) {
    const std::string examples = std::string(KALVO_SOURCE_DIR) + "/examples/";
    const std::string html = CheckedPage({examples + "trace.jsonl", "--config", examples + "securitymonitor.json"});
    EXPECT_NE(html.find("<svg"), std::string::npos);
}

TEST(KalvoDevhostForecastPage, KeysOfAnyBytesShowAsText) {
    const std::string trace = ScratchPath("hostile.jsonl");
    const std::vector<std::string> texts = {R"(<script>alert(1)</script>)", R"(\"><img src=x onerror=alert(2)>)",
                                            "&amp; '\xff\xfe' <b>", R"(</td></tr></table><script>)"};
    {
        std::ofstream out(trace, std::ios::binary);
        for (std::size_t index = 0; index < texts.size(); ++index) {
            const std::string time = std::to_string(1700000000000000000 + index * 60000000000);
            out << R"({"kind":"create","time":)" << time << R"(,"process":{"path":"/bin/)" << texts[index]
                << R"(","command_line":")" << texts[index] << R"("},"parent":{"path":"/bin/sh","command_line":"sh"}})"
                << "\n"
                << R"({"kind":"shell","time":)" << time << R"(,"process":{"path":"/bin/bash"},"command":")"
                << texts[index] << "\"}\n";
        }
    }
    const std::string html = CheckedPage({trace});
    std::string lower = html;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    EXPECT_EQ(lower.find("<script"), std::string::npos);
    EXPECT_EQ(lower.find("<img"), std::string::npos);
    EXPECT_NE(html.find("&lt;script&gt;alert(1)&lt;/script&gt;"), std::string::npos);
}

}  // namespace
}  // namespace KALVO::Testing
