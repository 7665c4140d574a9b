// Standard Base64 (RFC 4648 alphabet, "=" padding). Decoding is lenient on purpose: it stops
// silently at the first character outside the alphabet and never refuses a text; only
// exhausted memory makes it fail.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace KALVO::EIL::String {

inline constexpr std::string_view Base64Chars = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Padded to a multiple of four characters; empty input gives an empty text.
std::string ToBase64A(std::span<const std::uint8_t> bytes);
std::string ToBase64A(std::string_view bytes);
std::wstring ToBase64W(std::span<const std::uint8_t> bytes);
std::wstring ToBase64W(std::string_view bytes);

// Decodes the longest prefix of `text` made of alphabet characters (so "=" or any other
// character ends it) into `out`: each group of four gives three bytes, a final two or three
// give one or two, a single leftover character gives nothing. False only when memory runs out.
bool FromBase64(std::string_view text, std::string& out) noexcept;
bool FromBase64(std::string_view text, std::vector<std::uint8_t>& out) noexcept;
bool FromBase64(std::wstring_view text, std::string& out) noexcept;
bool FromBase64(std::wstring_view text, std::vector<std::uint8_t>& out) noexcept;

// The same returning the bytes; throws std::bad_alloc when memory runs out.
std::string FromBase64(std::string_view text);
std::string FromBase64(std::wstring_view text);

}  // namespace KALVO::EIL::String
