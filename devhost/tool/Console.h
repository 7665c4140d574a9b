// Console: whole lines to stdout and stderr from any number of threads, each line written at
// once and never interleaved with another, so a reader at the other end of a pipe sees every
// event as soon as it happens and the program's own messages never mix with the sensor's log
// lines (echoed by the host's log sink from other threads). stdout belongs to the data
// (reported events, trace lines) alone; the program's messages go to stderr.
#pragma once

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <string_view>

#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

inline void Warn(std::string_view text);  // below; a line output that fails warns through it

class LineOutput {
public:
    // `fd` is borrowed; the caller closes it after the last write. Once a write fails (a closed
    // pipe) nothing more is written, and a stop of `stopOnFailure` (borrowed; when given) is
    // requested, since nobody sees what would follow.
    explicit LineOutput(int fd, SignalWatcher* stopOnFailure = nullptr) : m_fd(fd), m_stopOnFailure(stopOnFailure) {}

    // Writes `line` and a line feed. Any thread.
    void Write(std::string_view line) {
        std::lock_guard lock(m_mutex);
        m_line.assign(line);
        m_line.push_back('\n');
        for (std::size_t done = 0; done < m_line.size() && !Failed();) {
            const ssize_t written = ::write(m_fd, m_line.data() + done, m_line.size() - done);
            if (written > 0) {
                done += static_cast<std::size_t>(written);
            } else if (written == 0 || errno != EINTR) {
                m_failed.store(true, std::memory_order_release);
                if (m_stopOnFailure && !m_stopOnFailure->StopRequested()) {
                    Warn("stdout is closed; stopping");
                    m_stopOnFailure->RequestStop();
                }
            }
        }
    }
    bool Failed() const noexcept { return m_failed.load(std::memory_order_acquire); }

private:
    int m_fd;
    SignalWatcher* m_stopOnFailure;
    std::mutex m_mutex;  // keeps lines whole
    std::string m_line;  // the line being written, with its line feed; kept for its capacity
    std::atomic<bool> m_failed{false};
};

// stderr as whole lines; any thread.
inline LineOutput& ErrorOutput() {
    static LineOutput output(STDERR_FILENO);
    return output;
}

// "kalvo-devhost: <text>".
inline void Note(std::string_view text) { ErrorOutput().Write(std::string("kalvo-devhost: ").append(text)); }
// "kalvo-devhost: warning: <text>".
inline void Warn(std::string_view text) { ErrorOutput().Write(std::string("kalvo-devhost: warning: ").append(text)); }

}  // namespace KALVO::DevHost::Tool
