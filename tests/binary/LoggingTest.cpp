// The process-wide logger: how a caught exception is classified into the code a host entry
// point returns, and the two lines that report it.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "devhost/Host.h"
#include "eil/core/ScopeGuard.h"
#include "logging/Log.h"

namespace KALVO::Logging {
namespace {

TEST(Logging, CurrentExceptionClassifiesWhatIsBeingHandled) {
    DevHost::Host host;
    ASSERT_TRUE(LoggerSingleton::CreateEx(std::string(SensorLoggerName), host.Root()).second);
    const auto detach = EIL::Core::MakeScopeExit([] { (void)LoggerSingleton::Detach(); });
    const struct {
        const char* name;
        void (*raise)();
        int code;
        std::string text;
    } cases[] = {
        {"system error", [] { throw std::system_error(5, std::generic_category(), "io"); }, 5, "io: "},
        {"runtime error", [] { throw std::runtime_error("boom"); }, 12, "boom"},
        {"integer", [] { throw 42; }, 13, "Unknown exception type"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        host.Logs().Clear();
        std::error_code error;
        try {
            c.raise();
        } catch (...) {
            error = Log::CurrentException(Severity::Error, "while {}", "testing");
        }
        EXPECT_EQ(error.value(), c.code);
        EXPECT_EQ(error.category(), std::generic_category());
        const auto lines = host.Logs().Lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].text.rfind("Unexpected Exception: '" + c.text, 0), 0u) << lines[0].text;
        EXPECT_EQ(lines[1].text, "while testing");
        EXPECT_EQ(lines[1].severity, 2u);
    }
}

}  // namespace
}  // namespace KALVO::Logging
