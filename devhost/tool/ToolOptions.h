// ToolOptions: the command line of kalvo-devhost, parsed and checked before anything runs, so
// a mistake costs the user one clear line instead of a half-started sensor.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/LiveSource.h"
#include "host/LogSeverity.h"

namespace KALVO::DevHost::Tool {

// A command line that cannot be run; the message is one line for the user.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

enum class Command { Live, Record, Replay, Health, Help, Version };

// The keys the forecast (KeyForecast) keeps counts of, and so shows at most with --keys; and
// the busiest keys it shows unless asked otherwise.
inline constexpr std::size_t KeyCapacity = 4096;
inline constexpr std::size_t DefaultKeyRows = 20;

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
    std::optional<std::size_t> keys;      // the busiest repeat keys to show at the end
    std::optional<std::string> keysJson;  // the forecast as JSON, to this file
    std::optional<std::string> keysHtml;  // the forecast as a page, to this file
    std::optional<std::string> compare;   // replay: a second configuration to compare with
};

// Parses argv[1..], warning of the sensor's options given to record. Throws UsageError.
ToolOptions ParseToolOptions(int argc, char const* const* argv);

// The --help text.
inline constexpr char const* UsageText = R"(Usage: kalvo-devhost COMMAND [OPTIONS]

Runs the kalvo.securitymonitor sensor plug-in in the stand-in host, as the agent would. What it
reports goes to stdout, one JSON object a line; its log lines and a closing summary to stderr.

Commands:
  live           the sensor on this machine: running processes as "exists", then creations,
                 terminations and shell lines, from BPF (root), netlink (root) or polling /proc
  record         the same events written as a trace, one JSON object a line; no sensor
  replay TRACE   delivers a recorded trace to the sensor ("-" reads stdin as it is written)
  health         sends the health-check command and prints the answer and its code

Options:
  --plugin PATH        the sensor library (default: ../lib/kalvo/)" KALVO_PLUGIN_FILE_NAME R"( from this
                       program's directory, as installed; else the one beside it or built with it)
  --config FILE        the configuration served to the sensor (a JSON object); served again,
                       with Synchronize {"reason":"configuration"}, when it changes or on SIGHUP
  --state DIR          where the host's storage (the sensor's saved state) lives; by default
                       ~/.local/state/kalvo-devhost for live, in memory for replay and health
  --log-level LEVEL    the sensor's log lines shown: error, warn (default), info, trace or 0-7
  --fail OP=CODE[xN][@M]  a host operation fails with CODE on every call, the next N, or from
                       the Mth on (once unless xN); e.g. GetValue=89x2, Filter=1; repeatable
  --duration SECONDS   live, record: stop after this long (default: at SIGINT or SIGTERM)
  --tree PID           live, record: only process PID and its descendants
  --source KIND        live, record: bpf, netlink or poll, instead of the first that works
  --output FILE        record: write the trace to FILE instead of stdout
  --threads N          replay: deliver on N threads at once (default 1)
  --keys [N]           live, replay: at the end, the N busiest repeat keys (default 20) with their
                       events delivered, reported, suppressed by the limit, filtered by the host
                       and reported again after leaving the cache; then totals and a daily forecast
  --keys-json FILE     live, replay: the same as one JSON document, written to FILE
  --keys-html FILE     live, replay: the same as a page (HTML, self-contained) with a histogram of
                       the events over time; with --compare, both configurations side by side
  --compare FILE       replay: also with FILE as configuration; totals and the keys differing most
  --version            this program's version, and the version the sensor library reports
  -h, --help           this text

SIGINT or SIGTERM stops the sensor cleanly (its state is saved); a second one exits at once.
Exit status: 0 done, 1 failed, 2 bad command line.
)";

}  // namespace KALVO::DevHost::Tool
