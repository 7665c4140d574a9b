// ForecastPage: the repeat-key forecast as one self-contained HTML page, for the people who
// tune the sensor's two settings and want to see, not read, what a configuration reports: the
// events over time as a histogram, the totals with the per-day forecast, and the busiest keys;
// two configurations side by side when a trace is compared. The page loads nothing and runs
// nothing (inline SVG and one inline style sheet, under a policy that forbids the rest), and
// every text from the trace is escaped, whatever its bytes.
#pragma once

#include <string>
#include <vector>

#include "devhost/tool/KeyForecast.h"

namespace KALVO::DevHost::Tool {

// One run of the sensor on the trace: what the page calls it and its forecast (borrowed).
struct PageColumn {
    std::string title;
    const ForecastReport* report = nullptr;
};

// The page: `source` names the events' origin (a trace file or this machine), each column shows
// at most `rows` keys. Every figure taken from a report carries data-json="PATH", its place in
// that run's --keys-json document (keys.3.reported, total.reported_per_day, timeline.buckets.0.
// delivered), and data-value with the exact value where the text shows it rounded or shortened.
std::string ForecastPage(const std::string& source, const std::vector<PageColumn>& columns, std::size_t rows);

// Writes the page to `path`; throws std::runtime_error when it cannot.
void WriteForecastPage(const std::string& path, const std::string& source, const std::vector<PageColumn>& columns,
                       std::size_t rows);

}  // namespace KALVO::DevHost::Tool
