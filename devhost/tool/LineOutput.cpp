#include "devhost/tool/LineOutput.h"

#include <unistd.h>

#include <cerrno>
#include <string>

namespace KALVO::DevHost::Tool {

void LineOutput::Write(std::string_view line) {
    const std::string text = std::string(line) + '\n';
    std::lock_guard lock(m_mutex);
    for (std::size_t done = 0; done < text.size() && !Failed();) {
        const ssize_t written = ::write(m_fd, text.data() + done, text.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) m_failed.store(true, std::memory_order_release);
        if (written > 0) done += static_cast<std::size_t>(written);
    }
}

}  // namespace KALVO::DevHost::Tool
