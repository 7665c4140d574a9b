#include "devhost/tool/PluginLocation.h"

#include <filesystem>
#include <stdexcept>
#include <system_error>

#ifndef KALVO_BUILT_PLUGIN
#error "KALVO_BUILT_PLUGIN (the sensor library of this build) must be defined"
#endif
#ifndef KALVO_PLUGIN_FILE_NAME
#error "KALVO_PLUGIN_FILE_NAME (the sensor library's file name) must be defined"
#endif

namespace KALVO::DevHost::Tool {

std::vector<std::string> PluginCandidates() {
    namespace fs = std::filesystem;
    std::vector<std::string> candidates;
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (!error) candidates.push_back((self.parent_path() / KALVO_PLUGIN_FILE_NAME).string());
    candidates.emplace_back(KALVO_BUILT_PLUGIN);
    return candidates;
}

std::string DefaultPluginPath() {
    const std::vector<std::string> candidates = PluginCandidates();
    std::string tried;
    for (const std::string& candidate : candidates) {
        std::error_code error;
        if (std::filesystem::is_regular_file(candidate, error)) return candidate;
        tried += (tried.empty() ? "" : ", ") + candidate;
    }
    throw std::runtime_error("no sensor library found (looked for " + tried + "); name one with --plugin PATH");
}

}  // namespace KALVO::DevHost::Tool
