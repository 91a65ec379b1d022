#include "vqutil/TextForm.h"

#include <ostream>

namespace vqhost {

namespace {

constexpr char HEX_DIGITS[] = "0123456789abcdef";

} // namespace

std::string hexadecimal(uint64_t value)
{
    char digits[16];
    return std::string(digits, std::to_chars(std::begin(digits), std::end(digits), value, 16).ptr);
}

void appendHexByte(std::string& text, uint8_t byte)
{
    text += HEX_DIGITS[byte >> 4];
    text += HEX_DIGITS[byte & 0xF];
}

std::string hexBytes(std::span<const uint8_t> bytes)
{
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const uint8_t byte : bytes) {
        text += ' ';
        appendHexByte(text, byte);
    }
    return text;
}

std::ostream& writeText(std::ostream& stream, std::string_view text)
{
    stream.width(0);
    return stream.write(text.data(), static_cast<std::streamsize>(text.size()));
}

} // namespace vqhost
