#include "StatTable.h"

#include <config/ValueText.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tool {

namespace {

constexpr size_t BAR_CELLS = 20;
constexpr const char* RED = "\033[31m";
constexpr const char* PLAIN = "\033[0m";
/// A full bar; every cell to its left is a fifth of a power of ten less, so one sees little and much at once.
constexpr double FULL_BAR_PER_SECOND = 1e6;
constexpr double EMPTY_BAR_PER_SECOND = 100;

std::string padded(std::string text, size_t width)
{
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string number(uint64_t value)
{
    char text[24];
    std::snprintf(text, sizeof text, "%12llu", static_cast<unsigned long long>(value));
    return text;
}

std::string bar(double perSecond)
{
    const double share = std::log10(std::max(perSecond, 1.0) / EMPTY_BAR_PER_SECOND) /
                         std::log10(FULL_BAR_PER_SECOND / EMPTY_BAR_PER_SECOND);
    const double cells = perSecond <= 0 ? 0 : std::clamp(share * BAR_CELLS, 1.0, double{BAR_CELLS});
    return padded(std::string(static_cast<size_t>(cells), '#'), BAR_CELLS);
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

std::string statTable(const wire::StageReport& report, const wire::StageReport* before, bool isColoured)
{
    std::string text =
        padded("stage", 14) + padded("name", 24) + "          in         out     waiting     dropped";
    text += before == nullptr ? "\n" : "     frames/s\n";
    const double seconds =
        before == nullptr ? 0 : static_cast<double>(growth(report.uptimeUs, before->uptimeUs)) / 1e6;
    for (const wire::StageCounts& stage : report.stages) {
        const wire::StageCounts* const old = before == nullptr ? nullptr : sameStage(*before, stage);
        const bool loses = growth(stage.dropped, old == nullptr ? 0 : old->dropped) != 0;
        text += padded(textOf(stage.stage), 14) + padded(stage.name, 24) + number(stage.in) + number(stage.out) +
                number(stage.waiting);
        text.append(loses && isColoured ? RED : "")
            .append(number(stage.dropped))
            .append(loses && isColoured ? PLAIN : "");
        if (before != nullptr) {
            const uint64_t frames = growth(stage.in, old == nullptr ? 0 : old->in);
            const double perSecond = seconds > 0 ? static_cast<double>(frames) / seconds : 0;
            text.append(" ")
                .append(number(static_cast<uint64_t>(perSecond)))
                .append("  |")
                .append(bar(perSecond))
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
