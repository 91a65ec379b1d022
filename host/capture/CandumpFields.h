#pragma once

#include <capture/CandumpLog.h>

#include <string>
#include <string_view>

/// The fields that lines of a log and lines of a terminal have in common. Each operation throws a CandumpError without
/// a line number if its field is malformed.
namespace capture {

[[noreturn]] void refuseLine(const std::string& reason);

/// Cuts the next blank-separated field off the line; empty at its end.
std::string_view takeField(std::string_view& line);

/// "(1700000000.000250)"
void parseTimestamp(std::string_view field, CandumpFrame& frame, LineDetails& details);

/// Three or eight hex digits; says also whether the frame is an error frame.
void parseIdentifier(std::string_view digits, CandumpFrame& frame);

/// Makes it a CAN FD frame, which no error frame is. Behind parseIdentifier().
void becomeFd(CandumpFrame& frame);

/// Takes pairs of hex digits as the payload, dots between them allowed; `isFd` limits their number.
void parsePayload(std::string_view digits, CandumpFrame& frame);

} // namespace capture
