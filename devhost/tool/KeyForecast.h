// KeyForecast: what the sensor does with each repeat key, for the people who tune its two
// settings. Passes every event on to the sensor and watches the outcome: filtered by the host,
// reported, or held back by the report limit. The key of each event is the sensor's own (the
// same functions and settings reader, linked in, with the configuration in force at the
// event); only whether a key is still in the sensor's 512-entry cache cannot be observed, so a
// cache of the sensor's own type is fed the same keys in the same order.
//
// Memory stays bounded whatever the trace: keys are told apart by a 64-bit hash and kept as
// text up to KeyTextLimit bytes; the busiest are kept in a Space-Saving summary of KeyCapacity
// counters (a key's counts may be overstated by at most the summary's error, which the report
// states); distinct keys are counted exactly up to DistinctCapacity.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "devhost/tool/SensorSession.h"
#include "eil/core/LRUCache.h"
#include "monitor/RepeatSettings.h"

namespace KALVO::DevHost::Tool {

struct KeyFigures {
    std::uint64_t delivered = 0;
    std::uint64_t reported = 0;
    std::uint64_t suppressed = 0;     // held back by the report limit
    std::uint64_t filtered = 0;       // suppressed by the host's filter
    std::uint64_t reportedAgain = 0;  // reported after the key had left the sensor's cache
};

struct KeyRow {
    bool shell = false;  // a shell command's key; else a process step's
    std::string key;  // cut at KeyTextLimit bytes
    bool cut = false;
    KeyFigures figures;
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
    std::optional<std::uint64_t> firstTime, lastTime;  // nanoseconds since the epoch
};

class KeyForecast final : public EventSink {
public:
    static constexpr std::size_t KeyCapacity = 4096;
    static constexpr std::size_t DefaultRows = 20;  // the busiest keys shown unless asked otherwise
    static constexpr std::size_t DistinctCapacity = 1 << 17;
    static constexpr std::size_t KeyTextLimit = 4096;

    // Delivers into `session`, which is borrowed and outlives the forecast.
    explicit KeyForecast(SensorSession& session);

    // Serialised, every kind: each event's outcome is read off the host's counters around its
    // delivery.
    void Deliver(const TraceEvent& event) override;

    ForecastReport Report(std::size_t rows) const;

private:
    void ReadSettings(SecurityMonitor::RepeatSettings::Read form);

    SensorSession& m_session;
    mutable std::mutex m_mutex;
    SecurityMonitor::RepeatSettings m_settings;
    std::uint64_t m_reconfigurations = 0;  // the session's count when the settings were read
    // The sensor's two caches (process steps, shell commands), fed the same keys (the values
    // do not matter); the slots tell which key a slot held before, so an eviction is seen.
    EIL::Core::LRUCache<std::uint64_t, unsigned int, 512> m_caches[2];
    std::array<std::optional<std::uint64_t>, 512> m_slots[2]{};
    std::unordered_map<std::uint64_t, KeyRow> m_entries;           // by key hash
    std::set<std::pair<std::uint64_t, std::uint64_t>> m_byCount;  // (delivered, key hash)
    std::unordered_set<std::uint64_t> m_distinct, m_atLimit;       // key hashes
    ForecastReport m_totals;
};

// The report as one JSON document in the file --keys-json names (throws std::runtime_error when
// it cannot be written), and with --keys its busiest keys and the totals on stderr.
void ShowForecast(const ForecastReport& report, const ToolOptions& options);
// Two reports of the same trace side by side: totals, then the keys whose reported events
// differ most.
void PrintComparison(const ForecastReport& first, const ForecastReport& second, std::size_t rows);

}  // namespace KALVO::DevHost::Tool
