// ToolOptions: the command line of kalvo-devhost, parsed and checked before anything runs, so
// a mistake costs the user one clear line instead of a half-started sensor.
#pragma once

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
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

// `text` as a whole number from `low` to `high`, else nothing.
template <class T>
std::optional<T> Whole(std::string_view text, T low, T high) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < low || value > high)
        return std::nullopt;
    return value;
}

// An option whose value `parse` checks and stores; when it returns false, the message is
// "'VALUE' is not `what`".
template <class Parse>
CLI::Option* AddChecked(CLI::App& app, const std::string& name, const std::string& what, Parse parse) {
    return app.add_option_function<std::string>(name, [name, what, parse](const std::string& value) {
        if (!parse(value)) throw CLI::ValidationError(name, fmt::format("'{}' is not {}", value, what));
    });
}

// Parses argv[1..], warning of the sensor's options given to record. Throws UsageError.
inline ToolOptions ParseToolOptions(int argc, char const* const* argv) {
    using Logging::v0::Severity;
    ToolOptions options;
    CLI::App app{"kalvo-devhost"};
    app.set_help_flag();  // the usage text is our own
    bool help = false;
    app.add_flag("-h,--help", help);
    bool version = false;
    app.add_flag("--version", version);
    // Options of the sensor are accepted before and after the command.
    app.fallthrough();
    app.add_option("--plugin", options.plugin);
    app.add_option("--config", options.config);
    app.add_option("--state", options.stateDir)->check([](const std::string& value) {
        return value.empty() ? "the directory name is empty" : "";
    });
    AddChecked(app, "--log-level", "error, warn, info, trace or a number 0-7", [&](const std::string& text) {
        const std::map<std::string, Severity> names = {{"error", Severity::Error},
                                                       {"warn", Severity::Warn},
                                                       {"warning", Severity::Warn},
                                                       {"info", Severity::Info},
                                                       {"trace", Severity::Trace}};
        const auto named = names.find(text);
        const auto level =
            named != names.end() ? static_cast<std::uint32_t>(named->second) : Whole<std::uint32_t>(text, 0, 7);
        options.logThreshold = level.value_or(options.logThreshold);
        return level.has_value();
    });
    app.add_option_function<std::string>("--fail",
                                         [&](const std::string& rule) {
                                             try {
                                                 options.faults.push_back(ParseFaultRule(rule));
                                             } catch (const std::invalid_argument& error) {
                                                 throw CLI::ValidationError("--fail " + rule, error.what());
                                             }
                                         })
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->expected(1);

    // In Command's order.
    CLI::App* const commands[] = {app.add_subcommand("live"), app.add_subcommand("record"),
                                  app.add_subcommand("replay"), app.add_subcommand("health")};
    CLI::App *live = commands[0], *record = commands[1], *replay = commands[2];
    for (CLI::App* machine : {live, record}) {
        AddChecked(*machine, "--duration", "a positive number of seconds", [&](const std::string& text) {
            char* end = nullptr;
            options.duration = std::strtod(text.c_str(), &end);
            return !text.empty() && *end == '\0' && *options.duration > 0 && *options.duration <= 1e9;
        });
        AddChecked(*machine, "--tree", "a process id", [&](const std::string& text) {
            options.treeRoot = Whole<std::uint64_t>(text, 1, UINT64_MAX);
            return options.treeRoot.has_value();
        });
        AddChecked(*machine, "--source", "bpf, netlink or poll", [&](const std::string& text) {
            const std::map<std::string, LiveSourceKind> kinds = {
                {"bpf", LiveSourceKind::Bpf}, {"netlink", LiveSourceKind::Netlink}, {"poll", LiveSourceKind::Poll}};
            const auto kind = kinds.find(text);
            if (kind != kinds.end()) options.source = kind->second;
            return kind != kinds.end();
        });
    }
    record->add_option("--output", options.output);
    replay->add_option("trace", options.trace, "the trace, - for stdin")->required();
    AddChecked(*replay, "--threads", "a number from 1 to 256", [&](const std::string& text) {
        options.threads = Whole(text, 1u, 256u).value_or(0);
        return options.threads != 0;
    });
    replay->add_option("--compare", options.compare);
    for (CLI::App* sensor : {live, replay}) {
        // The count is optional: "--keys 5", "--keys=5" or "--keys" alone (the default rows).
        AddChecked(*sensor, "--keys", fmt::format("a number from 1 to {}", KeyCapacity),
                   [&](const std::string& text) {
                       options.keys = text.empty() ? DefaultKeyRows : Whole<std::size_t>(text, 1, KeyCapacity);
                       return options.keys.has_value();
                   })
            ->expected(0, 1)
            ->default_str("");
        sensor->add_option("--keys-json", options.keysJson);
        sensor->add_option("--keys-html", options.keysHtml);
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (help) return options;  // --help
        throw UsageError(std::string(error.what()) + " (see --help)");
    }
    if (help) return options;
    if (version) {
        options.command = Command::Version;
        return options;
    }
    for (std::size_t index = 0; index < std::size(commands); ++index)
        if (commands[index]->parsed()) options.command = static_cast<Command>(index);
    if (options.command == Command::Help)
        throw UsageError("no command given: live, record, replay or health (see --help)");
    if (options.command == Command::Record) {
        for (char const* name : {"--plugin", "--config", "--state", "--log-level", "--fail"})
            if (app.count(name) != 0) Warn(fmt::format("{} has no effect on record, which runs no sensor", name));
    }
    return options;
}

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
