// KeyForecast: what the sensor does with each repeat key, for the people who tune its two
// settings. Passes every event on to the sensor and watches the outcome: filtered by the host,
// reported, or held back by the report limit. The key of each event is the sensor's own (the
// same functions and settings reader, linked in, with the configuration in force at the
// event); only whether a key is still in the sensor's cache cannot be observed, so a cache of
// the sensor's own type and capacity is fed the same keys in the same order, by its own rules.
//
// Memory stays bounded whatever the trace: keys are told apart by a 64-bit hash and kept as
// text up to KeyTextLimit bytes; the busiest are kept in a Space-Saving summary of KeyCapacity
// counters (a key's counts may be overstated by at most the summary's error, which the report
// states); distinct keys are counted exactly up to DistinctCapacity.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "configuration/Configuration.h"
#include "devhost/ValidUtf8.h"
#include "devhost/tool/ForecastTimeline.h"
#include "devhost/tool/SensorSession.h"
#include "eil/core/LRUCache.h"
#include "eil/json/RapidJson.h"
#include "monitor/RepeatKeys.h"
#include "monitor/RepeatSettings.h"

namespace KALVO::DevHost::Tool {

struct KeyFigures {
    std::uint64_t delivered = 0;
    std::uint64_t reported = 0;
    std::uint64_t suppressed = 0;     // held back by the report limit
    std::uint64_t filtered = 0;       // suppressed by the host's filter
    std::uint64_t reportedAgain = 0;  // reported after the key had left the sensor's cache
};

// One key's figures, and which key they are.
struct KeyRow : KeyFigures {
    bool shell = false;  // a shell command's key; else a process step's
    std::string key;     // cut at KeyTextLimit bytes
    bool cut = false;
    std::uint64_t error = 0;  // the counts may be overstated by at most this many events
    bool evicted = false;     // the key left the sensor's cache at least once
};

struct ForecastReport {
    std::vector<KeyRow> busiest;  // by events delivered, most first
    KeyFigures total;
    std::uint64_t distinctKeys = 0;
    bool distinctCapped = false;  // more keys than were counted
    std::uint64_t keysAtLimit = 0;
    std::uint64_t evictions = 0;
    std::uint64_t foldedKeys = 0;  // keys dropped from the summary into "others"
    std::uint64_t maxError = 0;
    std::optional<std::uint64_t> firstTime;  // nanoseconds since the epoch
    std::optional<std::uint64_t> lastTime;
    ForecastTimeline timeline;             // the events that carry a time
    std::optional<SensorIdentity> sensor;  // the loaded sensor, when it was asked
};

inline constexpr std::size_t ShownKeyLength = 72;

// A key for one terminal line: its start and its end around "...", invalid UTF-8 as U+FFFD.
inline std::string Shortened(const std::string& key) {
    const std::string shown = ValidUtf8(key);
    if (shown.size() <= ShownKeyLength) return shown;
    const std::string head = ValidUtf8(std::string_view(key).substr(0, ShownKeyLength / 2));
    const std::string tail = ValidUtf8(std::string_view(key).substr(key.size() - ShownKeyLength / 2 + 3));
    return head + "..." + tail;
}

// The hours between the first and the last event; nothing unless events carry different times.
inline std::optional<double> Hours(const ForecastReport& report) {
    if (!report.firstTime || *report.lastTime == *report.firstTime) return std::nullopt;
    return static_cast<double>(*report.lastTime - *report.firstTime) / 3.6e12;
}

// The figures of a key or of the total, by their names in the JSON report and in a comparison.
inline constexpr std::tuple<char const*, char const*, std::uint64_t KeyFigures::*> FigureNames[] = {
    {"delivered", "events with a repeat key", &KeyFigures::delivered},
    {"reported", "reported", &KeyFigures::reported},
    {"suppressed", "suppressed by the limit", &KeyFigures::suppressed},
    {"filtered", "filtered by the host", &KeyFigures::filtered},
    {"reported_again", "reported again after eviction", &KeyFigures::reportedAgain}};

class KeyForecast final : public EventSink {
public:
    static constexpr std::size_t DistinctCapacity = 1 << 17;
    static constexpr std::size_t KeyTextLimit = 4096;

    // Delivers into `session`, which is borrowed and outlives the forecast.
    explicit KeyForecast(SensorSession& session) : m_session(session), m_reconfigurations(session.Reconfigurations()) {
        ReadSettings(SecurityMonitor::RepeatSettings::Read::Construction);
    }

