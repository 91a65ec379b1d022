#pragma once

#include <wire/StageStatistics.h>

#include <string>

namespace tool {

/// How wide a table is drawn.
struct StatLayout
{
    size_t nameColumns = 24;   ///< longer names are cut if `cutsNames`
    size_t numberColumns = 12; ///< of each column of numbers
    size_t barCells = 20;
    bool hasTotals = true; ///< the columns in and out stand beside the rate
    bool cutsNames = false;
};

/// The layout that fits a terminal of so many columns, down to 80: a narrower bar, then no totals beside the rate.
StatLayout layoutFor(size_t terminalColumns);

/// A report as a table, one line per stage. With the report before it also load: frames per second, drawn as a bar,
/// and what was lost meanwhile.
///
/// @param before       null: totals only
/// @param isColoured   loss in red, as terminals do it
std::string statTable(const wire::StageReport& report, const wire::StageReport* before, bool isColoured,
                      const StatLayout& layout = {});

/// A report as one JSON object.
std::string statJson(const wire::StageReport& report);

} // namespace tool
