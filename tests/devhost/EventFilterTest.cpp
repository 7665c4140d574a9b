#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "devhost/Host.h"
#include "host/IEventFilter.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;

ObjectPtr<IObject> IdentityOf(const ObjectPtr<ESP::v0::IProcessInfo>& process) {
    ObjectPtr<IObject> identity;
    EXPECT_EQ(Agent::Hosting::QueryInterface(process.Get(), identity), Result::Success);
    return identity;
}

TEST(EventFilter, AnswersFromQueueThenRuleThenFixedAnswer) {
    Host host;
    auto actor = IdentityOf(host.MakeProcess({.pid = 1, .path = "/bin/sh"}));
    auto target = IdentityOf(host.MakeProcess({.pid = 2, .path = "/usr/bin/curl"}));
    EventFilter& filter = host.Filter();

    filter.SetAnswer(7);
    filter.QueueAnswers({1, 0});
    std::vector<std::string> seen;
    filter.SetRule([&](const FilterRequest& request) -> std::uint32_t {
        if (!request.actorProcess || !request.targetProcess) return 99;
        seen.push_back(*request.actorProcess->path + ">" + *request.targetProcess->path + " " + std::string(request.context));
        return request.targetProcess->path == "/usr/bin/curl" ? 1 : 0;
    });

    std::vector<std::uint32_t> answers;
    for (char const* context : std::vector<char const*>{"a", "b", R"({"sensor":"securitymonitor"})", nullptr}) {
        answers.push_back(filter.FilterEvent(actor, target, context));
    }
    filter.SetRule(nullptr);
    answers.push_back(filter.FilterEvent(actor, actor, "c"));
    host.Faults().FailNext(Operation::Filter, 1);
    answers.push_back(filter.FilterEvent(actor, actor, "d"));

    EXPECT_EQ(answers, (std::vector<std::uint32_t>{1, 0, 1, 1, 7, 1}));
    EXPECT_EQ(seen, (std::vector<std::string>{R"(/bin/sh>/usr/bin/curl {"sensor":"securitymonitor"})",
                                              "/bin/sh>/usr/bin/curl "}));
    EXPECT_EQ(filter.Contexts(), (std::vector<std::string>{"a", "b", R"({"sensor":"securitymonitor"})", "", "c", "d"}));
    EXPECT_EQ(filter.Suppressed(), 4u);
    EXPECT_EQ(filter.Calls(), 6u);
}

TEST(EventFilter, KeepingNoContextsStillCountsAndAnswers) {
    Host host;
    auto actor = IdentityOf(host.MakeProcess({.pid = 1}));
    EventFilter& filter = host.Filter();
    filter.SetRetention(0);
    filter.SetAnswer(1);
    filter.QueueAnswers({0});
    std::vector<std::uint32_t> answers;
    for (char const* context : {"a", "b", "c"}) answers.push_back(filter.FilterEvent(actor, actor, context));
    EXPECT_EQ(answers, (std::vector<std::uint32_t>{0, 1, 1})) << "the queue first, then the fixed answer";
    EXPECT_TRUE(filter.Contexts().empty());
    EXPECT_EQ(filter.Calls(), 3u);
    EXPECT_EQ(filter.Suppressed(), 2u);
    filter.ClearRecords();
    EXPECT_EQ(filter.Calls(), 0u);
}

TEST(LogSink, RecordsEveryLineAndEchoesUpToTheThreshold) {
    Host host;
    std::ostringstream echo;
    host.Logs().SetEcho(&echo, 3);
    ObjectPtr<Logging::ILogSink> sink;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), sink), Result::Success);
    EXPECT_EQ(sink->Log("kalvo.reporter", 2, "failed: xyz", 6), Result::Success);  // length, not terminator
    EXPECT_EQ(sink->Log("kalvo.reporter", 7, "trace line", 10), Result::Success);
    EXPECT_EQ(sink->Log(nullptr, 3, nullptr, 5), Result::Success);
    host.Faults().FailNext(Operation::Log, Result::ProtocolError);
    EXPECT_EQ(sink->Log("x", 2, "dropped", 7), Result::ProtocolError);

    EXPECT_EQ(echo.str(), "error kalvo.reporter: failed\nwarn : \n");
    const auto lines = host.Logs().Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1].logger, "kalvo.reporter");
    EXPECT_EQ(lines[1].severity, 7u);
    EXPECT_EQ(lines[1].text, "trace line");
    host.Logs().SetEcho(nullptr, 0);
}

}  // namespace
}  // namespace KALVO::DevHost
