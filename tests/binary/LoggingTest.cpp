// The process-wide logger: what reaches the host's log sink, and how a caught exception is
// classified into the code a host entry point returns.
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "devhost/Host.h"
#include "logging/Log.h"

namespace KALVO::Logging {
namespace {

class LoggingTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(LoggerSingleton::CreateEx(std::string(SensorLoggerName), host.Root()).second); }
    void TearDown() override { (void)LoggerSingleton::Detach(); }

    std::vector<DevHost::LogLine> Lines() const { return host.Logs().Lines(); }

    DevHost::Host host;
};

TEST_F(LoggingTest, LinesReachTheSinkWithNameSeverityAndExactText) {
    Log::Error("code {} for {}", 5, "x");
    Log::Warn("plain {} text");
    LoggerSingleton::Get()->Log("kalvo.storage.layer", Severity::Trace, "scope {}", "s");
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].logger, "kalvo.securitymonitor");
    EXPECT_EQ(lines[0].severity, 2u);
    EXPECT_EQ(lines[0].text, "code 5 for x");
    EXPECT_EQ(lines[1].severity, 3u);
    EXPECT_EQ(lines[1].text, "plain {} text");  // sent as it is, never a format
    EXPECT_EQ(lines[2].logger, "kalvo.storage.layer");
    EXPECT_EQ(lines[2].severity, 7u);
}

TEST_F(LoggingTest, CurrentExceptionClassifiesWhatIsBeingHandled) {
    struct Case {
        const char* name;
        void (*raise)();
        int code;
        std::string text;
    };
    const Case cases[] = {
        {"system error", [] { throw std::system_error(5, std::generic_category(), "io"); }, 5, "io: "},
        {"runtime error", [] { throw std::runtime_error("boom"); }, 12, "boom"},
        {"bad alloc", [] { throw std::bad_alloc(); }, 12, "std::bad_alloc"},
        {"integer", [] { throw 42; }, 13, "Unknown exception type"},
    };
    for (const Case& c : cases) {
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
        const auto lines = Lines();
        ASSERT_EQ(lines.size(), 2u);
        EXPECT_EQ(lines[0].text.rfind("Unexpected Exception: '" + c.text, 0), 0u) << lines[0].text;
        EXPECT_EQ(lines[1].text, "while testing");
        EXPECT_EQ(lines[1].severity, 2u);
    }
}

TEST_F(LoggingTest, CurrentExceptionOutsideAHandlerLogsAnEmptyText) {
    const std::error_code error = Log::CurrentException(Severity::Warn, "nothing");
    EXPECT_EQ(error.value(), 0);
    const auto lines = Lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "Unexpected Exception: ''");
    EXPECT_EQ(lines[0].severity, 3u);
}

TEST_F(LoggingTest, SecondCreateReturnsTheExistingLogger) {
    DevHost::Host other;
    auto [logger, created] = LoggerSingleton::CreateEx(std::string("another"), other.Root());
    EXPECT_FALSE(created);
    EXPECT_EQ(logger->Name(), "kalvo.securitymonitor");
}

TEST_F(LoggingTest, AfterDetachNothingIsLoggedButErrorsAreStillClassified) {
    (void)LoggerSingleton::Detach();
    Log::Warn("dropped");
    std::error_code error;
    try {
        throw std::runtime_error("x");
    } catch (...) {
        error = Log::CurrentException(Severity::Error, "dropped");
    }
    EXPECT_EQ(error.value(), 12);
    EXPECT_TRUE(Lines().empty());
}

TEST(LoggerWithoutSink, DropsEverything) {
    Logger logger("n", nullptr);
    EXPECT_FALSE(logger.HasSink());
    logger.Log(Severity::Error, "{}", 1);  // no effect, no crash
}

}  // namespace
}  // namespace KALVO::Logging
