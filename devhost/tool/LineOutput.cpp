#include "devhost/tool/LineOutput.h"

#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace KALVO::DevHost::Tool {

void LineOutput::Write(std::string_view line) {
    std::lock_guard lock(m_mutex);
    WriteAll(line, "\n");
}

void LineOutput::WriteRaw(std::string_view text) {
    std::lock_guard lock(m_mutex);
    WriteAll(text, {});
}

void LineOutput::WriteAll(std::string_view first, std::string_view second) {
    if (Failed()) return;
    iovec parts[2] = {{const_cast<char*>(first.data()), first.size()}, {const_cast<char*>(second.data()), second.size()}};
    std::size_t remaining = first.size() + second.size();
    int next = 0;
    while (remaining > 0) {
        const ssize_t written = ::writev(m_fd, parts + next, 2 - next);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            m_failed.store(true, std::memory_order_release);
            return;
        }
        auto count = static_cast<std::size_t>(written);
        remaining -= count;
        while (next < 2 && count >= parts[next].iov_len) {
            count -= parts[next].iov_len;
            ++next;
        }
        if (next < 2) {
            parts[next].iov_base = static_cast<char*>(parts[next].iov_base) + count;
            parts[next].iov_len -= count;
        }
    }
}

}  // namespace KALVO::DevHost::Tool
