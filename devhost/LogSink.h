// LogSink: the stand-in host's ILogSink. Records every line (logger name, severity number,
// text) for tests to inspect, and can echo lines up to a chosen severity to a stream for a
// person watching a tool. Thread-safe: plug-ins log from every thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/RetainedList.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/ILogSink.h"
#include "host/LogSeverity.h"

namespace KALVO::DevHost {

struct LogLine {
    std::string logger;
    std::uint32_t severity = 0;  // Error 2, Warn 3, Info 4, Trace 7
    std::string text;
};

class LogSink : public KALVO::Logging::ILogSink {
public:
    static constexpr char const* Kind = "LogSink";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Logging::ILogSink>;

    explicit LogSink(std::shared_ptr<FaultInjector> faults);

    // Lines are recorded by default; `limit` keeps only the latest ones (0 records none).
    void SetRetention(std::size_t limit);
    // Echoes each line whose severity number is at most `threshold` (3 shows Error and Warn)
    // to `stream`, one line each: "<severity> <logger>: <text>". Null stops echoing. The
    // stream must outlive the sink or the next SetEcho.
    void SetEcho(std::ostream* stream, std::uint32_t threshold);

    std::vector<LogLine> Lines() const;
    // Lines logged since construction or Clear, retained or not.
    std::uint64_t LineCount() const;
    // Retained lines whose text contains `part` (and, when given, of that severity).
    std::size_t CountContaining(std::string_view part) const;
    std::size_t CountContaining(std::uint32_t severity, std::string_view part) const;
    void Clear();

    // Writes a line of the host's own (logger "devhost") through the same path.
    void HostLine(Logging::v0::Severity severity, std::string_view text);

    // ILogSink. Any thread. A null logger name is recorded as empty; a null text as empty.
    Result::Code Log(char const* loggerName, std::uint32_t severity, char const* text, unsigned long length) override;

protected:
    ~LogSink() = default;

private:
    void Record(LogLine line);

    std::shared_ptr<FaultInjector> m_faults;
    RetainedList<LogLine> m_lines;
    std::mutex m_echoMutex;  // guards the echo settings and serialises writes to the stream
    std::ostream* m_echo = nullptr;
    std::uint32_t m_echoThreshold = 0;
};

// "error", "warn", "info", "trace", or the number for others.
std::string SeverityName(std::uint32_t severity);

}  // namespace KALVO::DevHost
