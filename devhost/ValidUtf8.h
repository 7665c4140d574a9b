// Texts from process records and shell commands are any bytes; what the stand-in host writes
// as JSON (reports, traces) must be valid UTF-8, so invalid bytes are shown as U+FFFD.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost {

// `bytes` with every byte that does not start a valid UTF-8 sequence replaced by U+FFFD.
inline std::string ValidUtf8(std::string_view bytes) {
    const auto isAscii = [](char c) { return static_cast<unsigned char>(c) < 0x80; };
    // Most texts are ASCII throughout, and every ASCII byte is a whole sequence: such a text is
    // taken as it is, and in others each run of ASCII is taken in one piece.
    std::size_t position = std::find_if_not(bytes.begin(), bytes.end(), isAscii) - bytes.begin();
    if (position == bytes.size()) return std::string(bytes);
    // RapidJSON's validator reads whole sequences; the NULs after the end stop an incomplete
    // one there, so it shows as ending beyond the bytes.
    const std::string padded = std::string(bytes) + std::string(4, '\0');
    struct {
        void Put(char) noexcept {}
    } discard;
    std::string text(bytes.substr(0, position));
    text.reserve(bytes.size());
    while (position < bytes.size()) {
        EIL::RJ::StringStream stream(padded.c_str() + position);
        if (EIL::RJ::UTF8<>::Validate(stream, discard) && position + stream.Tell() <= bytes.size()) {
            text.append(bytes.substr(position, stream.Tell()));
            position += stream.Tell();
        } else {
            text.append("\xEF\xBF\xBD");
            ++position;
        }
        const std::size_t run = std::find_if_not(bytes.begin() + position, bytes.end(), isAscii) - bytes.begin();
        text.append(bytes.substr(position, run - position));
        position = run;
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
