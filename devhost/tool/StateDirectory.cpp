#include "devhost/tool/StateDirectory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace KALVO::DevHost::Tool {

std::string DefaultStateDirectory() {
    // The XDG rule: a relative value is to be ignored.
    if (char const* state = std::getenv("XDG_STATE_HOME"); state && state[0] == '/')
        return std::string(state) + "/kalvo-devhost";
    if (char const* home = std::getenv("HOME"); home && home[0] != '\0')
        return std::string(home) + "/.local/state/kalvo-devhost";
    throw std::runtime_error("no state directory: neither XDG_STATE_HOME nor HOME is set; give one with --state DIR");
}

std::string PrepareStateDirectory(const std::string& directory) {
    namespace fs = std::filesystem;
    std::error_code error;
    fs::create_directories(directory, error);
    if (error) throw std::runtime_error("cannot create state directory " + directory + ": " + error.message());
    if (!fs::is_directory(directory, error))
        throw std::runtime_error("state directory " + directory + " is not a directory");
    if (::access(directory.c_str(), W_OK | X_OK) != 0)
        throw std::runtime_error("state directory " + directory + " is not writable: " + std::strerror(errno));
    return (fs::path(directory) / "storage.sqlite3").string();
}

}  // namespace KALVO::DevHost::Tool
