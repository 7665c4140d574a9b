#include "devhost/tool/LineReader.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace KALVO::DevHost::Tool {

LineReader::LineReader(int fd, std::function<bool()> stopped, std::size_t maxLine)
    : m_fd(fd), m_stopped(std::move(stopped)), m_maxLine(maxLine) {}

LineReader::Status LineReader::Next(std::string& line) {
    bool skipping = false;  // inside a line past the bound, dropping it
    std::size_t scanned = m_start;
    for (;;) {
        const std::size_t feed = m_buffer.find('\n', scanned);
        if (feed != std::string::npos) {
            ++m_lineNumber;
            m_consumed += feed + 1 - m_start;
            const bool tooLong = skipping || feed - m_start > m_maxLine;
            if (!tooLong) line.assign(m_buffer, m_start, feed - m_start);
            m_start = feed + 1;
            return tooLong ? Status::TooLong : Status::Line;
        }
        if (m_buffer.size() - m_start > m_maxLine) {
            // Keep nothing of a line that is too long; only its end is still to be found.
            m_consumed += m_buffer.size() - m_start;
            m_buffer.clear();
            m_start = 0;
            skipping = true;
        }
        scanned = m_buffer.size();
        if (m_start > 0 && m_start * 2 > m_buffer.size()) {
            m_buffer.erase(0, m_start);
            scanned -= m_start;
            m_start = 0;
        }
        if (m_end || !Fill()) {
            if (m_stopRequested) return Status::Stopped;
            if (m_start < m_buffer.size() || skipping) {
                ++m_lineNumber;
                m_consumed += m_buffer.size() - m_start;
                if (!skipping) line.assign(m_buffer, m_start, std::string::npos);
                m_buffer.clear();
                m_start = 0;
                return skipping ? Status::TooLong : Status::Line;
            }
            return Status::End;
        }
    }
}

bool LineReader::Fill() {
    char block[65536];
    for (;;) {
        if (m_stopped && m_stopped()) {
            m_stopRequested = true;
            return false;
        }
        pollfd waiting{m_fd, POLLIN, 0};
        const int ready = ::poll(&waiting, 1, 200);
        if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "poll");
        if (ready <= 0) continue;
        const ssize_t count = ::read(m_fd, block, sizeof block);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) throw std::system_error(errno, std::generic_category(), "read");
        if (count == 0) {
            m_end = true;
            return false;
        }
        m_buffer.append(block, static_cast<std::size_t>(count));
        return true;
    }
}

}  // namespace KALVO::DevHost::Tool
