// Eight characters of a text classified at once with plain 64-bit integer arithmetic, for the
// command-line normaliser's scanners: testing a word's characters eight at a time replaces a
// branch per character, which random hexadecimal text (digits and letters alternating by
// chance) makes the processor mispredict. No intrinsics: one code path for every compiler and
// for x86_64 and arm64 alike.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace KALVO::SecurityMonitor {

// A class mask flags the character at `at + i` by the top bit of byte i (bit 8 * i + 7) and
// has no other bit set. The classes are those of the ECMAScript engine in the classic locale:
// word characters are ASCII letters, digits and "_"; NUL and bytes >= 0x80 belong to no class.
class CharBlock {
public:
    static constexpr std::size_t Size = 8;
    static constexpr std::uint64_t Ones = 0x0101010101010101;
    static constexpr std::uint64_t High = Ones * 0x80;

    // The characters of `text` from `at`; the places past its end read as NUL.
    CharBlock(std::string_view text, std::size_t at) noexcept {
        if (at < text.size() && text.size() - at >= Size) {
            Set(text.data() + at);
            return;
        }
        // Assembled in a register: bytes stored to memory and read back as one word would stall
        // the load (no store forwarding), and every text ends in such a block.
        std::uint64_t value = 0;
        if (at < text.size()) {
            const std::size_t remaining = text.size() - at;
            if (std::endian::native == std::endian::little && text.size() >= Size) {
                // The text's last eight characters, shifted so that those before `at` drop out.
                std::memcpy(&value, text.data() + text.size() - Size, Size);
                value >>= 8 * (Size - remaining);
            } else {
                for (std::size_t i = 0; i < remaining; ++i)
                    value |= std::uint64_t{static_cast<unsigned char>(text[at + i])} << (8 * i);
            }
        }
        SetValue(value);
    }

    // The eight characters from `characters`, which must all be readable.
    explicit CharBlock(const char* characters) noexcept { Set(characters); }

    std::uint64_t Digits() const noexcept { return InRange(m_ascii, '0', '9'); }
    std::uint64_t HexDigits() const noexcept { return Digits() | InRange(m_ascii | Ones * 0x20, 'a', 'f'); }
    std::uint64_t WordChars() const noexcept {
        // Setting bit 5 maps "A"-"Z" onto "a"-"z" and no other byte into that range.
        return Digits() | InRange(m_ascii | Ones * 0x20, 'a', 'z') | Equal('_');
    }
    std::uint64_t Equal(char c) const noexcept {
        const std::uint64_t differences = m_ascii ^ (Ones * static_cast<unsigned char>(c));
        // The top bit of a byte is set exactly when its low seven bits are all zero.
        return ~((differences + Ones * 0x7f) | differences) & m_isAscii;
    }

    // Operations on class masks.
    static std::uint64_t Not(std::uint64_t mask) noexcept { return mask ^ High; }
    // Index of the first flagged character; Size when none is.
    static std::size_t First(std::uint64_t mask) noexcept {
        return static_cast<std::size_t>(std::countr_zero(mask)) / 8;
    }
    // Number of characters after the last flagged one; Size when none is.
    static std::size_t AfterLast(std::uint64_t mask) noexcept {
        return static_cast<std::size_t>(std::countl_zero(mask)) / 8;
    }
    // The characters before the first flagged one (all when none is).
    static std::uint64_t Before(std::uint64_t mask) noexcept { return ((mask & (0 - mask)) - 1) & High; }
    // The characters that start a run of `length` (1 to Size) flagged characters inside the block.
    static std::uint64_t RunStarts(std::uint64_t mask, std::size_t length) noexcept {
        // Doubling: runs of `covered` flagged characters, joined with the runs that start
        // `covered` (or fewer) places later.
        std::uint64_t starts = mask;
        std::size_t covered = 1;
        for (; 2 * covered <= length; covered *= 2) starts &= starts >> (8 * covered);
        if (covered < length) starts &= starts >> (8 * (length - covered));
        return starts;
    }

private:
    void Set(const char* characters) noexcept {
        std::uint64_t value = 0;
        if constexpr (std::endian::native == std::endian::little) {
            std::memcpy(&value, characters, Size);
        } else {
            for (std::size_t i = 0; i < Size; ++i)
                value |= std::uint64_t{static_cast<unsigned char>(characters[i])} << (8 * i);
        }
        SetValue(value);
    }

    // Byte i of `value` is character i.
    void SetValue(std::uint64_t value) noexcept {
        m_ascii = value & ~High;
        m_isAscii = ~value & High;
    }

    // Flags the characters from `low` to `high` (both ASCII) among ASCII ones: adding 0x80 - low
    // to a seven-bit byte carries into its top bit exactly when it is at least `low`, and adding
    // 0x7f - high when it is above `high`; neither sum leaves the byte.
    std::uint64_t InRange(std::uint64_t ascii, char low, char high) const noexcept {
        const std::uint64_t atLeastLow = ascii + Ones * (0x80 - static_cast<unsigned>(low));
        const std::uint64_t aboveHigh = ascii + Ones * (0x7f - static_cast<unsigned>(high));
        return atLeastLow & ~aboveHigh & m_isAscii;
    }

    std::uint64_t m_ascii;    // every byte with its top bit cleared
    std::uint64_t m_isAscii;  // the top bit of every byte below 0x80
};

}  // namespace KALVO::SecurityMonitor
