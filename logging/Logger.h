// Logger: formats a line and hands it, with a logger name and a severity, to the host's
// ILogSink. It writes nowhere itself. Without a sink every call returns at once, unformatted.
//
// Formats are compile-time {fmt} format strings: a text from the host can only ever be an
// argument, never a format.
#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "host/ILogSink.h"
#include "host/IObject.h"
#include "host/LogSeverity.h"
#include "host/ObjectPtr.h"

namespace KALVO::Logging {

using v0::Severity;

class Logger {
public:
    // Looks up the host's ILogSink on `host` (may be null); a missing sink is not an error.
    Logger(std::string name, Agent::Hosting::IObject* host) noexcept;

    Logger(const Logger&) = delete;  // holds a host reference; not needed
    Logger& operator=(const Logger&) = delete;

    bool HasSink() const noexcept { return static_cast<bool>(m_sink); }
    const std::string& Name() const noexcept { return m_name; }

    template <class... Args>
    void Log(Severity severity, fmt::format_string<Args...> format, Args&&... args) const noexcept {
        Log(m_name.c_str(), severity, format, std::forward<Args>(args)...);
    }

    // The same under another logger name (the storage client logs as "kalvo.storage.layer").
    template <class... Args>
    void Log(char const* loggerName, Severity severity, fmt::format_string<Args...> format,
             Args&&... args) const noexcept {
        if (!m_sink) return;
        try {
            fmt::basic_memory_buffer<char, 256> buffer;
            fmt::vformat_to(std::back_inserter(buffer), fmt::string_view(format), fmt::make_format_args(args...));
            Send(loggerName, severity, std::string(buffer.data(), buffer.size()));
        } catch (...) {
            // Logging never throws to its caller.
        }
    }

    // Sends `text` as it is, unformatted.
    void Send(Severity severity, std::string_view text) const noexcept { Send(m_name.c_str(), severity, text); }
    void Send(char const* loggerName, Severity severity, std::string_view text) const noexcept;

private:
    std::string m_name;
    Agent::Hosting::ObjectPtr<ILogSink> m_sink;
};

}  // namespace KALVO::Logging
