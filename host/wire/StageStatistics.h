#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

/// How much has passed each stage on the way of a frame. STATISTICS is answered by a reply and one packet behind
/// it, all numbers big-endian:
///
/// | size | field |
/// |---|---|
/// | 8 | microseconds since the virtual logger's start |
/// | 4 | number of stages |
///
/// and per stage, in the order of the path:
///
/// | size | field |
/// |---|---|
/// | 1 | stage |
/// | 2 | length of the name |
/// | | name |
/// | 8, 8, 8, 8 | frames in, out, waiting, dropped |
namespace wire {

enum class Stage : uint8_t
{
    BUS = 0,          ///< in: sent by members; out: received by other members
    DEVICE_QUEUE = 1, ///< in: what its channels received; dropped: nobody had it open
    STREAM = 2,       ///< of one opener; dropped: it took nothing for too long
    READER = 3,       ///< in: handed to the system; waiting: not yet read, as far as the system tells
    MONITOR = 4,      ///< a tool that watches
    COUNT = 5,
};

/// A word for a stage.
const char* textOf(Stage stage);

struct StageCounts
{
    Stage stage = Stage::BUS;
    std::string name = {};
    uint64_t in = 0;
    uint64_t out = 0;
    uint64_t waiting = 0;
    uint64_t dropped = 0;

    bool operator==(const StageCounts&) const = default;
};

struct StageReport
{
    uint64_t uptimeUs = 0;
    std::vector<StageCounts> stages = {};

    bool operator==(const StageReport&) const = default;
};

/// No report is longer; stages beyond that are left out.
constexpr size_t STAGE_REPORT_MAX_BYTES = 65536;

std::vector<uint8_t> encodeStageReport(const StageReport& report);
/// @return nothing if the packet is no report
std::optional<StageReport> decodeStageReport(std::span<const uint8_t> packet);

} // namespace wire
