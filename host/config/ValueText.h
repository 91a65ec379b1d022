#pragma once

#include <config/ConfigurationKey.h>

#include <string>
#include <string_view>

/// Values as texts that are TOML and JSON at once, apart from hexadecimal numbers, which only TOML has.
namespace config {

std::string quotedText(std::string_view text);
std::string hexNumber(uint64_t number);

/// @param mayBeHex  numbers that are usually written so are written in hexadecimal
std::string valueText(const KeyInfo& info, const Value& value, bool mayBeHex);

/// The values that a key takes, for a reader.
/// @param example  tells the type
std::string rangeText(const KeyInfo& info, const Value& example);

} // namespace config
