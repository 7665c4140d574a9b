#include "devhost/tool/ConfigurationFile.h"

#include <sys/stat.h>

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost::Tool {

std::string ReadConfigurationFile(const std::string& path) {
    const auto fault = [&](const std::string& why) { return std::runtime_error("cannot read configuration " + path + ": " + why); };
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) throw fault(std::strerror(errno));
    if (S_ISDIR(status.st_mode)) throw fault("it is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw fault(std::strerror(errno));
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    if (file.bad()) throw fault("read error");

    std::string_view json(text);
    if (json.starts_with("\xEF\xBB\xBF")) json.remove_prefix(3);
    EIL::RJ::Document document;
    document.Parse<EIL::RJ::kParseIterativeFlag>(json.data(), json.size());
    if (document.HasParseError()) {
        throw std::runtime_error(fmt::format("configuration {} is not JSON: {} (offset {})", path,
                                             EIL::RJ::GetParseError_En(document.GetParseError()), document.GetErrorOffset()));
    }
    if (!document.IsObject()) throw std::runtime_error("configuration " + path + " is not a JSON object");
    return text;
}

FileStamp StampOf(const std::optional<std::string>& path) {
    struct stat status {};
    if (!path || ::stat(path->c_str(), &status) != 0) return std::nullopt;
    return std::tuple(static_cast<long long>(status.st_mtim.tv_sec), static_cast<long long>(status.st_mtim.tv_nsec),
                      static_cast<long long>(status.st_size), static_cast<unsigned long long>(status.st_ino));
}

}  // namespace KALVO::DevHost::Tool
