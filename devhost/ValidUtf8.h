// Texts from process records and shell commands are any bytes; what the stand-in host writes
// as JSON (reports, traces) must be valid UTF-8, so invalid bytes are shown as U+FFFD.
#pragma once

#include <string>
#include <string_view>

namespace KALVO::DevHost {

// `bytes` with every byte that does not start a valid UTF-8 sequence replaced by U+FFFD.
std::string ValidUtf8(std::string_view bytes);

// Writes `bytes` as one JSON string through a RapidJSON writer, made valid UTF-8 first.
template <class Writer>
void WriteJsonText(Writer& writer, std::string_view bytes) {
    const std::string text = ValidUtf8(bytes);
    writer.String(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace KALVO::DevHost
