#pragma once

#include <charconv>
#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

/// Builds the text forms of the platform's types away from the stream, so that its format flags neither matter nor
/// change and the text arrives in one piece.
namespace vqhost {

template <typename Integer>
std::string decimal(Integer value)
{
    char digits[24];
    return std::string(digits, std::to_chars(std::begin(digits), std::end(digits), value).ptr);
}

/// Lower-case hexadecimal without leading zeros.
std::string hexadecimal(uint64_t value);

/// Appends a byte as two lower-case hexadecimal digits.
void appendHexByte(std::string& text, uint8_t byte);

/// A blank and two hexadecimal digits for each byte.
std::string hexBytes(std::span<const uint8_t> bytes);

/// Writes a finished text. A field width that waits on the stream is used up without effect, as by any inserter.
std::ostream& writeText(std::ostream& stream, std::string_view text);

} // namespace vqhost
