#include "StatTable.h"

#include <config/ValueText.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tool {

namespace {

constexpr size_t STAGE_COLUMNS = 14;
constexpr const char* RED = "\033[31m";
constexpr const char* PLAIN = "\033[0m";
/// A full bar; every cell to its left is the same factor less, so one sees little and much at once.
constexpr double FULL_BAR_PER_SECOND = 1e6;
constexpr double EMPTY_BAR_PER_SECOND = 100;

std::string padded(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string number(uint64_t value, size_t columns)
{
    const std::string digits = std::to_string(value);
    return std::string(std::max(columns, digits.size() + 1) - digits.size(), ' ') + digits;
}

std::string heading(const char* text, size_t columns)
{
    return std::string(columns - std::min(columns, std::strlen(text)), ' ') + text;
}

std::string nameOf(const wire::StageCounts& stage, const StatLayout& layout)
{
    std::string name = stage.name;
    if (layout.cutsNames && name.size() >= layout.nameColumns) {
        name.resize(layout.nameColumns - 3);
        name += "..";
    }
    return padded(name, layout.nameColumns);
}

std::string bar(double perSecond, size_t mostCells)
{
    const double share = std::log10(std::max(perSecond, 1.0) / EMPTY_BAR_PER_SECOND) /
                         std::log10(FULL_BAR_PER_SECOND / EMPTY_BAR_PER_SECOND);
    const auto most = static_cast<double>(mostCells);
    const double cells = perSecond <= 0 ? 0 : std::clamp(share * most, 1.0, most);
    return padded(std::string(static_cast<size_t>(cells), '#'), mostCells);
}

const wire::StageCounts* sameStage(const wire::StageReport& report, const wire::StageCounts& stage)
{
    const auto found = std::ranges::find_if(report.stages, [&](const wire::StageCounts& other) {
        return other.stage == stage.stage && other.name == stage.name;
    });
    return found == report.stages.end() ? nullptr : &*found;
}

/// How much a count has grown; one that is smaller than before belongs to a new opener.
uint64_t growth(uint64_t now, uint64_t before)
{
    return now - std::min(now, before);
}

} // namespace

StatLayout layoutFor(size_t terminalColumns)
{
    constexpr StatLayout NARROWEST{.nameColumns = 17, .numberColumns = 10, .barCells = 5, .cutsNames = true};
    constexpr size_t FRAME_COLUMNS = 4 + 6; // around the bar, and the mark of a loss behind it
    constexpr size_t WITH_TOTALS =
        STAGE_COLUMNS + NARROWEST.nameColumns + 5 * NARROWEST.numberColumns + FRAME_COLUMNS;
    constexpr size_t WITHOUT_TOTALS = WITH_TOTALS - 2 * NARROWEST.numberColumns;

    StatLayout layout = NARROWEST;
    layout.hasTotals = terminalColumns >= WITH_TOTALS + NARROWEST.barCells;
    const size_t taken = layout.hasTotals ? WITH_TOTALS : WITHOUT_TOTALS;
    const size_t left = terminalColumns - std::min(taken, terminalColumns);
    layout.barCells = std::clamp(left, NARROWEST.barCells, StatLayout().barCells);
    return layout;
}

std::string statTable(const wire::StageReport& report, const wire::StageReport* before, bool isColoured,
                      const StatLayout& layout)
{
    const size_t columns = layout.numberColumns;
    const bool hasTotals = before == nullptr || layout.hasTotals;
    std::string text = padded("stage", STAGE_COLUMNS) + padded("name", layout.nameColumns);
    text += hasTotals ? heading("in", columns) + heading("out", columns) : "";
    text += heading("waiting", columns) + heading("dropped", columns);
    text += before == nullptr ? "\n" : heading("frames/s", columns) + "\n";
    const double seconds =
        before == nullptr ? 0 : static_cast<double>(growth(report.uptimeUs, before->uptimeUs)) / 1e6;
    for (const wire::StageCounts& stage : report.stages) {
        const wire::StageCounts* const old = before == nullptr ? nullptr : sameStage(*before, stage);
        const bool loses = growth(stage.dropped, old == nullptr ? 0 : old->dropped) != 0;
        text += padded(textOf(stage.stage), STAGE_COLUMNS) + nameOf(stage, layout);
        text += hasTotals ? number(stage.in, columns) + number(stage.out, columns) : "";
        text += number(stage.waiting, columns);
        text.append(loses && isColoured ? RED : "")
            .append(number(stage.dropped, columns))
            .append(loses && isColoured ? PLAIN : "");
        if (before != nullptr) {
            const uint64_t frames = growth(stage.in, old == nullptr ? 0 : old->in);
            const double perSecond = seconds > 0 ? static_cast<double>(frames) / seconds : 0;
            text.append(number(static_cast<uint64_t>(perSecond), columns))
                .append("  |")
                .append(bar(perSecond, layout.barCells))
                .append("|");
            text += loses ? "  LOSS" : "";
        }
        text += "\n";
    }
    return text;
}

std::string statJson(const wire::StageReport& report)
{
    std::string text = R"({"uptime_us":)" + std::to_string(report.uptimeUs) + R"(,"stages":[)";
    for (const wire::StageCounts& stage : report.stages) {
        text.append(&stage == report.stages.data() ? "" : ",").append(R"({"stage":")").append(textOf(stage.stage));
        text.append(R"(","name":)").append(config::quotedText(stage.name));
        text.append(R"(,"in":)").append(std::to_string(stage.in));
        text.append(R"(,"out":)").append(std::to_string(stage.out));
        text.append(R"(,"waiting":)").append(std::to_string(stage.waiting));
        text.append(R"(,"dropped":)").append(std::to_string(stage.dropped)).append("}");
    }
    return text + "]}";
}

} // namespace tool
