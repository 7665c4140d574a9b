// ToolOptions: the command line of kalvo-devhost, parsed and checked before anything runs, so
// a mistake costs the user one clear line instead of a half-started sensor.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/tool/LiveSource.h"
#include "host/LogSeverity.h"

namespace KALVO::DevHost::Tool {

// A command line that cannot be run; the message is one line for the user.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

enum class Command { Live, Record, Replay, Health, Help };

struct ToolOptions {
    Command command = Command::Help;
    std::optional<std::string> plugin;
    std::optional<std::string> config;
    std::optional<std::string> stateDir;
    std::uint32_t logThreshold = static_cast<std::uint32_t>(Logging::v0::Severity::Warn);
    std::vector<FaultRule> faults;
    std::optional<double> duration;  // seconds
    std::optional<std::uint64_t> treeRoot;
    LiveSourceKind source = LiveSourceKind::Any;
    std::optional<std::string> output;
    std::string trace;  // replay
    unsigned threads = 1;
    std::string payload = R"({"id":"kalvo-devhost"})";
    std::optional<std::size_t> keys;      // the busiest repeat keys to show at the end
    std::optional<std::string> keysJson;  // the forecast as JSON, to this file
    std::optional<std::string> compare;   // replay: a second configuration to compare with
};

// Parses argv[1..], warning of the sensor's options given to record. Throws UsageError.
ToolOptions ParseToolOptions(int argc, char const* const* argv);

// The --help text.
std::string UsageText();

}  // namespace KALVO::DevHost::Tool
