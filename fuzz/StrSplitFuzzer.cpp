// StrSplit over arbitrary texts and separators. Input: one byte giving the separator's length
// (0 to 3), the separator, then the text. With keepEmpty the pieces joined by the separator
// give the text back, and no piece holds the separator; without it the result is the same
// pieces less the empty ones. The wide form splits the same way.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "eil/string/StrSplit.h"
#include "fuzz/FuzzCheck.h"

using KALVO::EIL::String::StrJoin;
using KALVO::EIL::String::StrSplit;

namespace {

std::wstring Widen(std::string_view text) {
    std::wstring wide;
    for (const char c : text) wide += static_cast<wchar_t>(static_cast<unsigned char>(c));
    return wide;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t separatorLength = std::min<std::size_t>(data[0] % 4, size - 1);
    const std::string_view separator(reinterpret_cast<const char*>(data) + 1, separatorLength);
    const std::string_view text(reinterpret_cast<const char*>(data) + 1 + separatorLength, size - 1 - separatorLength);

    const std::vector<std::string> all = StrSplit(text, separator, true);
    const std::vector<std::string> nonEmpty = StrSplit(text, separator, false);

    if (text.empty()) {
        KALVO_FUZZ_CHECK(all.size() == 1 && all[0].empty(), "an empty text keeps one empty piece");
        KALVO_FUZZ_CHECK(nonEmpty.empty(), "an empty text gives no piece");
        return 0;
    }
    if (separator.empty()) {
        KALVO_FUZZ_CHECK(all.size() == 1 && all[0] == text, "an empty separator gives the whole text");
        KALVO_FUZZ_CHECK(nonEmpty == all, "an empty separator gives the whole text");
        return 0;
    }
    KALVO_FUZZ_CHECK(StrJoin(all, separator) == text, "joining the pieces gives the text back");
    std::vector<std::string> filtered;
    for (const std::string& piece : all) {
        KALVO_FUZZ_CHECK(piece.find(separator) == std::string::npos, "no piece holds the separator");
        if (!piece.empty()) filtered.push_back(piece);
    }
    KALVO_FUZZ_CHECK(nonEmpty == filtered, "without keepEmpty only the empty pieces are dropped");

    const std::vector<std::wstring> wide = StrSplit(std::wstring_view(Widen(text)), std::wstring_view(Widen(separator)), true);
    KALVO_FUZZ_CHECK(wide.size() == all.size(), "the wide form splits the same way");
    for (std::size_t i = 0; i < all.size(); ++i) KALVO_FUZZ_CHECK(wide[i] == Widen(all[i]), "the wide form splits the same way");
    return 0;
}
