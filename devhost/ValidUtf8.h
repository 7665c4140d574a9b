// Texts from process records and shell commands are any bytes; what the stand-in host writes
// as JSON (reports, traces) must be valid UTF-8, so invalid bytes are shown as U+FFFD.
#pragma once

#include <string>
#include <string_view>

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost {

// The position of the first byte at or after `from` that is not ASCII (the size when there is
// none). Every ASCII byte is a whole UTF-8 sequence.
inline std::size_t AsciiRunEnd(std::string_view bytes, std::size_t from = 0) {
    while (from < bytes.size() && static_cast<unsigned char>(bytes[from]) < 0x80) ++from;
    return from;
}

// `bytes` with every byte that does not start a valid UTF-8 sequence replaced by U+FFFD.
inline std::string ValidUtf8(std::string_view bytes) {
    // Most texts are ASCII throughout: such a text is taken as it is, and in others each run of
    // ASCII is taken in one piece.
    std::size_t position = AsciiRunEnd(bytes);
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
        const std::size_t run = AsciiRunEnd(bytes, position);
        text.append(bytes.substr(position, run - position));
        position = run;
    }
    return text;
}

// Writes `bytes` as one JSON string through a RapidJSON writer, made valid UTF-8 first.
template <class Writer>
void WriteJsonText(Writer& writer, std::string_view bytes) {
    // ASCII throughout (most texts) is written as it is, without a copy.
    if (AsciiRunEnd(bytes) == bytes.size()) {
        writer.String(bytes.data(), static_cast<unsigned>(bytes.size()));
        return;
    }
    const std::string text = ValidUtf8(bytes);
    writer.String(text.data(), static_cast<unsigned>(text.size()));
}

}  // namespace KALVO::DevHost
