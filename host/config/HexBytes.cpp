#include <config/HexBytes.h>

#include <charconv>
#include <cstddef>

namespace config {

std::optional<std::vector<uint8_t>> parseHexBytes(std::string_view text)
{
    std::vector<uint8_t> bytes;
    size_t position = 0;
    while (position < text.size()) {
        if (text[position] == ' ' || text[position] == '.') {
            ++position;
            continue;
        }
        const std::string_view pair = text.substr(position, 2);
        uint8_t byte = 0;
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (pair.size() != 2 || error != std::errc{} || end != pair.data() + pair.size()) {
            return std::nullopt;
        }
        bytes.push_back(byte);
        position += 2;
    }
    return bytes;
}

std::string formatHexBytes(std::span<const uint8_t> bytes)
{
    constexpr std::string_view DIGITS = "0123456789ABCDEF";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty()) {
            text += ' ';
        }
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 0xF];
    }
    return text;
}

} // namespace config
