// LineOutput: whole lines to a file descriptor from any number of threads, each line written
// at once and never interleaved with another, so a reader at the other end of a pipe sees
// every event as soon as it happens. A write that fails (a closed pipe) is remembered, and
// the program stops producing.
#pragma once

#include <atomic>
#include <mutex>
#include <string_view>

namespace KALVO::DevHost::Tool {

class LineOutput {
public:
    // `fd` is borrowed; the caller closes it after the last write.
    explicit LineOutput(int fd) noexcept : m_fd(fd) {}

    // Writes `line` and a line feed. Any thread. Does nothing once a write has failed.
    void Write(std::string_view line);
    bool Failed() const noexcept { return m_failed.load(std::memory_order_acquire); }

private:
    int m_fd;
    std::mutex m_mutex;  // keeps lines whole
    std::atomic<bool> m_failed{false};
};

}  // namespace KALVO::DevHost::Tool
