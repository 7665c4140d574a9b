// The trace a recording writes reads back as the same events: every kind, written and parsed
// again, gives the same line (each line is valid JSON, with a parent only for a creation).
#include <gtest/gtest.h>

#include <string>

#include "devhost/tool/TraceFormat.h"

namespace KALVO::DevHost::Tool {
namespace {

TEST(TraceFormat, EveryKindReadsBackAsWritten) {
    const ProcessRecord shell{.pid = 7,
                              .parentPid = 1,
                              .path = "/usr/bin/bash",
                              .commandLine = "bash -i",
                              .uid = "b:7:70",
                              .userId = 1000,
                              .user = "dev",
                              .startTime = 1700000000};
    const ProcessRecord child{.pid = 8, .parentPid = 7, .path = "/usr/bin/ls", .commandLine = "ls \"a b\""};
    const TraceEvent events[] = {
        {.kind = EventKind::Create, .process = child, .parent = shell, .time = 1700000000000000001},
        {.kind = EventKind::Exists, .process = shell},
        {.kind = EventKind::Terminate, .process = child, .time = 1700000000000000002},
        {.kind = EventKind::Shell, .process = shell, .command = "ls \"a b\" | wc -l", .time = 1700000000000000003},
    };
    for (const TraceEvent& event : events) {
        const std::string line = FormatTraceLine(event);
        TraceEvent read;
        EXPECT_NO_THROW(read = ParseTraceLine(line)) << line;
        EXPECT_EQ(FormatTraceLine(read), line);
        EXPECT_EQ(read.kind, event.kind) << line;
        EXPECT_EQ(read.parent.has_value(), event.kind == EventKind::Create) << line;
    }
}

}  // namespace
}  // namespace KALVO::DevHost::Tool
