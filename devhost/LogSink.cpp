#include "devhost/LogSink.h"

#include <algorithm>
#include <utility>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

namespace {

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

}  // namespace

void LogSink::SetEcho(Echo echo, std::uint32_t threshold) {
    std::lock_guard lock(m_echoMutex);
    m_echo = std::move(echo);
    m_echoThreshold = threshold;
}

std::size_t LogSink::CountContaining(std::optional<std::uint32_t> severity, std::string_view part) const {
    const std::vector<LogLine> lines = Lines();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine& line) {
        return (!severity || line.severity == *severity) && line.text.find(part) != std::string::npos;
    }));
}

void LogSink::Record(LogLine line) {
    {
        std::lock_guard lock(m_echoMutex);
        if (m_echo && line.severity <= m_echoThreshold) m_echo(SeverityName(line.severity) + ' ' + line.logger + ": " + line.text);
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
