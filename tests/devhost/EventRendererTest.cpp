#include "devhost/EventRenderer.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "devhost/Host.h"
#include "tests/support/SmallStack.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using EIL::Values::Identifier;
using EIL::Values::IValues;
using EIL::Values::MakeNumberValue;
using EIL::Values::MakeObjectValue;
using EIL::Values::MakeStringValue;
using EIL::Values::MakeValues;

TEST(EventRenderer, RendersNestedContainersThroughTheInterface) {
    auto info = MakeValues();
    ASSERT_EQ(info->Set(Identifier("version"), MakeStringValue("1.0.28")), Result::Success);
    auto tags = MakeValues();
    tags->PushBack(MakeStringValue("a"));
    tags->PushBack(MakeStringValue("b \"quoted\""));
    auto sparse = MakeValues();  // unnamed keys that are not 0, 1, 2, ...
    ASSERT_EQ(sparse->Set(Identifier("", 5), MakeNumberValue(1)), Result::Success);
    auto empty = MakeValues();

    auto root = MakeValues();
    ASSERT_EQ(root->Set(Identifier("info"), MakeObjectValue(info)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("tags"), MakeObjectValue(tags)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("sparse"), MakeObjectValue(sparse)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("empty"), MakeObjectValue(empty)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("hollow"), MakeObjectValue(nullptr)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("pid"), MakeNumberValue(18446744073709551615ull)), Result::Success);
    ASSERT_EQ(root->Set(Identifier("nul"), MakeStringValue(std::string("a\0b", 3))), Result::Success);
    ASSERT_EQ(root->Set(Identifier("bad"), MakeStringValue("\xC3(\xE2\x82")), Result::Success);
    ASSERT_EQ(root->Set(Identifier("null"), nullptr), Result::Success);

    // Entries come in id order; build the expectation in that order from the ids.
    const std::map<std::uint64_t, std::string> members = {
        {Identifier::Hash("info"), R"("info":{"version":"1.0.28"})"},
        {Identifier::Hash("tags"), R"("tags":["a","b \"quoted\""])"},
        {Identifier::Hash("sparse"), R"("sparse":{"5":1})"},
        {Identifier::Hash("empty"), R"("empty":{})"},
        {Identifier::Hash("hollow"), R"("hollow":null)"},
        {Identifier::Hash("pid"), R"("pid":18446744073709551615)"},
        {Identifier::Hash("nul"), R"("nul":"a\u0000b")"},
        {Identifier::Hash("bad"), "\"bad\":\"\xEF\xBF\xBD(\xEF\xBF\xBD\xEF\xBF\xBD\""},
        {Identifier::Hash("null"), R"("null":null)"},
    };
    std::string expected = "{";
    for (const auto& [id, member] : members) expected += (expected.size() > 1 ? "," : "") + member;
    expected += "}";
    EXPECT_EQ(RenderValuesJson(*root), expected);
}

TEST(EventRenderer, ContainerThatContainsItselfIsCutOff) {
    auto loop = MakeValues();
    ASSERT_EQ(loop->Set(Identifier("self"), MakeObjectValue(loop)), Result::Success);
    std::string json;
    KALVO::Testing::RunOnSmallStack([&] { json = RenderValuesJson(*loop); });
    EXPECT_NE(json.find("\xE2\x80\xA6"), std::string::npos);
    EXPECT_EQ(loop->Clear(), Result::Success);  // breaks the reference cycle
}

TEST(EventRenderer, MessageNamesObservablesReadably) {
    Host host;
    ProcessRecord parentRecord{.pid = 1, .path = "/sbin/launchd", .uid = "u1"};
    ProcessRecord childRecord{.pid = 2, .commandLine = "sleep 5", .uid = "u2"};
    auto parent = host.MakeProcess(parentRecord);
    auto child = host.MakeProcess(childRecord);

    EventRecord event;
    event.sequence = 4;
    ObservationRecord& observation = event.observations.emplace_back();
    observation.typeId = "d5f9b921-5881-46fd-9ab8-dbee84f6dc6f";
    for (const auto& [name, process] : {std::pair{"parent", &parent}, std::pair{"child", &child}}) {
        ObjectPtr<IValues> values;
        ASSERT_EQ(Agent::Hosting::QueryInterface(process->Get(), values), Result::Success);
        observation.observables.push_back(ObservableRecord{name, HostRef<IValues>(std::move(values))});
    }
    const struct {
        char const* message;
        char const* text;
    } cases[] = {
        {"{parent} created {child}", "/sbin/launchd created sleep 5"},
        {"{unknown} and {parent}", "{unknown} and /sbin/launchd"},
        {"unterminated {parent", "unterminated {parent"},
        {"{}", "{}"},
        {"", ""},
    };
    for (const auto& c : cases) {
        observation.message = c.message;
        EXPECT_EQ(RenderMessage(observation), c.text) << c.message;
    }

    observation.message = "{parent} created {child}";
    const std::string json = RenderEventJson(event);
    EXPECT_EQ(json.rfind(R"({"sequence":4,"observations":[{"severity":0,"type_id":"d5f9b921-5881-46fd-9ab8-dbee84f6dc6f",)"
                         R"("message":"{parent} created {child}","text":"/sbin/launchd created sleep 5",)"
                         R"("source":null,"tags":null,"observables":{"parent":{)", 0),
              0u)
        << json;
    EXPECT_NE(json.find(R"("path":"/sbin/launchd")"), std::string::npos) << json;
    EXPECT_NE(json.find(R"("command_line":"sleep 5")"), std::string::npos) << json;
}

}  // namespace
}  // namespace KALVO::DevHost
