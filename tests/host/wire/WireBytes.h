#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// Bytes as documents write them.
namespace wirebytes {

using Bytes = std::vector<uint8_t>;

/// The bytes of pairs of hexadecimal digits that stand apart by one blank each, from the beginning of the text to
/// the first thing that is no such pair: a comment stands behind a wider gap.
inline Bytes hex(std::string_view text)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    Bytes bytes;
    for (size_t at = 0; at + 2 <= text.size(); at += 3) {
        const size_t high = DIGITS.find(text[at]);
        const size_t low = DIGITS.find(text[at + 1]);
        if (high == std::string_view::npos || low == std::string_view::npos) {
            break;
        }
        bytes.push_back(static_cast<uint8_t>(high << 4 | low));
        if (at + 2 < text.size() && text[at + 2] != ' ') {
            break;
        }
    }
    return bytes;
}

inline Bytes joined(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

inline Bytes bytesOf(std::span<const uint8_t> bytes)
{
    return {bytes.begin(), bytes.end()};
}

inline Bytes textBytes(std::string_view text)
{
    return {text.begin(), text.end()};
}

} // namespace wirebytes
