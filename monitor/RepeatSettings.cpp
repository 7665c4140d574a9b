#include "monitor/RepeatSettings.h"

#include <utility>

namespace KALVO::SecurityMonitor {

namespace {

constexpr char const* CollapsePatternKey = "/securitymonitor/process_tree_collapse_regex";
constexpr char const* ReportLimitKey = "/securitymonitor/process_tree_report_limit";

}  // namespace

void RepeatSettings::ReadFrom(Configuration::Configuration const& configuration, Read form) {
    if (configuration.Exists(CollapsePatternKey)) {
        std::string pattern = configuration.GetString(CollapsePatternKey);
        if (pattern != collapsePattern) {
            collapsePattern = std::move(pattern);
            collapse = CollapseExpression(collapsePattern);
        }
    } else if (form == Read::Synchronize) {
        collapsePattern = DefaultCollapsePattern;
        collapse = CollapseExpression(collapsePattern);
    }
    if (configuration.Exists(ReportLimitKey)) {
        const std::int32_t limit = configuration.GetInt32(ReportLimitKey);
        if (limit != reportLimit.load()) reportLimit.exchange(limit);
    } else if (form == Read::Synchronize) {
        reportLimit.exchange(DefaultReportLimit);
    }
}

}  // namespace KALVO::SecurityMonitor
