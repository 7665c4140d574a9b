#include "devhost/tool/ToolOptions.h"

#include <charconv>
#include <cmath>
#include <string_view>

#include "devhost/tool/KeyForecast.h"

namespace KALVO::DevHost::Tool {

namespace {

template <class T>
std::optional<T> ParseWhole(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::uint32_t ParseLogLevel(std::string_view text) {
    using Logging::v0::Severity;
    if (text == "error") return static_cast<std::uint32_t>(Severity::Error);
    if (text == "warn" || text == "warning") return static_cast<std::uint32_t>(Severity::Warn);
    if (text == "info") return static_cast<std::uint32_t>(Severity::Info);
    if (text == "trace") return static_cast<std::uint32_t>(Severity::Trace);
    if (const auto number = ParseWhole<std::uint32_t>(text); number && *number <= 7) return *number;
    throw UsageError("--log-level: '" + std::string(text) + "' is not error, warn, info, trace or a number 0-7");
}

// The options that belong to one command only, and that command.
struct Specific {
    std::string_view name;
    std::vector<Command> commands;
};

const std::vector<Specific>& SpecificOptions() {
    static const std::vector<Specific> options = {
        {"--duration", {Command::Live, Command::Record}}, {"--tree", {Command::Live, Command::Record}},
        {"--poll", {Command::Live, Command::Record}},     {"--output", {Command::Record}},
        {"--threads", {Command::Replay}},                 {"--payload", {Command::Health}},
        {"--keys", {Command::Live, Command::Replay}},     {"--keys-json", {Command::Live, Command::Replay}},
        {"--compare", {Command::Replay}},
    };
    return options;
}

// Options for the sensor, which record (no sensor) accepts with a warning.
constexpr std::string_view SensorOptions[] = {"--plugin", "--config", "--state", "--log-level", "--fail"};

std::string_view CommandName(Command command) {
    switch (command) {
        case Command::Live: return "live";
        case Command::Record: return "record";
        case Command::Replay: return "replay";
        case Command::Health: return "health";
        case Command::Help: return "help";
    }
    return "?";
}

}  // namespace

ToolOptions ParseToolOptions(int argc, char const* const* argv) {
    ToolOptions options;
    std::optional<Command> command;
    std::vector<std::string> positional;
    std::vector<std::string> given;

    for (int index = 1; index < argc; ++index) {
        std::string_view argument = argv[index];
        if (argument == "-h" || argument == "--help") {
            options.command = Command::Help;
            return options;
        }
        if (argument == "-" || !argument.starts_with("-")) {
            positional.emplace_back(argument);
            continue;
        }
        if (!argument.starts_with("--")) throw UsageError("unknown option '" + std::string(argument) + "' (see --help)");
        std::string name(argument);
        std::optional<std::string> inlineValue;
        if (const std::size_t equals = name.find('='); equals != std::string::npos) {
            inlineValue = name.substr(equals + 1);
            name.resize(equals);
        }
        const auto value = [&]() -> std::string {
            if (inlineValue) return *inlineValue;
            if (index + 1 >= argc) throw UsageError("option " + name + " needs a value (see --help)");
            return argv[++index];
        };

        if (name == "--plugin") {
            options.plugin = value();
        } else if (name == "--config") {
            options.config = value();
        } else if (name == "--state") {
            options.stateDir = value();
            if (options.stateDir->empty()) throw UsageError("--state: the directory name is empty");
        } else if (name == "--log-level") {
            options.logThreshold = ParseLogLevel(value());
        } else if (name == "--fail") {
            const std::string rule = value();
            try {
                options.faults.push_back(ParseFaultRule(rule));
            } catch (const std::invalid_argument& error) {
                throw UsageError("--fail " + rule + ": " + error.what());
            }
        } else if (name == "--duration") {
            const std::string text = value();
            std::size_t used = 0;
            double seconds = 0;
            try {
                seconds = std::stod(text, &used);
            } catch (const std::exception&) {
                used = 0;
            }
            if (used != text.size() || !std::isfinite(seconds) || seconds <= 0 || seconds > 1e9)
                throw UsageError("--duration: '" + text + "' is not a positive number of seconds");
            options.duration = seconds;
        } else if (name == "--tree") {
            const std::string text = value();
            const auto pid = ParseWhole<std::uint64_t>(text);
            if (!pid || *pid == 0) throw UsageError("--tree: '" + text + "' is not a process id");
            options.treeRoot = *pid;
        } else if (name == "--poll") {
            if (inlineValue) throw UsageError("--poll takes no value");
            options.poll = true;
        } else if (name == "--output") {
            options.output = value();
        } else if (name == "--threads") {
            const std::string text = value();
            const auto threads = ParseWhole<unsigned>(text);
            if (!threads || *threads < 1 || *threads > 256)
                throw UsageError("--threads: '" + text + "' is not a number from 1 to 256");
            options.threads = *threads;
        } else if (name == "--payload") {
            options.payload = value();
        } else if (name == "--keys") {
            // The count is optional: "--keys 5", "--keys=5" or "--keys" alone (20).
            std::optional<std::string> text = inlineValue;
            if (!text && index + 1 < argc && ParseWhole<std::size_t>(argv[index + 1])) text = argv[++index];
            const auto rows = text ? ParseWhole<std::size_t>(*text) : std::optional<std::size_t>(20);
            if (!rows || *rows < 1 || *rows > KeyForecast::KeyCapacity)
                throw UsageError("--keys: '" + text.value_or("") + "' is not a number from 1 to 4096");
            options.keys = *rows;
        } else if (name == "--keys-json") {
            options.keysJson = value();
        } else if (name == "--compare") {
            options.compare = value();
        } else {
            throw UsageError("unknown option '" + name + "' (see --help)");
        }
        given.push_back(name);
    }

    if (positional.empty()) throw UsageError("no command given: live, record, replay or health (see --help)");
    const std::string& word = positional.front();
    if (word == "live") {
        command = Command::Live;
    } else if (word == "record") {
        command = Command::Record;
    } else if (word == "replay") {
        command = Command::Replay;
    } else if (word == "health") {
        command = Command::Health;
    } else if (word == "help") {
        command = Command::Help;
    } else {
        throw UsageError("unknown command '" + word + "': live, record, replay or health (see --help)");
    }
    options.command = *command;

    const std::size_t operands = options.command == Command::Replay ? 1 : 0;
    if (options.command == Command::Replay && positional.size() < 2)
        throw UsageError("replay needs a trace file (or - for stdin)");
    if (positional.size() > operands + 1)
        throw UsageError("unexpected argument '" + positional[operands + 1] + "' (see --help)");
    if (options.command == Command::Replay) options.trace = positional[1];

    for (const std::string& name : given) {
        for (const Specific& specific : SpecificOptions()) {
            if (specific.name != name) continue;
            bool applies = false;
            for (const Command allowed : specific.commands) applies = applies || allowed == options.command;
            if (!applies && options.command != Command::Help) {
                throw UsageError(name + " does not apply to " + std::string(CommandName(options.command)) +
                                 " (see --help)");
            }
        }
        if (options.command == Command::Record) {
            for (const std::string_view sensorOption : SensorOptions) {
                if (sensorOption == name) options.ignored.push_back(name);
            }
        }
    }
    return options;
}

std::string UsageText(const std::string& defaultPlugin) {
    return R"(Usage: kalvo-devhost COMMAND [OPTIONS]

Runs the kalvo.securitymonitor sensor plug-in inside the stand-in host, as the agent would,
and shows what it reports (stdout, one JSON object a line) and what it suppresses (a summary
on stderr at the end). The sensor's own log lines go to stderr.

Commands:
  live           the sensor on this machine's processes: every running process (kernel
                 threads aside) as "exists", then creations and terminations as they happen,
                 from the kernel's netlink process connector (root) or by polling /proc
  record         the same events written as a trace, one JSON object a line; no sensor
  replay TRACE   delivers a recorded trace to the sensor ("-" reads stdin as it is written)
  health         sends the health-check command and prints the answer and its code

Options:
  --plugin PATH        the sensor library (default: the one next to this program, else
                       )" + defaultPlugin + R"()
  --config FILE        the configuration the host serves the sensor (a JSON object); served
                       again, with Synchronize {"reason":"configuration"}, when the file
                       changes or on SIGHUP
  --state DIR          where the host's storage (the sensor's saved state) lives; live keeps
                       it in $XDG_STATE_HOME/kalvo-devhost (~/.local/state/kalvo-devhost) by
                       default, replay and health keep it in memory unless this is given
  --log-level LEVEL    the sensor's log lines shown: error, warn (default), info, trace
  --fail OP=CODE[xN]   make a host operation fail with CODE, on every call or the next N
                       (e.g. RegisterProcessMonitor=13, GetValue=89x2, Filter=1); repeatable
  --duration SECONDS   live, record: stop after this long (default: at SIGINT or SIGTERM)
  --tree PID           live, record: only process PID and its descendants
  --poll               live, record: poll /proc even where the connector is available
  --output FILE        record: write the trace to FILE instead of stdout
  --threads N          replay: deliver on N threads at once (default 1)
  --payload JSON       health: the request (default {"id":"kalvo-devhost"})
  --keys [N]           live, replay: at the end, the N busiest repeat keys (default 20), each
                       with its events delivered, reported, suppressed by the report limit,
                       filtered by the host and reported again after leaving the sensor's
                       512-entry cache; then the totals and, where events carry times, the
                       reported events forecast per day
  --keys-json FILE     live, replay: the same as one JSON document, written to FILE
  --compare FILE       replay: replay the trace once more, into a fresh sensor, with FILE as the
                       configuration, and show both forecasts and the keys that differ most
  -h, --help           this text

SIGINT or SIGTERM stops the sensor cleanly (its state is saved); a second one exits at once.
Exit status: 0 done, 1 failed, 2 bad command line.
)";
}

}  // namespace KALVO::DevHost::Tool
