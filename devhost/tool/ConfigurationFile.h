// ConfigurationFile: the file the host serves the sensor as its configuration (--config), read
// and checked, and the stamp by which a change to it is noticed while the sensor runs, so it can
// be served again the way an agent pushes new configuration to its plug-ins. A file that cannot
// be read or is not a JSON object is never served: at start-up that ends the program, later it
// is a warning and the sensor keeps what it has.
#pragma once

#include <optional>
#include <string>
#include <tuple>

namespace KALVO::DevHost::Tool {

// The file's text once checked to be a JSON object (a UTF-8 byte-order mark allowed). Throws
// std::runtime_error with a one-line message naming the file and the fault.
std::string ReadConfigurationFile(const std::string& path);

// The file's modification time (seconds, nanoseconds), size and inode; nothing when it is absent
// or there is no file.
using FileStamp = std::optional<std::tuple<long long, long long, long long, unsigned long long>>;
FileStamp StampOf(const std::optional<std::string>& path);

}  // namespace KALVO::DevHost::Tool
