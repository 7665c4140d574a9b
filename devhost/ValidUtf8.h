// Texts from process records and shell commands are any bytes; what the stand-in host writes
// as JSON (reports, traces) must be valid UTF-8, so invalid bytes are shown as U+FFFD.
#pragma once

#include <string>
#include <string_view>

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost {

// `bytes` with every byte that does not start a valid UTF-8 sequence replaced by U+FFFD.
inline std::string ValidUtf8(std::string_view bytes) {
    // RapidJSON's validator reads whole sequences; the NULs after the end stop an incomplete
    // one there, so it shows as ending beyond the bytes.
    const std::string padded = std::string(bytes) + std::string(4, '\0');
    struct {
        void Put(char) noexcept {}
    } discard;
    std::string text;
    text.reserve(bytes.size());
    for (std::size_t position = 0; position < bytes.size();) {
        EIL::RJ::StringStream stream(padded.c_str() + position);
        if (EIL::RJ::UTF8<>::Validate(stream, discard) && position + stream.Tell() <= bytes.size()) {
            text.append(bytes.substr(position, stream.Tell()));
            position += stream.Tell();
        } else {
            text.append("\xEF\xBF\xBD");
            ++position;
        }
    }
    return text;
}

// Writes `bytes` as one JSON string through a RapidJSON writer, made valid UTF-8 first.
template <class Writer>
void WriteJsonText(Writer& writer, std::string_view bytes) {
    const std::string text = ValidUtf8(bytes);
    writer.String(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace KALVO::DevHost
