#pragma once

#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>
#include <type_traits>

/// Whole texts as numbers from zero on; nothing for every other text and for what the type cannot hold.
namespace capture {

/// @param format  those of std::from_chars
template <typename Number, typename... Format>
std::optional<Number> numberOf(std::string_view text, Format... format)
{
    Number value = 0;
    const char* const end = text.data() + text.size();
    const auto [position, error] = std::from_chars(text.data(), end, value, format...);
    return error == std::errc{} && position == end ? std::optional(value) : std::nullopt;
}

/// Digits and nothing else: no sign, blank or prefix.
template <typename Integer>
std::optional<Integer> wholeNumberOf(std::string_view digits, int base = 10)
{
    static_assert(std::is_unsigned_v<Integer>, "a signed one would take a sign");
    return numberOf<Integer>(digits, base);
}

/// Digits, with or without a point and an exponent: no sign, no blank, no prefix, no word such as "inf".
inline std::optional<double> decimalNumberOf(std::string_view text)
{
    const bool isNumber = !text.empty() && (text.front() == '.' || (text.front() >= '0' && text.front() <= '9'));
    return isNumber ? numberOf<double>(text) : std::nullopt;
}

} // namespace capture
