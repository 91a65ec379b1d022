#pragma once

#include <string_view>

namespace vqhost {

/// Writes one line to standard error in one piece; the line end is added here.
/// Threads: any. Works in constructors and destructors of static objects.
void writeErrorLine(std::string_view text);

} // namespace vqhost
