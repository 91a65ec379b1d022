#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace capture {

/// So many bytes at the beginning of a file tell its format.
constexpr size_t FORMAT_MARK_BYTES = 6;

/// What a file is that is no capture that can be read, and what to do about it.
/// @param beginning  its first bytes, up to FORMAT_MARK_BYTES
/// @return one sentence; empty if the bytes are not known
std::string foreignFormat(std::string_view beginning);

} // namespace capture
