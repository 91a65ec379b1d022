#include <wire/StageStatistics.h>

#include <wire/BigEndian.h>

#include <algorithm>
#include <limits>

namespace wire {

namespace {

constexpr size_t HEAD_BYTES = 12;
constexpr size_t COUNT_OFFSET = 8;
constexpr size_t STAGE_MIN_BYTES = 1 + 2 + 4 * 8;

template <typename Integer>
void append(std::vector<uint8_t>& bytes, Integer value)
{
    bytes.resize(bytes.size() + sizeof(Integer));
    putBigEndian(bytes.data() + bytes.size() - sizeof(Integer), value);
}

template <typename Integer>
Integer take(std::span<const uint8_t>& bytes)
{
    const auto value = getBigEndian<Integer>(bytes.data());
    bytes = bytes.subspan(sizeof(Integer));
    return value;
}

} // namespace

const char* textOf(Stage stage)
{
    switch (stage) {
    case Stage::BUS:
        return "bus";
    case Stage::DEVICE_QUEUE:
        return "device queue";
    case Stage::STREAM:
        return "stream";
    case Stage::READER:
        return "reader";
    case Stage::MONITOR:
        return "monitor";
    case Stage::COUNT:
        break;
    }
    return "unknown";
}

std::vector<uint8_t> encodeStageReport(const StageReport& report)
{
    std::vector<uint8_t> bytes;
    append(bytes, report.uptimeUs);
    append(bytes, uint32_t{0});
    uint32_t written = 0;
    for (const StageCounts& stage : report.stages) {
        const size_t nameBytes = std::min<size_t>(stage.name.size(), std::numeric_limits<uint16_t>::max());
        if (bytes.size() + STAGE_MIN_BYTES + nameBytes > STAGE_REPORT_MAX_BYTES) {
            break;
        }
        append(bytes, static_cast<uint8_t>(stage.stage));
        append(bytes, static_cast<uint16_t>(nameBytes));
        bytes.insert(bytes.end(), stage.name.begin(), stage.name.begin() + static_cast<std::ptrdiff_t>(nameBytes));
        for (const uint64_t count : {stage.in, stage.out, stage.waiting, stage.dropped}) {
            append(bytes, count);
        }
        ++written;
    }
    putBigEndian(bytes.data() + COUNT_OFFSET, written);
    return bytes;
}

std::optional<StageReport> decodeStageReport(std::span<const uint8_t> packet)
{
    if (packet.size() < HEAD_BYTES || packet.size() > STAGE_REPORT_MAX_BYTES) {
        return std::nullopt;
    }
    StageReport report;
    report.uptimeUs = take<uint64_t>(packet);
    const auto count = take<uint32_t>(packet);
    for (uint32_t i = 0; i < count; ++i) {
        if (packet.size() < STAGE_MIN_BYTES || packet[0] >= static_cast<uint8_t>(Stage::COUNT)) {
            return std::nullopt;
        }
        StageCounts& stage = report.stages.emplace_back();
        stage.stage = static_cast<Stage>(take<uint8_t>(packet));
        const auto nameBytes = take<uint16_t>(packet);
        if (packet.size() < STAGE_MIN_BYTES - 3 + nameBytes) {
            return std::nullopt;
        }
        stage.name.assign(packet.begin(), packet.begin() + nameBytes);
        packet = packet.subspan(nameBytes);
        for (uint64_t* const number : {&stage.in, &stage.out, &stage.waiting, &stage.dropped}) {
            *number = take<uint64_t>(packet);
        }
    }
    return packet.empty() ? std::optional(std::move(report)) : std::nullopt;
}

} // namespace wire
