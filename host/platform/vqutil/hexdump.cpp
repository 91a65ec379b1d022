#include <vqutil/hexdump.h>

#include "vqutil/TextForm.h"

#include <algorithm>
#include <span>

namespace {

constexpr int OFFSET_DIGITS = 8;
constexpr size_t CHARACTERS_PER_BYTE = 3;

/// Characters of the ASCII range; the locale has no say.
constexpr bool isPrintable(uint8_t byte)
{
    return byte >= 0x20 && byte < 0x7F;
}

std::string offsetText(size_t offset)
{
    const std::string digits = vqhost::hexadecimal(offset);
    const size_t zeros = digits.size() < OFFSET_DIGITS ? OFFSET_DIGITS - digits.size() : 0;
    return std::string(zeros, '0') + digits + ": ";
}

void appendCharacters(std::string& text, std::span<const uint8_t> bytes)
{
    for (const uint8_t byte : bytes) {
        text += isPrintable(byte) ? static_cast<char>(byte) : '.';
    }
}

} // namespace

void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end, const std::string& prefix,
             unsigned long bytesPerLine, hexdumpPrefix_t prefixKind, bool showText)
{
    const std::span<const uint8_t> bytes(begin, end);
    const size_t fullLine = std::max<size_t>(bytesPerLine, 1);
    std::string text;
    for (size_t offset = 0; offset < bytes.size(); offset += fullLine) {
        const auto line = bytes.subspan(offset, std::min(fullLine, bytes.size() - offset));
        text += prefix;
        if (prefixKind == HEXDUMP_PREFIX_TEXT_OFFSET) {
            text += offsetText(offset);
        }
        text += vqhost::hexBytes(line);
        if (showText) {
            // The characters of a short last line stand below those of the lines before it.
            const size_t missing = bytes.size() > fullLine ? fullLine - line.size() : 0;
            text.append(missing * CHARACTERS_PER_BYTE + 2, ' ');
            appendCharacters(text, line);
        }
        text += '\n';
    }
    vqhost::writeText(stream, text);
}
