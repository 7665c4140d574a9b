// ForecastTimeline: the forecast's figures over the events' time, for a histogram of what a
// configuration reports hour by hour. The buckets start at 10 s and widen (1 min, 5 min,
// 15 min, 1 h, 6 h, 1 day, 1 week, then doubling) whenever the events span more than
// MaxBuckets of them: a short trace still shows its shape, a day of events shows its hours,
// and memory stays bounded whatever times a trace carries.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <vector>

namespace KALVO::DevHost::Tool {

// One bucket's events, counted as the forecast's totals are.
struct TimeFigures {
    std::uint64_t delivered = 0;
    std::uint64_t reported = 0;
    std::uint64_t suppressed = 0;  // held back by the report limit
    std::uint64_t filtered = 0;    // suppressed by the host's filter
};

class ForecastTimeline {
public:
    static constexpr std::uint64_t MaxBuckets = 48;

    // Counts one event at `time` (nanoseconds since the epoch) with its outcome.
    void Count(std::uint64_t time, bool filtered, bool reported) {
        TimeFigures& bucket = m_buckets[time / Nanoseconds()];
        ++bucket.delivered;
        if (filtered) ++bucket.filtered;
        if (reported) {
            ++bucket.reported;
        } else if (!filtered) {
            ++bucket.suppressed;
        }
        while (m_buckets.rbegin()->first - m_buckets.begin()->first >= MaxBuckets) Widen();
    }

    bool Empty() const noexcept { return m_buckets.empty(); }
    std::uint64_t BucketSeconds() const noexcept { return m_seconds; }
    // When the first bucket starts, in nanoseconds since the epoch (0 when empty).
    std::uint64_t Start() const noexcept { return m_buckets.empty() ? 0 : m_buckets.begin()->first * Nanoseconds(); }

    // Every bucket from the first to the last, the empty ones between included.
    std::vector<TimeFigures> Buckets() const {
        std::vector<TimeFigures> buckets;
        if (m_buckets.empty()) return buckets;
        buckets.resize(m_buckets.rbegin()->first - m_buckets.begin()->first + 1);
        for (const auto& [index, figures] : m_buckets) buckets[index - m_buckets.begin()->first] = figures;
        return buckets;
    }

private:
    std::uint64_t Nanoseconds() const noexcept { return m_seconds * 1'000'000'000; }

    // Each width is a multiple of the one before, so a bucket falls whole into a wider one.
    void Widen() {
        constexpr std::array<std::uint64_t, 7> widths = {60, 300, 900, 3600, 21600, 86400, 604800};
        std::uint64_t wider = m_seconds * 2;
        for (const std::uint64_t width : widths) {
            if (width > m_seconds) {
                wider = width;
                break;
            }
        }
        std::map<std::uint64_t, TimeFigures> merged;
        for (const auto& [index, figures] : m_buckets) {
            TimeFigures& into = merged[index * m_seconds / wider];
            into.delivered += figures.delivered;
            into.reported += figures.reported;
            into.suppressed += figures.suppressed;
            into.filtered += figures.filtered;
        }
        m_buckets = std::move(merged);
        m_seconds = wider;
    }

    std::uint64_t m_seconds = 10;                    // the width of a bucket
    std::map<std::uint64_t, TimeFigures> m_buckets;  // by start time / width
};

// The timeline as a member of the forecast's JSON: "timeline": {"start": NS, "bucket_seconds": S,
// "buckets": [{"delivered": N, "reported": N, "suppressed": N, "filtered": N}, ...]}.
template <class Writer>
void WriteTimeline(Writer& writer, const ForecastTimeline& timeline) {
    writer.Key("timeline");
    writer.StartObject();
    writer.Key("start");
    writer.Uint64(timeline.Start());
    writer.Key("bucket_seconds");
    writer.Uint64(timeline.BucketSeconds());
    writer.Key("buckets");
    writer.StartArray();
    for (const TimeFigures& bucket : timeline.Buckets()) {
        writer.StartObject();
        writer.Key("delivered");
        writer.Uint64(bucket.delivered);
        writer.Key("reported");
        writer.Uint64(bucket.reported);
        writer.Key("suppressed");
        writer.Uint64(bucket.suppressed);
        writer.Key("filtered");
        writer.Uint64(bucket.filtered);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
}

}  // namespace KALVO::DevHost::Tool
