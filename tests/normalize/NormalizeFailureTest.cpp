// What NormalizeCommandline does when memory runs out: the text stays as it was and the
// failure is logged with its fixed message.
#include <gtest/gtest.h>

#include <cstdint>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "eil/object/ObjectImpl.h"
#include "host/ILogSink.h"
#include "logging/Log.h"
#include "monitor/Normalize.h"
#include "tests/normalize/FailingAllocation.h"

namespace KALVO::SecurityMonitor {
namespace {

struct LogLine {
    std::string logger;
    std::uint32_t severity;
    std::string text;
};

class RecordingSink : public Logging::ILogSink {
public:
    using Interfaces = EIL::Object::InterfaceList<Logging::ILogSink>;

    Result::Code Log(char const* loggerName, std::uint32_t severity, char const* text, unsigned long length) override {
        std::lock_guard lock(m_mutex);
        m_lines.push_back({loggerName, severity, std::string(text, length)});
        return Result::Success;
    }

    std::vector<LogLine> Lines() {
        std::lock_guard lock(m_mutex);
        return m_lines;
    }

private:
    std::mutex m_mutex;
    std::vector<LogLine> m_lines;
};

TEST(NormalizeCommandline, LeavesTheTextAndLogsWhenMemoryRunsOut) {
    // Results that must allocate: one longer than the text's own string can hold (short numbers
    // grow into "<number>"), and one too long to be built on the stack.
    const std::string originals[] = {
        "1234 1234 1234 1234 1234 1234 1234 1234",
        "sleep 12345 /tmp/a-file-name " + std::string(3000, 'x'),
    };
    for (const std::string& original : originals) {
        auto sink = EIL::Object::ObjectImpl<RecordingSink>::Make();
        auto [logger, created] = Logging::LoggerSingleton::CreateEx(std::string(Logging::SensorLoggerName), sink.Get());
        ASSERT_TRUE(created);

        std::string commandLine = original;
        Testing::FailNextAllocation(true);
        NormalizeCommandline(commandLine);
        Testing::FailNextAllocation(false);
        Logging::LoggerSingleton::Detach();

        EXPECT_EQ(commandLine, original);
        const std::vector<LogLine> lines = sink->Lines();
        ASSERT_EQ(lines.size(), 2u) << " input: " << original.substr(0, 40);
        EXPECT_EQ(lines[0].severity, 2u);
        EXPECT_EQ(lines[0].text, "Unexpected Exception: '" + std::string(std::bad_alloc().what()) + "'");
        EXPECT_EQ(lines[1].severity, 2u);
        EXPECT_EQ(lines[1].text, "unable to normalize command line");
        EXPECT_EQ(lines[1].logger, Logging::SensorLoggerName);
    }
}

}  // namespace
}  // namespace KALVO::SecurityMonitor
