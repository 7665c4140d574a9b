// The BPF live source's record decoder on records made in memory: no root, no BPF. /proc is
// the real one, so "a process that still lives" is this test itself.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "devhost/tool/KernelRecord.h"
#include "devhost/tool/bpf/LiveEvents.h"

namespace KALVO::DevHost::Tool {
namespace {

using namespace std::string_literals;

// A record as the kernel side lays it out: the header, then `path` and `data`; the sizes in
// the header are those of `path` and `data` unless set already.
std::string Record(live_event header, const std::string& path, const std::string& data) {
    if (header.path_bytes == 0) header.path_bytes = static_cast<unsigned>(path.size());
    if (header.data_bytes == 0) header.data_bytes = static_cast<unsigned>(data.size());
    std::string bytes(sizeof header, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes + path + data;
}

live_event Header(live_kind kind, unsigned pid = 4242, unsigned long long start = 5'000'000'000) {
    live_event header{};
    header.kind = kind;
    header.pid = pid;
    header.parent_pid = 1;
    header.start = start;
    header.time = 77;
    return header;
}

// This test's own start, as the kernel side reads it (nanoseconds after boot).
unsigned long long OwnStart(const ProcFs& procfs) {
    return procfs.ReadStat(::getpid())->startTicks * (1'000'000'000 / ::sysconf(_SC_CLK_TCK));
}

TEST(KernelRecord, LeafFirstNamesJoinIntoAPath) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {""s, "/"},
        {"init\0"s, "/init"},
        {"true\0bin\0usr\0"s, "/usr/bin/true"},
        // Across a mount: the names of the mounted tree, then those above its mount point.
        {"tool\0bin\0mnt\0"s, "/mnt/bin/tool"},
        {"no terminator\0dir"s, "/dir/no terminator"},
    };
    for (const auto& [names, path] : cases) EXPECT_EQ(JoinLeafFirstPath(names), path) << " names: " << names;
}

TEST(KernelRecord, TruncatedExecIsCompletedFromProcOnlyByTheSameProcess) {
    const ProcFs procfs;
    const std::optional<ProcessRecord> self = procfs.ReadProcess(::getpid());
    ASSERT_TRUE(self);
    struct Case {
        char const* what;
        unsigned pid;
        unsigned long long start;
        bool completed;
    };
    const std::vector<Case> cases = {
        {"this process, still running", static_cast<unsigned>(::getpid()), OwnStart(procfs), true},
        {"its pid, taken by a later process", static_cast<unsigned>(::getpid()), OwnStart(procfs) + 1'000'000'000'000,
         false},
        {"a process already gone", 0x7ffffffe, OwnStart(procfs), false},
    };
    for (const Case& test : cases) {
        live_event header = Header(LIVE_EXEC, test.pid, test.start);
        header.truncated = 1;
        const std::optional<KernelEvent> event = DecodeKernelRecord(Record(header, "cut\0"s, "/cut\0-x\0y z"s), procfs);
        ASSERT_TRUE(event) << test.what;
        EXPECT_EQ(event->process.parentPid, 1u) << test.what;
        EXPECT_EQ(event->kernelTimeNs, 77u) << test.what;
        EXPECT_EQ(event->incomplete, !test.completed) << test.what;
        EXPECT_EQ(event->process.path, test.completed ? self->path : "/cut") << test.what;
        EXPECT_EQ(event->process.commandLine, test.completed ? self->commandLine : "/cut -x y z") << test.what;
    }
}

TEST(KernelRecord, RecordsThatDoNotHoldWhatTheySayAreRejected) {
    const ProcFs procfs;
    const std::string whole = Record(Header(LIVE_EXIT), "", "");  // the header alone
    live_event beyond = Header(LIVE_EXEC);
    beyond.path_bytes = 2;
    beyond.data_bytes = 3;  // one byte more than follows
    live_event wrapping = Header(LIVE_LINE);
    wrapping.path_bytes = 0xffffffff;  // the sum wraps in 32 bits
    wrapping.data_bytes = 2;
    const std::vector<std::pair<char const*, std::string>> cases = {
        {"empty", ""},
        {"shorter than its header", whole.substr(0, sizeof(live_event) - 1)},
        {"sizes beyond its length", Record(beyond, "a\0"s, "b\0"s)},
        {"sizes whose sum wraps", Record(wrapping, "", "ab")},
        {"an unknown kind", Record(Header(static_cast<live_kind>(LIVE_KINDS)), "", "")},
    };
    for (const auto& [what, bytes] : cases) EXPECT_FALSE(DecodeKernelRecord(bytes, procfs)) << what;
    EXPECT_EQ(DecodeKernelRecord(whole, procfs).value().process.pid, 4242u);
}

TEST(KernelRecord, LinesArriveWholeUpTo64KiBAndCutBeyond) {
    const ProcFs procfs;
    const std::string limit(MaxShellLineBytes, 'x');
    struct Case {
        char const* what;
        std::string sent;
        live_line_encoding encoding;
        std::string line;
        bool incomplete;
    };
    const std::vector<Case> cases = {
        {"a short line", "echo hi", LIVE_LINE_PLAIN, "echo hi", false},
        {"exactly 64 KiB", limit, LIVE_LINE_PLAIN, limit, false},
        {"64 KiB and one byte", limit + "y", LIVE_LINE_PLAIN, limit, true},
        {"zsh: meta bytes undone", "\x83\xa3 \x83\xa0\xff\x80\n", LIVE_LINE_ZSH, "\x83 \x80\xff\x80", false},
        {"zsh: a lone meta byte at the end", "a\x83", LIVE_LINE_ZSH, "a\x83", false},
        {"zsh: exactly 64 KiB", limit + "\n", LIVE_LINE_ZSH, limit, false},
        {"zsh: escapes that fill the kernel's read", "\x83\xa3\x83\xa3" + limit.substr(3) + "\n", LIVE_LINE_ZSH,
         "\x83\x83" + limit.substr(3) + "\n", true},
    };
    for (const Case& test : cases) {
        live_event header = Header(LIVE_LINE);
        header.encoding = test.encoding;
        const std::optional<KernelEvent> event = DecodeKernelRecord(Record(header, "", test.sent), procfs);
        ASSERT_TRUE(event) << test.what;
        EXPECT_EQ(event->process.pid, 4242u) << test.what;
        EXPECT_TRUE(event->line == test.line) << test.what << ": " << event->line.size() << " bytes";
        EXPECT_EQ(event->incomplete, test.incomplete) << test.what;
    }
}

}  // namespace
}  // namespace KALVO::DevHost::Tool
