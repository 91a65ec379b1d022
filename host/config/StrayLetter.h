#pragma once

#include <config/ConfigurationError.h>

#include <optional>
#include <string_view>

namespace config {

/// Looks for letters beyond ASCII outside strings and comments, where TOML has no place for them. The TOML library is
/// spared them: 3.3.0 runs into a branch that it marks as unreachable when one stands behind a number.
///
/// @return the first of them; nothing if there is none, or if a string is left open before it, which the library says
std::optional<Mistake> strayLetter(std::string_view text);

} // namespace config
