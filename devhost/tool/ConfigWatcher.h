// ConfigWatcher: serves a configuration file to the sensor again whenever it changes (its
// modification time, size or inode, checked every half second) or on demand (SIGHUP), the
// way an agent pushes new configuration to its plug-ins while they run.
//
// A file that cannot be read or is not a JSON object is never served: at start-up that ends
// the program (ReadConfigurationFile throws), later it is a warning and the sensor keeps what
// it has.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <tuple>

namespace KALVO::DevHost::Tool {

class ConfigurationError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The file's text once checked to be a JSON object (a UTF-8 byte-order mark allowed). Throws
// ConfigurationError with a one-line message naming the file and the fault.
std::string ReadConfigurationFile(const std::string& path);

class ConfigWatcher {
public:
    // Called on the watcher's thread with the new text, or with nothing when there is no file
    // and only a synchronize is due. Must not throw.
    using Apply = std::function<void(const std::optional<std::string>& text)>;

    // `path`: the file to watch, or nothing (then only Trigger does anything).
    ConfigWatcher(std::optional<std::string> path, Apply apply);
    ~ConfigWatcher();

    ConfigWatcher(const ConfigWatcher&) = delete;  // owns a thread
    ConfigWatcher& operator=(const ConfigWatcher&) = delete;

    // Reload now, changed or not. Any thread.
    void Trigger();

private:
    // The file's modification time (seconds, nanoseconds), size and inode; nothing when absent.
    using Stamp = std::optional<std::tuple<long long, long long, long long, unsigned long long>>;
    Stamp StampOf() const;
    void Watch();

    std::optional<std::string> m_path;
    Apply m_apply;
    Stamp m_stamp;  // the watcher thread's only
    std::mutex m_mutex;            // guards the two flags
    std::condition_variable m_wake;
    bool m_triggered = false;
    bool m_exit = false;
    std::thread m_thread;
};

}  // namespace KALVO::DevHost::Tool
