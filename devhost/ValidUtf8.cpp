#include "devhost/ValidUtf8.h"

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost {

std::string ValidUtf8(std::string_view bytes) {
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

}  // namespace KALVO::DevHost
