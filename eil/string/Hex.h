// Hexadecimal coding of bytes: two upper-case digits per byte, no separators. Decoding never
// refuses a text (see FromHex); only exhausted memory makes it fail.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KALVO::EIL::String {

std::string ToHexA(std::span<const std::uint8_t> bytes);
std::string ToHexA(std::string_view bytes);
std::wstring ToHexW(std::span<const std::uint8_t> bytes);
std::wstring ToHexW(std::string_view bytes);

// Replaces `out` with the bytes of `text` read in pairs; an odd last character is ignored. A
// pair whose first character is not a hexadecimal digit gives 0, a pair whose second is not
// gives the first digit's value alone; either case is accepted. False only when memory runs out.
bool FromHex(std::string_view text, std::vector<std::uint8_t>& out) noexcept;
bool FromHex(std::wstring_view text, std::vector<std::uint8_t>& out) noexcept;

// The same returning the bytes; throws std::bad_alloc when memory runs out.
std::vector<std::uint8_t> FromHex(std::string_view text);
std::vector<std::uint8_t> FromHex(std::wstring_view text);

}  // namespace KALVO::EIL::String