    // Serialised, every kind: each event's outcome is read off the host's counters around its
    // delivery.
    void Deliver(TraceEvent event) override {
        // Every event under the lock: a report of another thread's event must not land between
        // the counts read around this one.
        std::lock_guard lock(m_mutex);
        if (event.kind != EventKind::Create && event.kind != EventKind::Shell) {
            m_session.Deliver(std::move(event));
            return;
        }
        if (event.time) {
            if (!m_totals.firstTime || *event.time < *m_totals.firstTime) m_totals.firstTime = event.time;
            if (!m_totals.lastTime || *event.time > *m_totals.lastTime) m_totals.lastTime = event.time;
        }
        // The settings are read again, as the sensor did on Synchronize {"reason":"configuration"}.
        if (const std::uint64_t count = m_session.Reconfigurations(); count != m_reconfigurations) {
            m_reconfigurations = count;
            ReadSettings(SecurityMonitor::RepeatSettings::Read::Synchronize);
        }
        const bool shell = event.kind == EventKind::Shell;
        const ProcessRecord parent = event.parent.value_or(ProcessRecord{});
        std::string key;
        try {
            const std::string path = event.process.path.value_or("");
            const std::string commandLine = event.process.commandLine.value_or("");
            key = shell
                      ? SecurityMonitor::ShellCommandKey(path, commandLine, event.command)
                      : SecurityMonitor::ProcessTreeKey(parent.path.value_or(""), path, parent.commandLine.value_or(""),
                                                        commandLine, m_settings.collapse);
        } catch (const std::regex_error&) {
            // The sensor fails on this event too: it counts and reports nothing. The forecast
            // lists it under "", a key the sensor never counts.
        }
        const std::uint64_t hash = std::hash<std::string>{}(key)*2 + (shell ? 1 : 0);

        const Host& host = m_session.GetHost();
        const std::uint64_t filteredBefore = host.Filter().Suppressed();
        const std::uint64_t reportedBefore = host.Reports().EventCount();
        m_session.Deliver(std::move(event));
        const bool filtered = host.Filter().Suppressed() != filteredBefore;
        const bool reported = host.Reports().EventCount() != reportedBefore;

        // Space-Saving: when the summary is full, the least counted key makes room; the newcomer
        // inherits its count as the bound of its own overstatement.
        auto found = m_entries.find(hash);
        if (found == m_entries.end()) {
            std::uint64_t inherited = 0;
            if (m_entries.size() >= KeyCapacity) {
                const auto least = m_byCount.begin();
                inherited = least->first;
                m_entries.erase(least->second);
                m_byCount.erase(least);
                ++m_totals.foldedKeys;
                m_totals.maxError = std::max(m_totals.maxError, inherited);
            }
            KeyRow row{{inherited}, shell, key.substr(0, KeyTextLimit), key.size() > KeyTextLimit, inherited};
            found = m_entries.emplace(hash, std::move(row)).first;
        } else {
            m_byCount.erase({found->second.delivered, hash});
        }
        KeyRow& entry = found->second;
        m_byCount.emplace(++entry.delivered, hash);
        const std::int32_t limit = m_settings.reportLimit.load();
        const auto count = [&](std::uint64_t KeyFigures::*field) {
            ++(entry.*field);
            ++(m_totals.total.*field);
        };
        ++m_totals.total.delivered;
        if (filtered) {
            count(&KeyFigures::filtered);
        } else if (SecurityMonitor::CountsRepeats(limit) && SecurityMonitor::IsCountedKey(key)) {
            // The sensor counted the key: follow its cache to see keys leave it. A slot that held
            // another key lost it.
            std::optional<std::uint64_t>& slot = m_slots[shell][m_caches[shell].Update(hash, 0)];
            if (slot && *slot != hash) {
                ++m_totals.evictions;
                if (auto evicted = m_entries.find(*slot); evicted != m_entries.end()) evicted->second.evicted = true;
            }
            slot = hash;
        }
        if (reported) {
            // A key that had used up its limit and is reported again was forgotten by the cache.
            if (entry.evicted && SecurityMonitor::CountsRepeats(limit) &&
                !SecurityMonitor::WithinReportLimit(entry.reported + 1, limit))
                count(&KeyFigures::reportedAgain);
            count(&KeyFigures::reported);
        } else if (!filtered) {
            count(&KeyFigures::suppressed);
            if (m_atLimit.size() < DistinctCapacity) m_atLimit.insert(hash);
        }
        if (event.time) m_totals.timeline.Count(*event.time, filtered, reported);
        if (m_distinct.size() < DistinctCapacity) {
            m_distinct.insert(hash);
        } else {
            m_totals.distinctCapped |= !m_distinct.contains(hash);
        }
    }

