// The two settings that decide which process steps count as one and how often each is
// reported, and how they are read from the host's configuration. Kept apart from the monitor
// so that a forecast of the sensor's volume reads them exactly as the sensor does.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "configuration/Configuration.h"
#include "monitor/CollapseExpression.h"

namespace KALVO::SecurityMonitor {

// The collapse expression used when none is configured; meant to match no process.
inline constexpr char const* DefaultCollapsePattern = "this_will_not_match//any_process";
inline constexpr std::int32_t DefaultReportLimit = 3;

struct RepeatSettings {
    // Construction keeps what is not configured; Synchronize restores its default.
    enum class Read { Construction, Synchronize };

    // Reads "/securitymonitor/process_tree_collapse_regex" and then
    // "/securitymonitor/process_tree_report_limit". The caller holds whatever guards
    // `collapsePattern` and `collapse` exclusively. Throws when the reader fails or the
    // expression is refused; the expression in force and the limit then stay as they were,
    // but the refused pattern is kept as the pattern, so the same value again is not retried.
    void ReadFrom(Configuration::Configuration const& configuration, Read form);

    std::string collapsePattern = DefaultCollapsePattern;
    CollapseExpression collapse{DefaultCollapsePattern};
    // Compared as unsigned where it is used: a negative limit never suppresses anything; 0
    // reports everything without counting.
    std::atomic<std::int32_t> reportLimit{DefaultReportLimit};
};

}  // namespace KALVO::SecurityMonitor
