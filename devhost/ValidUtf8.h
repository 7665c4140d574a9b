// Texts from process records and shell commands are any bytes; what the stand-in host writes
// as JSON (reports, traces) must be valid UTF-8, so invalid bytes are shown as U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace KALVO::DevHost {

// `bytes` with every byte that does not start a valid UTF-8 sequence replaced by U+FFFD.
std::string ValidUtf8(std::string_view bytes);

}  // namespace KALVO::DevHost
