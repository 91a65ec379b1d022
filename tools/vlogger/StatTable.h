#pragma once

#include <wire/StageStatistics.h>

#include <string>

namespace tool {

/// A report as a table, one line per stage. With the report before it also load: frames per second, drawn as a bar,
/// and what was lost meanwhile.
///
/// @param before       null: totals only
/// @param isColoured   loss in red, as terminals do it
std::string statTable(const wire::StageReport& report, const wire::StageReport* before, bool isColoured);

/// A report as one JSON object.
std::string statJson(const wire::StageReport& report);

} // namespace tool
