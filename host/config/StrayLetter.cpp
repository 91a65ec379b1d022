#include <config/StrayLetter.h>

#include <algorithm>
#include <cstddef>
#include <string>

namespace config {

namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";

bool isBeyondAscii(char c)
{
    return static_cast<unsigned char>(c) >= 0x80;
}

/// The part of a letter that is not its first byte, and counts for no column.
bool isContinuation(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// The end of the string that begins at `begin` with a quote; npos if it is left open.
size_t endOfString(std::string_view text, size_t begin)
{
    const char quote = text[begin];
    const std::string three(3, quote);
    const bool isMultiLine = text.substr(begin).starts_with(three);
    size_t at = begin + (isMultiLine ? three.size() : 1);
    while (at < text.size()) {
        if (text[at] == '\\' && quote == '"') {
            at += 2;
        } else if (isMultiLine && text.substr(at).starts_with(three)) {
            // Up to two quotes may stand right before the closing ones.
            return std::min(text.find_first_not_of(quote, at), at + three.size() + 2);
        } else if (!isMultiLine && text[at] == quote) {
            return at + 1;
        } else if (!isMultiLine && text[at] == '\n') {
            return std::string_view::npos;
        } else {
            ++at;
        }
    }
    return std::string_view::npos;
}

Mistake mistakeAt(std::string_view text, size_t at)
{
    const std::string_view before = text.substr(0, at);
    const size_t lineBegin = before.rfind('\n') + 1; // npos + 1 is 0
    const auto columns = std::ranges::count_if(before.substr(lineBegin), [](char c) { return !isContinuation(c); });
    return {.line = static_cast<uint32_t>(std::ranges::count(before, '\n') + 1),
            .column = static_cast<uint32_t>(columns + 1),
            .text = "letters beyond ASCII stand only in quotes and comments"};
}

} // namespace

std::optional<Mistake> strayLetter(std::string_view text)
{
    size_t at = 0;
    if (text.starts_with(BYTE_ORDER_MARK)) {
        text.remove_prefix(BYTE_ORDER_MARK.size());
    }
    while (at < text.size()) {
        const char c = text[at];
        if (isBeyondAscii(c)) {
            return mistakeAt(text, at);
        }
        if (c == '#') {
            at = text.find('\n', at);
        } else if (c == '"' || c == '\'') {
            at = endOfString(text, at);
        } else {
            ++at;
        }
    }
    return std::nullopt;
}

} // namespace config