    ForecastReport Report(std::size_t rows) const {
        std::lock_guard lock(m_mutex);
        ForecastReport report = m_totals;
        report.distinctKeys = m_distinct.size();
        report.keysAtLimit = m_atLimit.size();
        for (auto it = m_byCount.rbegin(); it != m_byCount.rend() && report.busiest.size() < rows; ++it)
            report.busiest.push_back(m_entries.at(it->second));
        return report;
    }

private:
    void ReadSettings(SecurityMonitor::RepeatSettings::Read form) {
        // The sensor keeps what it had when its configuration cannot be read; so does the forecast.
        try {
            m_settings.ReadFrom(Configuration::Configuration(m_session.GetHost().Root()), form);
        } catch (...) {
        }
    }

    SensorSession& m_session;
    mutable std::mutex m_mutex;
    SecurityMonitor::RepeatSettings m_settings;
    std::uint64_t m_reconfigurations = 0;  // the session's count when the settings were read
    // The sensor's two caches (process steps, shell commands), fed the same keys (the values
    // do not matter); the slots tell which key a slot held before, so an eviction is seen.
    EIL::Core::LRUCache<std::uint64_t, unsigned int, SecurityMonitor::RepeatCacheCapacity> m_caches[2];
    std::array<std::optional<std::uint64_t>, SecurityMonitor::RepeatCacheCapacity> m_slots[2]{};
    std::unordered_map<std::uint64_t, KeyRow> m_entries;          // by key hash
    std::set<std::pair<std::uint64_t, std::uint64_t>> m_byCount;  // (delivered, key hash)
    std::unordered_set<std::uint64_t> m_distinct;                 // key hashes
    std::unordered_set<std::uint64_t> m_atLimit;                  // key hashes of keys that reached the limit
    ForecastReport m_totals;
};

inline std::string ForecastJson(const ForecastReport& report) {
    EIL::RJ::StringBuffer buffer;
    EIL::RJ::Writer<EIL::RJ::StringBuffer> writer(buffer);
    const auto figures = [&](const KeyFigures& f) {
        for (const auto& [name, label, field] : FigureNames) {
            writer.Key(name);
            writer.Uint64(f.*field);
        }
    };
    writer.StartObject();
    if (report.sensor) {
        // Whether the sensor loaded is the build whose keys this forecast uses.
        writer.Key("sensor");
        writer.StartObject();
        writer.Key("version");
        if (report.sensor->version)
            WriteJsonText(writer, *report.sensor->version);
        else
            writer.Null();
        writer.Key("tool_version");
        writer.String(SecurityMonitor::Version);
        writer.Key("same_build");
        writer.Bool(report.sensor->SameBuild());
        writer.EndObject();
    }
    writer.Key("keys");
    writer.StartArray();
    for (const KeyRow& row : report.busiest) {
        writer.StartObject();
        writer.Key("kind");
        writer.String(row.shell ? "shell" : "process_step");
        writer.Key("key");
        WriteJsonText(writer, row.key);
        if (row.cut) {
            writer.Key("key_cut");
            writer.Bool(true);
        }
        figures(row);
        writer.Key("error");
        writer.Uint64(row.error);
        writer.EndObject();
    }
    writer.EndArray();
    writer.Key("total");
    writer.StartObject();
    figures(report.total);
    writer.Key("distinct_keys");
    writer.Uint64(report.distinctKeys);
    writer.Key("distinct_keys_capped");
    writer.Bool(report.distinctCapped);
    writer.Key("keys_at_limit");
    writer.Uint64(report.keysAtLimit);
    writer.Key("evictions");
    writer.Uint64(report.evictions);
    writer.Key("folded_keys");
    writer.Uint64(report.foldedKeys);
    writer.Key("max_error");
    writer.Uint64(report.maxError);
    if (const std::optional<double> hours = Hours(report)) {
        writer.Key("hours");
        writer.Double(*hours);
        writer.Key("events_per_hour");
        writer.Double(report.total.delivered / *hours);
        writer.Key("reported_per_day");
        writer.Double(report.total.reported / *hours * 24);
    }
    writer.EndObject();
    if (!report.timeline.Empty()) WriteTimeline(writer, report.timeline);
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

// The report as one JSON document in the file --keys-json names (throws std::runtime_error when
// it cannot be written), and with --keys its busiest keys and the totals on stderr.
inline void ShowForecast(const ForecastReport& report, const ToolOptions& options) {
    if (options.keysJson) {
        std::ofstream file(*options.keysJson, std::ios::binary | std::ios::trunc);
        file << ForecastJson(report) << '\n';
        if (!file.flush())
            throw std::runtime_error(fmt::format("cannot write {}: {}", *options.keysJson, std::strerror(errno)));
    }
    if (!options.keys) return;
    Note(
        fmt::format("busiest {} repeat keys (delivered, reported, suppressed by the limit, filtered by the host, "
                    "reported again after leaving the cache):",
                    report.busiest.size()));
    for (const KeyRow& row : report.busiest) {
        Note(fmt::format("{:>7} {:>7} {:>7} {:>7} {:>5}  {} {}", row.delivered, row.reported, row.suppressed,
                         row.filtered, row.reportedAgain, row.shell ? "shell" : "step ", Shortened(row.key)));
    }
    const KeyFigures& t = report.total;
    Note(
        fmt::format("{}{} distinct keys, {} reached the limit, {} cache evictions; of {} events {} reported, {} "
                    "suppressed ({:.1f} %), {} filtered, {} reported again after eviction",
                    report.distinctCapped ? "more than " : "", report.distinctKeys, report.keysAtLimit,
                    report.evictions, t.delivered, t.reported, t.suppressed,
                    t.delivered == 0 ? 0.0 : 100.0 * t.suppressed / t.delivered, t.filtered, t.reportedAgain));
    if (report.foldedKeys != 0)
        Note(
            fmt::format("{} keys folded into others (summary of {} keys): counts above may be overstated by at most {}",
                        report.foldedKeys, KeyCapacity, report.maxError));
    if (const std::optional<double> hours = Hours(report)) {
        Note(
            fmt::format("over {:.2f} h of events: {:.0f} events per hour, {:.0f} reported per hour; forecast {:.0f} "
                        "reported per day",
                        *hours, t.delivered / *hours, t.reported / *hours, t.reported / *hours * 24));
    } else {
        Note(report.firstTime
                 ? "no per-day forecast: all events carry the same time"
                 : "no per-day forecast: the events carry no times (traces recorded before times were kept)");
    }
}

// Two reports of the same trace side by side: totals, then the keys whose reported events
// differ most.
inline void PrintComparison(const ForecastReport& first, const ForecastReport& second, std::size_t rows) {
    const auto line = [](char const* what, const auto& a, const auto& b) {
        Note(fmt::format("{:<34} {:>9} {:>9}", what, a, b));
    };
    line("", "first", "second");
    for (const auto& [name, label, field] : FigureNames) line(label, first.total.*field, second.total.*field);
    line("distinct keys", first.distinctKeys, second.distinctKeys);
    line("keys that reached the limit", first.keysAtLimit, second.keysAtLimit);

    // The same process step is one key under both settings only where neither collapses it;
    // the busiest keys of both are compared by their text.
    std::map<std::pair<bool, std::string>, std::array<std::uint64_t, 2>> keys;  // reported by the first and the second
    for (const KeyRow& row : first.busiest) keys[{row.shell, row.key}][0] = row.reported;
    for (const KeyRow& row : second.busiest) keys[{row.shell, row.key}][1] = row.reported;
    std::vector<const decltype(keys)::value_type*> differing;
    for (const auto& entry : keys)
        if (entry.second[0] != entry.second[1]) differing.push_back(&entry);
    const auto gap = [](const auto* entry) {
        return std::max(entry->second[0], entry->second[1]) - std::min(entry->second[0], entry->second[1]);
    };
    std::stable_sort(differing.begin(), differing.end(), [&](const auto* x, const auto* y) { return gap(x) > gap(y); });
    differing.resize(std::min(differing.size(), rows));
    Note("keys whose reported events differ most (first, second):");
    for (const auto* entry : differing) {
        const auto& [key, reported] = *entry;
        Note(fmt::format("{:>9} {:>9}  {} {}", reported[0], reported[1], key.first ? "shell" : "step ",
                         Shortened(key.second)));
    }
}

}  // namespace KALVO::DevHost::Tool
