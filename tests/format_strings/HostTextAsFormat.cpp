// Compiled, not run, by this folder's tests: a text that reaches the sensor from the host can
// only ever be an argument of a log line, never its format. Every logging entry point takes a
// compile-time format string, so passing a run-time text as the format must not compile.
#include <string>

#include "logging/Log.h"

namespace KALVO::Testing {

void LogHostText(const std::string& hostText) {
#ifdef KALVO_HOST_TEXT_AS_FORMAT
    Logging::Log::Error(hostText);
    if (auto logger = Logging::LoggerSingleton::Get()) logger->Log(Logging::Severity::Error, hostText.c_str());
    (void)Logging::Log::CurrentException(Logging::Severity::Error, hostText);
#else
    Logging::Log::Error("host text: {}", hostText);
    if (auto logger = Logging::LoggerSingleton::Get()) logger->Log(Logging::Severity::Error, "host text: {}", hostText);
    (void)Logging::Log::CurrentException(Logging::Severity::Error, "host text: {}", hostText);
#endif
}

}  // namespace KALVO::Testing
