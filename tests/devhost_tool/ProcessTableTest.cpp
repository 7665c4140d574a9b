// The process table of kalvo-devhost on a /proc laid out by the test: a pid taken by a new
// process, a tree limited to one process's descendants, a command name that holds parentheses,
// and the kernel's records placed in that tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "devhost/tool/ProcessTracker.h"
#include "devhost/tool/TraceFormat.h"
#include "tests/devhost_tool/ToolTesting.h"

namespace KALVO::Testing {
namespace {

class FakeProc {
public:
    FakeProc() {
        std::filesystem::create_directories(m_root + "/sys/kernel/random");
        WriteFile(m_root + "/sys/kernel/random/boot_id", "boot\n");
        WriteFile(m_root + "/stat", "cpu 1 2\nbtime 1000\n");
    }
    // Process `pid`, started `start` ticks after boot, running /bin/`name`.
    void Add(std::uint64_t pid, std::uint64_t parent, std::uint64_t start, const std::string& name) {
        const std::string dir = m_root + "/" + std::to_string(pid);
        std::filesystem::remove_all(dir);
        std::filesystem::create_directories(dir);
        WriteFile(dir + "/stat", std::to_string(pid) + " (" + name + ") S " + std::to_string(parent) +
                                     " 0 0 0 0 64 0 0 0 0 0 0 0 0 20 0 1 0 " + std::to_string(start) + " 0 0\n");
        std::filesystem::create_symlink("/bin/" + name, dir + "/exe");
    }
    void Remove(std::uint64_t pid) { std::filesystem::remove_all(m_root + "/" + std::to_string(pid)); }

    const std::string m_root = ScratchPath("proc");
};

// The events as "kind pid uid parent-pid".
std::vector<std::string> Described(Recorder& recorder) {
    std::vector<std::string> lines;
    for (const TraceEvent& event : recorder.events) {
        lines.push_back(std::string(TraceKindName(event.kind)) + " " + std::to_string(event.process.pid) + " " +
                        event.process.uid + (event.parent ? " " + std::to_string(event.parent->pid) : ""));
    }
    recorder.events.clear();
    return lines;
}

TEST(ProcessTracker, ReusedPidEndsTheOldProcessAndTreeTakesDescendantsOnly) {
    FakeProc proc;
    proc.Add(1, 0, 1, "init");
    proc.Add(10, 1, 5, "make");
    proc.Add(11, 10, 6, "a) (b");  // the fields resume after the last ')'
    proc.Add(12, 11, 7, "as");
    proc.Add(20, 1, 8, "other");
    const ProcFs procfs(proc.m_root);
    Recorder recorder;
    ProcessTracker tracker(procfs, recorder, 10);
    EXPECT_EQ(tracker.Reconcile(EventKind::Exists), 3u);
    EXPECT_EQ(Described(recorder),
              (std::vector<std::string>{"exists 10 boot:10:5", "exists 11 boot:11:6", "exists 12 boot:12:7"}));
    // Pid 12 ends and is taken by a new process of the tree; the make ends and its child stays.
    proc.Add(12, 11, 90, "ld");
    proc.Remove(10);
    proc.Add(21, 20, 91, "other");
    tracker.Reconcile();
    EXPECT_EQ(Described(recorder), (std::vector<std::string>{"terminate 12 boot:12:7", "create 12 boot:12:90 11",
                                                             "terminate 10 boot:10:5"}));
}

// The kernel's records: a new program whose parents the table has not seen is placed in the
// tree through /proc, however deep it is; a process that forked and ended without a program of
// its own was never announced, so neither is its end.
TEST(ProcessTracker, KernelRecordsFindTheTreeThroughProcAndForksEndUnannounced) {
    FakeProc proc;
    proc.Add(10, 1, 5, "make");
    proc.Add(30, 10, 6, "sh");
    proc.Add(31, 30, 7, "sh");
    const ProcFs procfs(proc.m_root);
    Recorder recorder;
    ProcessTracker tracker(procfs, recorder, 10);
    tracker.OnFork({.pid = 40, .parentPid = 10, .uid = "fork"});
    tracker.OnExit(40);
    tracker.OnExec({.pid = 32, .parentPid = 31, .uid = "cc"});
    tracker.OnExec({.pid = 50, .parentPid = 1, .uid = "outside"});
    EXPECT_EQ(Described(recorder), (std::vector<std::string>{"create 32 cc 31"}));
}

}  // namespace
}  // namespace KALVO::Testing
