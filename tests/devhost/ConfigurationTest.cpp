#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "devhost/Host.h"
#include "host/IConfiguration.h"

namespace KALVO::DevHost {
namespace {

using Agent::Hosting::ObjectPtr;
using KALVO::Configuration::IConfiguration;

TEST(HostConfiguration, EachTextIsAPrivateCopyUntilGivenBack) {
    Host host(HostOptions{SqliteStore::InMemory, R"({"a":1})"});
    ObjectPtr<IConfiguration> config;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), config), Result::Success);

    char const* first = nullptr;
    std::uint64_t firstLength = 0;
    ASSERT_EQ(config->GetData(first, firstLength), Result::Success);
    host.Config().SetText(R"({"a":2,"b":3})");
    char const* second = nullptr;
    std::uint64_t secondLength = 0;
    ASSERT_EQ(config->GetData(second, secondLength), Result::Success);

    EXPECT_EQ(std::string(first, firstLength), R"({"a":1})") << "a text handed out must not change";
    EXPECT_EQ(first[firstLength], '\0');
    EXPECT_EQ(std::string(second, secondLength), R"({"a":2,"b":3})");
    EXPECT_EQ(host.Config().OutstandingTexts(), 2u);

    config->ReleaseData(first);
    EXPECT_EQ(host.Config().OutstandingTexts(), 1u);
    config->ReleaseData(first);  // twice
    config->ReleaseData("never handed out");
    EXPECT_EQ(host.Config().UnknownReleases(), 2u);
    config->ReleaseData(second);
    EXPECT_EQ(host.Config().OutstandingTexts(), 0u);
    EXPECT_EQ(host.Config().TextsHandedOut(), 2u);
}

TEST(HostConfiguration, FailedGetDataHandsOutNothing) {
    Host host;
    ObjectPtr<IConfiguration> config;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), config), Result::Success);
    host.Faults().FailNext(Operation::GetData, Result::ProtocolError);
    char const* text = nullptr;
    std::uint64_t length = 0;
    EXPECT_EQ(config->GetData(text, length), Result::ProtocolError);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(host.Config().OutstandingTexts(), 0u);
}

TEST(HostConfiguration, ConcurrentReadersAndWritersBalance) {
    Host host;
    ObjectPtr<IConfiguration> config;
    ASSERT_EQ(Agent::Hosting::QueryInterface(host.Root(), config), Result::Success);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 500; ++i) {
                if (t == 0) host.Config().SetText(R"({"n":)" + std::to_string(i) + "}");
                char const* text = nullptr;
                std::uint64_t length = 0;
                ASSERT_EQ(config->GetData(text, length), Result::Success);
                ASSERT_EQ(text[0], '{');
                config->ReleaseData(text);
            }
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(host.Config().OutstandingTexts(), 0u);
    EXPECT_EQ(host.Config().UnknownReleases(), 0u);
}

}  // namespace
}  // namespace KALVO::DevHost
