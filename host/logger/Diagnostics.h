#pragma once

#include <string_view>

/// What a virtual logger has to tell its user, on standard error: one line each, written at once.
namespace vlogger::diagnostics {

/// "[WARNING] VirtualLogger: " and the text.
void warn(std::string_view text);

/// "[ERROR] VirtualLogger: " and the text.
void error(std::string_view text);

} // namespace vlogger::diagnostics
