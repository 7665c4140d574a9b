#include "devhost/tool/ToolOptions.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <map>
#include <string_view>

#include "devhost/tool/Console.h"
#include "devhost/tool/KeyForecast.h"

namespace KALVO::DevHost::Tool {

namespace {

// `text` as a whole number from `low` to `high`, else nothing.
template <class T>
std::optional<T> Whole(std::string_view text, T low, T high) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < low || value > high) return std::nullopt;
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

}  // namespace

ToolOptions ParseToolOptions(int argc, char const* const* argv) {
    using Logging::v0::Severity;
    ToolOptions options;
    CLI::App app{"kalvo-devhost"};
    app.set_help_flag();  // the usage text is our own
    bool help = false;
    app.add_flag("-h,--help", help);
    // Options of the sensor are accepted before and after the command.
    app.fallthrough();
    app.add_option("--plugin", options.plugin);
    app.add_option("--config", options.config);
    app.add_option("--state", options.stateDir)->check([](const std::string& value) {
        return value.empty() ? "the directory name is empty" : "";
    });
    AddChecked(app, "--log-level", "error, warn, info, trace or a number 0-7", [&](const std::string& text) {
        const std::map<std::string, Severity> names = {
            {"error", Severity::Error}, {"warn", Severity::Warn}, {"warning", Severity::Warn}, {"info", Severity::Info}, {"trace", Severity::Trace}};
        const auto named = names.find(text);
        const auto level = named != names.end() ? static_cast<std::uint32_t>(named->second) : Whole<std::uint32_t>(text, 0, 7);
        options.logThreshold = level.value_or(options.logThreshold);
        return level.has_value();
    });
    app.add_option_function<std::string>("--fail", [&](const std::string& rule) {
        try {
            options.faults.push_back(ParseFaultRule(rule));
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError("--fail " + rule, error.what());
        }
    })->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)->expected(1);

    CLI::App* live = app.add_subcommand("live");
    CLI::App* record = app.add_subcommand("record");
    CLI::App* replay = app.add_subcommand("replay");
    CLI::App* health = app.add_subcommand("health");
    CLI::App* helpCommand = app.add_subcommand("help");
    for (CLI::App* machine : {live, record}) {
        AddChecked(*machine, "--duration", "a positive number of seconds", [&](const std::string& text) {
            std::size_t used = 0;
            try {
                options.duration = std::stod(text, &used);
            } catch (const std::exception&) {
                return false;
            }
            return used == text.size() && std::isfinite(*options.duration) && *options.duration > 0 && *options.duration <= 1e9;
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
        machine->add_flag_callback("--poll", [&] { options.source = LiveSourceKind::Poll; });
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
        AddChecked(*sensor, "--keys", fmt::format("a number from 1 to {}", KeyForecast::KeyCapacity), [&](const std::string& text) {
            options.keys = text.empty() ? KeyForecast::DefaultRows : Whole<std::size_t>(text, 1, KeyForecast::KeyCapacity);
            return options.keys.has_value();
        })->expected(0, 1)->default_str("");
        sensor->add_option("--keys-json", options.keysJson);
    }
    health->add_option("--payload", options.payload);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (help) return options;  // --help
        throw UsageError(std::string(error.what()) + " (see --help)");
    }
    if (help || helpCommand->parsed()) return options;
    const std::pair<CLI::App*, Command> commands[] = {
        {live, Command::Live}, {record, Command::Record}, {replay, Command::Replay}, {health, Command::Health}};
    for (const auto& [subcommand, command] : commands)
        if (subcommand->parsed()) options.command = command;
    if (options.command == Command::Help) throw UsageError("no command given: live, record, replay or health (see --help)");
    if (options.command == Command::Record) {
        for (char const* name : {"--plugin", "--config", "--state", "--log-level", "--fail"})
            if (app.count(name) != 0) Warn(fmt::format("{} has no effect on record, which runs no sensor", name));
    }
    return options;
}

std::string UsageText() {
    return R"(Usage: kalvo-devhost COMMAND [OPTIONS]

Runs the kalvo.securitymonitor sensor plug-in inside the stand-in host, as the agent would,
and shows what it reports (stdout, one JSON object a line) and what it suppresses (a summary
on stderr at the end). The sensor's own log lines go to stderr.

Commands:
  live           the sensor on this machine's processes: every running process (kernel
                 threads aside) as "exists", then creations, terminations and the lines typed
                 into shells as they happen, from BPF programs in the kernel (root), else
                 from the kernel's netlink process connector (root), else by polling /proc
  record         the same events written as a trace, one JSON object a line; no sensor
  replay TRACE   delivers a recorded trace to the sensor ("-" reads stdin as it is written)
  health         sends the health-check command and prints the answer and its code

Options:
  --plugin PATH        the sensor library (default: the one next to this program, else
                       )" KALVO_BUILT_PLUGIN R"()
  --config FILE        the configuration the host serves the sensor (a JSON object); served
                       again, with Synchronize {"reason":"configuration"}, when the file
                       changes or on SIGHUP
  --state DIR          where the host's storage (the sensor's saved state) lives; live keeps
                       it in $XDG_STATE_HOME/kalvo-devhost (~/.local/state/kalvo-devhost) by
                       default, replay and health keep it in memory unless this is given
  --log-level LEVEL    the sensor's log lines shown: error, warn (default), info, trace
  --fail OP=CODE[xN]   make a host operation fail with CODE, on every call or the next N
                       or, with @M, from the Mth call on, once unless xN (e.g. GetValue=89x2,
                       GetValue=89@2, Filter=1); repeatable
  --duration SECONDS   live, record: stop after this long (default: at SIGINT or SIGTERM)
  --tree PID           live, record: only process PID and its descendants
  --source KIND        live, record: bpf, netlink or poll, instead of the first that works
  --poll               live, record: the same as --source poll
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
