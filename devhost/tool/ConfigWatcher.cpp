#include "devhost/tool/ConfigWatcher.h"

#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

#include "devhost/tool/Console.h"
#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

std::string ReadConfigurationFile(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0)
        throw ConfigurationError("cannot read configuration " + path + ": " + std::strerror(errno));
    if (S_ISDIR(status.st_mode)) throw ConfigurationError("cannot read configuration " + path + ": it is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw ConfigurationError("cannot read configuration " + path + ": " + std::strerror(errno));
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) throw ConfigurationError("cannot read configuration " + path + ": read error");

    std::string_view json(text);
    if (json.starts_with("\xEF\xBB\xBF")) json.remove_prefix(3);
    EIL::RJ::Document document;
    document.Parse<EIL::RJ::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError()) {
        throw ConfigurationError("configuration " + path + " is not JSON: " +
                                 EIL::RJ::GetParseError_En(document.GetParseError()) + " (offset " +
                                 std::to_string(document.GetErrorOffset()) + ")");
    }
    if (!document.IsObject()) throw ConfigurationError("configuration " + path + " is not a JSON object");
    return text;
}

ConfigWatcher::ConfigWatcher(std::optional<std::string> path, Apply apply)
    : m_path(std::move(path)), m_apply(std::move(apply)), m_stamp(StampOf()), m_thread([this] { Watch(); }) {}

ConfigWatcher::~ConfigWatcher() {
    {
        std::lock_guard lock(m_mutex);
        m_exit = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void ConfigWatcher::Trigger() {
    {
        std::lock_guard lock(m_mutex);
        m_triggered = true;
    }
    m_wake.notify_all();
}

ConfigWatcher::Stamp ConfigWatcher::StampOf() const {
    struct stat status {};
    if (!m_path || ::stat(m_path->c_str(), &status) != 0) return std::nullopt;
    return std::tuple(static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
                      static_cast<long long>(status.st_size), static_cast<unsigned long long>(status.st_ino));
}

void ConfigWatcher::Watch() {
    for (;;) {
        bool triggered = false;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_exit || m_triggered; });
            if (m_exit) return;
            triggered = std::exchange(m_triggered, false);
        }
        const Stamp stamp = StampOf();  // always nothing without a file
        if (!triggered && stamp == m_stamp) continue;
        m_stamp = stamp;
        try {
            m_apply(m_path ? std::optional(ReadConfigurationFile(*m_path)) : std::nullopt);
        } catch (const std::exception& error) {
            Warn(std::string(error.what()) + "; the sensor keeps its configuration");
        }
    }
}

}  // namespace KALVO::DevHost::Tool
