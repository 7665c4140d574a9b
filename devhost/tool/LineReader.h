// LineReader: the lines of a file or a pipe, read in blocks and never blocking for long, so a
// replay fed from a pipe (another program's record, a test) still notices a stop request.
// Lines longer than a bound are skipped whole and reported instead of held in memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace KALVO::DevHost::Tool {

class LineReader {
public:
    enum class Status { Line, TooLong, End, Stopped };

    // `fd` is borrowed. `stopped` is asked while waiting for input.
    LineReader(int fd, std::function<bool()> stopped, std::size_t maxLine = std::size_t{64} << 20);

    // The next line without its line feed (a final line without one included).
    Status Next(std::string& line);

    // Bytes consumed so far, for a progress indicator.
    std::uint64_t Consumed() const noexcept { return m_consumed; }
    // Lines returned or skipped so far: the number of the last one.
    std::uint64_t LineNumber() const noexcept { return m_lineNumber; }

private:
    // Reads more into m_buffer; false at the end or on a stop request (m_stopped then set).
    bool Fill();

    int m_fd;
    std::function<bool()> m_stopped;
    std::size_t m_maxLine;
    std::string m_buffer;
    std::size_t m_start = 0;      // first unconsumed byte of m_buffer
    bool m_end = false;
    bool m_stopRequested = false;
    std::uint64_t m_consumed = 0;
    std::uint64_t m_lineNumber = 0;
};

}  // namespace KALVO::DevHost::Tool
