// The forecast page: HTML written by hand into a string, every trace text through Escaped().
#include "devhost/tool/ForecastPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>

#include "devhost/ValidUtf8.h"
#include "package/Version.h"

namespace KALVO::DevHost::Tool {
namespace {

constexpr char const* ReportedColour = "#2563eb";
constexpr char const* SuppressedColour = "#f59e0b";
constexpr char const* FilteredColour = "#94a3b8";

// Any bytes as HTML text or attribute value: invalid UTF-8 as U+FFFD, markup characters as
// references, NUL (which a parser would drop or replace anyway) as U+FFFD.
std::string Escaped(std::string_view bytes) {
    std::string text;
    for (const char c : ValidUtf8(bytes)) {
        switch (c) {
        case '&': text += "&amp;"; break;
        case '<': text += "&lt;"; break;
        case '>': text += "&gt;"; break;
        case '"': text += "&quot;"; break;
        case '\'': text += "&#39;"; break;
        case '\0': text += "\xEF\xBF\xBD"; break;
        default: text += c;
        }
    }
    return text;
}

// 1234567 as "1,234,567".
std::string Grouped(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
    return digits;
}

std::string Grouped(double number) { return Grouped(static_cast<std::uint64_t>(std::llround(std::max(0.0, number)))); }

// A figure of the JSON document at `path`: its text, and its exact value when the text rounds it.
std::string Figure(const std::string& path, std::uint64_t value) {
    return fmt::format(R"(<span data-json="{}">{}</span>)", path, Grouped(value));
}

std::string Figure(const std::string& path, double value, int decimals) {
    const std::string shown = decimals == 0 ? Grouped(value) : fmt::format("{:.{}f}", value, decimals);
    return fmt::format(R"(<span data-json="{}" data-value="{}">{}</span>)", path, value, shown);
}

std::string Percent(std::uint64_t part, std::uint64_t whole) {
    return whole == 0 ? std::string() : fmt::format("{:.1f} %", 100.0 * static_cast<double>(part) / whole);
}

// A time in UTC; `format` as strftime's.
std::string Utc(std::uint64_t nanoseconds, char const* format) {
    const std::time_t seconds = static_cast<std::time_t>(nanoseconds / 1'000'000'000);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    char text[64] = {};
    std::strftime(text, sizeof text, format, &parts);
    return text;
}

std::string Width(std::uint64_t seconds) {
    if (seconds % 86400 == 0) return seconds == 86400 ? "day" : fmt::format("{} days", seconds / 86400);
    if (seconds % 3600 == 0) return seconds == 3600 ? "hour" : fmt::format("{} hours", seconds / 3600);
    if (seconds % 60 == 0) return seconds == 60 ? "minute" : fmt::format("{} minutes", seconds / 60);
    return fmt::format("{} seconds", seconds);
}

// The smallest of 1, 2, 5 times a power of ten at or above `raw`.
std::uint64_t NiceStep(double raw) {
    std::uint64_t magnitude = 1;
    while (static_cast<double>(magnitude) * 10 <= raw) magnitude *= 10;
    for (const std::uint64_t factor : {1, 2, 5, 10})
        if (static_cast<double>(magnitude * factor) >= raw) return magnitude * factor;
    return magnitude * 10;
}

std::uint64_t TallestBucket(const ForecastReport& report) {
    std::uint64_t tallest = 0;
    for (const TimeFigures& bucket : report.timeline.Buckets()) tallest = std::max(tallest, bucket.delivered);
    return tallest;
}

// The histogram of one run: stacked bars of reported, suppressed and filtered events per
// bucket, on a scale up to `top` events shared by every column so that they compare at a glance.
std::string Histogram(const ForecastReport& report, std::uint64_t top, double width) {
    const ForecastTimeline& timeline = report.timeline;
    const std::vector<TimeFigures> buckets = timeline.Buckets();
    constexpr double height = 210;
    constexpr double left = 46;
    constexpr double right = 8;
    constexpr double above = 10;
    constexpr double below = 24;
    const std::uint64_t step = NiceStep(static_cast<double>(std::max<std::uint64_t>(top, 1)) / 4);
    const std::uint64_t scaleTop = (std::max<std::uint64_t>(top, 1) + step - 1) / step * step;
    const double plotHeight = height - above - below;
    const double slot = (width - left - right) / static_cast<double>(buckets.size());
    const auto y = [&](std::uint64_t value) {
        return above + plotHeight - plotHeight * static_cast<double>(value) / static_cast<double>(scaleTop);
    };

    std::string svg =
        fmt::format(R"(<svg viewBox="0 0 {0} {1}" width="100%" role="img" aria-label="events per bucket">)"
                    "\n",
                    width, height);
    for (std::uint64_t tick = 0; tick <= scaleTop; tick += step) {
        svg += fmt::format(
            R"(<line x1="{0}" x2="{1}" y1="{2:.1f}" y2="{2:.1f}" stroke="#e2e8f0"/><text x="{3}" y="{4:.1f}" )"
            R"(text-anchor="end" class="axis">{5}</text>)"
            "\n",
            left, width - right, y(tick), left - 6, y(tick) + 4, Grouped(tick));
    }
    const std::uint64_t bucketNanoseconds = timeline.BucketSeconds() * 1'000'000'000;
    char const* const labelFormat = timeline.BucketSeconds() < 60      ? "%H:%M:%S"
                                    : timeline.BucketSeconds() < 21600 ? "%H:%M"
                                    : timeline.BucketSeconds() < 86400 ? "%m-%d %H:%M"
                                                                       : "%Y-%m-%d";
    const std::size_t labelEvery =
        std::max<std::size_t>(1, static_cast<std::size_t>(std::ceil(buckets.size() * 80.0 / (width - left - right))));
    for (std::size_t index = 0; index < buckets.size(); ++index) {
        const TimeFigures& bucket = buckets[index];
        const std::uint64_t start = timeline.Start() + index * bucketNanoseconds;
        const double x = left + slot * static_cast<double>(index);
        const std::string path = fmt::format("timeline.buckets.{}.", index);
        svg += fmt::format(
            R"(<g data-json="{}delivered" data-value="{}"><title>{} to {} UTC: {} delivered, {} reported, )"
            R"({} suppressed by the limit, {} filtered by the host</title>)",
            path, bucket.delivered, Utc(start, "%Y-%m-%d %H:%M:%S"), Utc(start + bucketNanoseconds, "%H:%M:%S"),
            bucket.delivered, bucket.reported, bucket.suppressed, bucket.filtered);
        // Stacked from the axis up: reported, then suppressed, then filtered.
        std::uint64_t stacked = 0;
        for (const auto& [name, value, colour] : {std::tuple{"reported", bucket.reported, ReportedColour},
                                                  std::tuple{"suppressed", bucket.suppressed, SuppressedColour},
                                                  std::tuple{"filtered", bucket.filtered, FilteredColour}}) {
            svg += fmt::format(
                R"(<rect data-json="{}{}" data-value="{}" x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}" )"
                R"(fill="{}"/>)",
                path, name, value, x + slot * 0.1, y(stacked + value), slot * 0.8, y(stacked) - y(stacked + value),
                colour);
            stacked += value;
        }
        svg += "</g>\n";
        if (index % labelEvery == 0) {
            svg += fmt::format(R"(<text x="{:.1f}" y="{}" class="axis">{}</text>)"
                               "\n",
                               x + slot * 0.1, height - 6, Utc(start, labelFormat));
        }
    }
    svg += fmt::format(R"(<line x1="{0}" x2="{1}" y1="{2}" y2="{2}" stroke="#94a3b8"/>)"
                       "\n</svg>\n",
                       left, width - right, above + plotHeight);
    return svg;
}

std::string Card(const std::string& figure, const std::string& label, const std::string& note = {}, bool main = false) {
    return fmt::format(R"(<div class="card{}"><b>{}</b><div class="label">{}</div>{}</div>)"
                       "\n",
                       main ? " main" : "", figure, label,
                       note.empty() ? "" : "<div class=\"label\">" + note + "</div>");
}

std::string Totals(const ForecastReport& report) {
    const KeyFigures& total = report.total;
    std::string cards;
    if (const std::optional<double> hours = Hours(report)) {
        const double perDay = static_cast<double>(total.reported) / *hours * 24;
        const double perHour = static_cast<double>(total.delivered) / *hours;
        cards += Card(Figure("total.reported_per_day", perDay, 0), "reported per day: the forecast",
                      Figure("total.events_per_hour", perHour, 0) + " events per hour over " +
                          Figure("total.hours", *hours, 2) + " h",
                      true);
    } else {
        cards += Card("&ndash;", "reported per day",
                      report.firstTime ? "all events carry the same time" : "the events carry no times", true);
    }
    cards += Card(Figure("total.delivered", total.delivered), "events with a repeat key");
    cards += Card(Figure("total.reported", total.reported), "reported", Percent(total.reported, total.delivered));
    cards += Card(Figure("total.suppressed", total.suppressed), "suppressed by the limit",
                  Percent(total.suppressed, total.delivered));
    cards += Card(Figure("total.filtered", total.filtered), "filtered by the host");
    cards += Card(Figure("total.reported_again", total.reportedAgain), "reported again after eviction");
    cards += Card(
        fmt::format("{}{}", report.distinctCapped ? "&gt; " : "", Figure("total.distinct_keys", report.distinctKeys)),
        "distinct keys");
    cards += Card(Figure("total.keys_at_limit", report.keysAtLimit), "keys that reached the limit");
    cards += Card(Figure("total.evictions", report.evictions), "cache evictions");
    std::string html = "<div class=\"cards\">\n" + cards + "</div>\n";
    if (report.foldedKeys != 0) {
        html += fmt::format(
            "<p class=\"note\">{} keys folded into the rest (a summary of {} keys): the counts of a key may be "
            "overstated by at most {}.</p>\n",
            Figure("total.folded_keys", report.foldedKeys), KeyCapacity, Figure("total.max_error", report.maxError));
    }
    return html;
}

// Which sensor build ran, with a warning when it is not the one whose keys the forecast uses.
std::string SensorNote(const ForecastReport& report) {
    if (!report.sensor) return {};
    const std::optional<std::string>& version = report.sensor->version;
    return fmt::format(
        "<p class=\"note\">Sensor {} under kalvo-devhost <span data-json=\"sensor.tool_version\">{}</span>{}</p>\n",
        version ? fmt::format(R"(<span data-json="sensor.version">{}</span>)", Escaped(*version)) : "of no version",
        Escaped(SecurityMonitor::Version),
        report.sensor->SameBuild()
            ? ""
            : ": <b>another build than this program's; the keys are this program's and may not be the ones that "
              "sensor counts</b>");
}

std::string Legend() {
    return fmt::format(
        R"(<span class="legend"><i style="background:{}"></i>reported <i style="background:{}"></i>suppressed by )"
        R"(the limit <i style="background:{}"></i>filtered by the host</span>)",
        ReportedColour, SuppressedColour, FilteredColour);
}

std::string TimePanel(const ForecastReport& report, std::uint64_t top, double width) {
    const ForecastTimeline& timeline = report.timeline;
    if (timeline.Empty())
        return "<div class=\"panel\"><h3>Events over time</h3><p class=\"note\">No histogram: the events carry no "
               "times.</p></div>\n";
    const std::uint64_t end = timeline.Start() + timeline.Buckets().size() * timeline.BucketSeconds() * 1'000'000'000;
    return fmt::format(
        "<div class=\"panel\"><h3><span data-json=\"timeline.bucket_seconds\" data-value=\"{}\">Events per {}</span> "
        "<small data-json=\"timeline.start\" data-value=\"{}\">{} to {} UTC</small>{}</h3>\n{}</div>\n",
        timeline.BucketSeconds(), Width(timeline.BucketSeconds()), timeline.Start(),
        Utc(timeline.Start(), "%Y-%m-%d %H:%M"),
        Utc(end, end - timeline.Start() < 86400ull * 1'000'000'000 ? "%H:%M" : "%Y-%m-%d %H:%M"), Legend(),
        Histogram(report, top, width));
}

// A key's outcome as one bar: reported, suppressed, filtered, in proportion to its events.
std::string ShareBar(const KeyRow& row) {
    if (row.delivered == 0) return {};
    std::string svg = R"(<svg viewBox="0 0 100 8" width="60" height="8" aria-hidden="true">)";
    double x = 0;
    for (const auto& [value, colour] :
         {std::pair{row.reported, ReportedColour}, std::pair{row.suppressed, SuppressedColour},
          std::pair{row.filtered, FilteredColour}}) {
        const double width = 100.0 * static_cast<double>(value) / static_cast<double>(row.delivered);
        svg += fmt::format(R"(<rect x="{:.1f}" width="{:.1f}" height="8" fill="{}"/>)", x, width, colour);
        x += width;
    }
    return svg + "</svg>";
}

// The busiest keys; the columns of filtered and reported-again events only where there are any.
std::string KeyTable(const ForecastReport& report, std::size_t rows) {
    const std::size_t shown = std::min(rows, report.busiest.size());
    std::vector<std::pair<std::string, std::uint64_t KeyFigures::*>> columns;
    std::string headers;
    for (const auto& [name, label, field] : FigureNames) {
        const std::string column = name;
        if (column == "filtered" || column == "reported_again") {
            if (report.total.*field == 0) continue;
        }
        columns.emplace_back(column, field);
        headers += fmt::format("<th title=\"{}\">{}</th>", label, column == "reported_again" ? "again" : column);
    }
    std::string html = fmt::format(
        "<div class=\"panel\"><h3>Busiest {} repeat keys <small>by events delivered</small></h3>\n"
        "<table><tr><th></th><th class=\"left\">key</th>{}<th></th></tr>\n",
        shown, headers);
    for (std::size_t index = 0; index < shown; ++index) {
        const KeyRow& row = report.busiest[index];
        const std::string path = fmt::format("keys.{}.", index);
        const std::string key = Escaped(row.key);
        html += fmt::format(R"(<tr><td><span class="kind" data-json="{0}kind" data-value="{1}">{2}</span></td>)"
                            R"(<td class="key" title="{3}"><span data-json="{0}key" data-value="{3}">{4}</span></td>)",
                            path, row.shell ? "shell" : "process_step", row.shell ? "shell" : "step", key,
                            Escaped(Shortened(row.key)));
        for (const auto& [name, field] : columns) html += "<td>" + Figure(path + name, row.*field) + "</td>";
        html += "<td>" + ShareBar(row) + "</td></tr>\n";
    }
    if (shown == 0) html += "<tr><td></td><td class=\"left\">no events with a repeat key</td></tr>\n";
    return html + "</table></div>\n";
}

constexpr char const* Style = R"(
body{margin:0;padding:18px 24px;font:13px/1.4 "DejaVu Sans",Verdana,sans-serif;color:#1e293b;background:#f1f5f9}
h1{font-size:19px;margin:0}
h2{font-size:15px;margin:0 0 8px;padding:4px 0;border-bottom:2px solid #cbd5e1;overflow-wrap:anywhere}
h3{font-size:13px;margin:0 0 6px}
h3 small,.sub,.note,.card .label,th{color:#64748b;font-weight:normal}
.sub{margin:2px 0 14px;overflow-wrap:anywhere}
.columns{display:grid;grid-template-columns:repeat(auto-fit,minmax(0,1fr));gap:22px}
.cards{display:grid;grid-template-columns:repeat(auto-fill,minmax(104px,1fr));gap:8px;margin-bottom:10px}
.card{background:#fff;border:1px solid #e2e8f0;border-radius:6px;padding:5px 9px}
.card b{display:block;font-size:19px;font-weight:600}
.card .label{font-size:11px;line-height:1.25}
.card.main{background:#eff6ff;border-color:#93c5fd;grid-column:span 2}
.card.main b{color:#1d4ed8}
.panel{background:#fff;border:1px solid #e2e8f0;border-radius:6px;padding:8px 12px;margin-bottom:10px}
.legend{float:right;font-size:11px;font-weight:normal;color:#475569}
.legend i{display:inline-block;width:10px;height:10px;margin:0 4px 0 10px;border-radius:2px;vertical-align:-1px}
.axis{font-size:10px;fill:#64748b}
table{border-collapse:collapse;width:100%;font-size:12px}
th{text-align:right;padding:2px 6px;font-size:11px}
td{text-align:right;padding:3px 6px;border-top:1px solid #f1f5f9;white-space:nowrap}
.left{text-align:left}
td.key{text-align:left;font-family:"DejaVu Sans Mono",monospace;font-size:11px;max-width:0;width:100%;white-space:normal;overflow-wrap:anywhere}
td.key span{display:-webkit-box;-webkit-line-clamp:2;-webkit-box-orient:vertical;overflow:hidden}
.kind{font-size:10px;padding:1px 5px;border-radius:8px;background:#e2e8f0;color:#334155}
)";

}  // namespace

std::string ForecastPage(const std::string& source, const std::vector<PageColumn>& columns, std::size_t rows) {
    std::uint64_t top = 0;
    for (const PageColumn& column : columns) top = std::max(top, TallestBucket(*column.report));
    const double chartWidth = columns.size() > 1 ? 590 : 1200;
    std::string html = fmt::format(
        "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n"
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
        "<title>Repeat-key forecast: {0}</title>\n<style>{1}</style></head>\n<body>\n"
        "<h1>Repeat-key forecast</h1>\n<p class=\"sub\">{0}: what the sensor reports and holds back, key by key, "
        "with the settings in force at each event</p>\n<div class=\"columns\">\n",
        Escaped(source), Style);
    for (const PageColumn& column : columns) {
        html += "<section>\n<h2>" + Escaped(column.title) + "</h2>\n";
        html += Totals(*column.report);
        html += SensorNote(*column.report);
        html += TimePanel(*column.report, top, chartWidth);
        html += KeyTable(*column.report, rows);
        html += "</section>\n";
    }
    return html + "</div>\n</body></html>\n";
}

void WriteForecastPage(const std::string& path, const std::string& source, const std::vector<PageColumn>& columns,
                       std::size_t rows) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << ForecastPage(source, columns, rows);
    if (!file.flush()) throw std::runtime_error(fmt::format("cannot write {}: {}", path, std::strerror(errno)));
}

}  // namespace KALVO::DevHost::Tool
