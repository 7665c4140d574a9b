#include "devhost/ValidUtf8.h"

#include <cstddef>

#include "eil/json/RapidJson.h"

namespace KALVO::DevHost {

namespace {

namespace RJ = EIL::RJ;

// Reads bytes for RapidJSON's UTF-8 validator; past the end it hands out NULs and keeps
// counting, so an incomplete sequence shows as a position beyond the end.
class ByteStream {
public:
    using Ch = char;
    ByteStream(std::string_view bytes, std::size_t position) noexcept : m_bytes(bytes), m_position(position) {}
    Ch Peek() const noexcept { return m_position < m_bytes.size() ? m_bytes[m_position] : '\0'; }
    Ch Take() noexcept {
        const Ch c = Peek();
        ++m_position;
        return c;
    }
    std::size_t Tell() const noexcept { return m_position; }

private:
    std::string_view m_bytes;
    std::size_t m_position;
};

struct DiscardSink {
    void Put(char) noexcept {}
};

}  // namespace

std::string ValidUtf8(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t position = 0;
    while (position < bytes.size()) {
        ByteStream stream(bytes, position);
        DiscardSink sink;
        if (RJ::UTF8<>::Validate(stream, sink) && stream.Tell() <= bytes.size()) {
            text.append(bytes.substr(position, stream.Tell() - position));
            position = stream.Tell();
        } else {
            text.append("\xEF\xBF\xBD");
            ++position;
        }
    }
    return text;
}

}  // namespace KALVO::DevHost
