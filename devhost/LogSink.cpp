#include "devhost/LogSink.h"

#include <algorithm>
#include <utility>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

std::string SeverityName(std::uint32_t severity) {
    using Logging::v0::Severity;
    switch (static_cast<Severity>(severity)) {
        case Severity::Error: return "error";
        case Severity::Warn: return "warn";
        case Severity::Info: return "info";
        case Severity::Trace: return "trace";
    }
    return std::to_string(severity);
}

LogSink::LogSink(std::shared_ptr<FaultInjector> faults) : m_faults(std::move(faults)) {}

void LogSink::SetRetention(std::size_t limit) { m_lines.SetLimit(limit); }

void LogSink::SetEcho(std::ostream* stream, std::uint32_t threshold) {
    std::lock_guard lock(m_echoMutex);
    m_echo = stream;
    m_echoThreshold = threshold;
}

std::vector<LogLine> LogSink::Lines() const { return m_lines.Snapshot(); }

std::uint64_t LogSink::LineCount() const { return m_lines.Total(); }

std::size_t LogSink::CountContaining(std::string_view part) const {
    const std::vector<LogLine> lines = Lines();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
        return line.text.find(part) != std::string::npos;
    }));
}

std::size_t LogSink::CountContaining(std::uint32_t severity, std::string_view part) const {
    const std::vector<LogLine> lines = Lines();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
        return line.severity == severity && line.text.find(part) != std::string::npos;
    }));
}

void LogSink::Clear() { m_lines.Clear(); }

void LogSink::HostLine(Logging::v0::Severity severity, std::string_view text) {
    Record(LogLine{"devhost", static_cast<std::uint32_t>(severity), std::string(text)});
}

void LogSink::Record(LogLine line) {
    {
        std::lock_guard lock(m_echoMutex);
        if (m_echo && line.severity <= m_echoThreshold) {
            *m_echo << SeverityName(line.severity) << ' ' << line.logger << ": " << line.text << '\n';
            m_echo->flush();
        }
    }
    m_lines.Add(std::move(line));
}

Result::Code LogSink::Log(char const* loggerName, std::uint32_t severity, char const* text, unsigned long length) {
    if (const auto failure = m_faults->Check(Operation::Log)) return *failure;
    return AtBoundary([&] {
        Record(LogLine{loggerName ? loggerName : "", severity, text ? std::string(text, length) : std::string()});
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
