// LogSink: the stand-in host's ILogSink. Records every line (logger name, severity, text) for
// tests to inspect, and can echo lines up to a chosen severity for a person watching a tool.
// Thread-safe: plug-ins log from every thread.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "devhost/FaultInjector.h"
#include "devhost/RetainedList.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/ILogSink.h"
#include "host/LogSeverity.h"

namespace KALVO::DevHost {

struct LogLine {
    std::string logger;
    std::uint32_t severity = 0;  // a Logging::v0::Severity
    std::string text;
};

class LogSink : public KALVO::Logging::ILogSink {
public:
    static constexpr char const* Kind = "LogSink";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Logging::ILogSink>;

    explicit LogSink(std::shared_ptr<FaultInjector> faults) : m_faults(std::move(faults)) {}

    // Lines are recorded by default; false records none (and drops those recorded).
    void SetRetention(bool keep) { m_lines.SetKeep(keep); }
    // Echoes each line whose severity is at most `threshold` (Warn shows Error and Warn) as
    // "<severity> <logger>: <text>" ("error", "warn", "info", "trace", else the number), one
    // call at a time; empty stops echoing.
    void SetEcho(std::function<void(const std::string& line)> echo, std::uint32_t threshold) {
        std::lock_guard lock(m_echoMutex);
        m_echo = std::move(echo);
        m_echoThreshold = threshold;
    }

    std::vector<LogLine> Lines() const { return m_lines.Snapshot(); }
    // Retained lines of that severity whose text contains `part`.
    std::size_t CountContaining(std::uint32_t severity, std::string_view part) const {
        std::size_t count = 0;
        for (const LogLine& line : Lines())
            count += line.severity == severity && line.text.find(part) != std::string::npos;
        return count;
    }
    void Clear() { m_lines.Clear(); }

    // Records (and echoes) a line; the host's own lines come this way too, logger "devhost".
    void Record(LogLine line) {
        {
            std::lock_guard lock(m_echoMutex);
            if (m_echo && line.severity <= m_echoThreshold)
                m_echo(SeverityName(line.severity) + ' ' + line.logger + ": " + line.text);
        }
        m_lines.Emplace(std::move(line));
    }

    // ILogSink. Any thread. A null logger name is recorded as empty; a null text as empty.
    Result::Code Log(char const* loggerName, std::uint32_t severity, char const* text, unsigned long length) override {
        return Serve(*m_faults, Operation::Log, [&] {
            Record(LogLine{loggerName ? loggerName : "", severity, text ? std::string(text, length) : std::string()});
            return Result::Success;
        });
    }

private:
    static std::string SeverityName(std::uint32_t severity) {
        switch (static_cast<Logging::v0::Severity>(severity)) {
        case Logging::v0::Severity::Error: return "error";
        case Logging::v0::Severity::Warn: return "warn";
        case Logging::v0::Severity::Info: return "info";
        case Logging::v0::Severity::Trace: return "trace";
        }
        return std::to_string(severity);
    }

    std::shared_ptr<FaultInjector> m_faults;
    RetainedList<LogLine> m_lines;
    std::mutex m_echoMutex;  // guards the echo settings and serialises the echo
    std::function<void(const std::string& line)> m_echo;
    std::uint32_t m_echoThreshold = 0;
};

}  // namespace KALVO::DevHost
