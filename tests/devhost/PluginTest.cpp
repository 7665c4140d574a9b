#include "devhost/Plugin.h"

#include <gtest/gtest.h>

#include "devhost/Host.h"

namespace KALVO::DevHost {
namespace {

TEST(Plugin, PackageHoldsTheHostUntilUnloaded) {
    Host host;
    {
        Plugin plugin(DEVHOST_TEST_PACKAGE, host.Root());
        ASSERT_NE(plugin.Package(), nullptr);
        EXPECT_EQ(plugin.Package()->Version(), 1u);
        EXPECT_EQ(host.OutstandingReferences(), 1u) << host.DescribeOutstandingReferences();

        Plugin moved = std::move(plugin);
        EXPECT_EQ(plugin.Package(), nullptr);
        moved.Unload();
        EXPECT_EQ(host.OutstandingReferences(), 0u);
        moved.Unload();  // idempotent
    }
    EXPECT_EQ(host.OutstandingReferences(), 0u);
}

TEST(Plugin, LoadFailuresNameTheirCause) {
    Host host;
    const struct {
        char const* path;
        char const* expected;
    } cases[] = {
        {"/nonexistent/kalvo.securitymonitor.so", "not found"},
        {DEVHOST_TEST_NO_ENTRY, "does not export CreateInstance"},
        {"/etc/hostname", "cannot load"},
    };
    for (const auto& c : cases) {
        try {
            Plugin plugin(c.path, host.Root());
            ADD_FAILURE() << "loaded " << c.path;
        } catch (const PluginError& error) {
            EXPECT_NE(std::string(error.what()).find(c.expected), std::string::npos) << c.path << ": " << error.what();
            EXPECT_NE(std::string(error.what()).find(c.path), std::string::npos) << error.what();
        }
    }
}

TEST(Plugin, NullPackageIsAnError) {
    EXPECT_THROW(Plugin(DEVHOST_TEST_PACKAGE, nullptr), PluginError);
}

}  // namespace
}  // namespace KALVO::DevHost
