#include <capture/CandumpEncoder.h>

#include <capture/Counted.h>

namespace capture {

void CandumpEncoder::begin(std::vector<uint8_t>&) {}

void CandumpEncoder::encode(const CaptureFrame& frame, std::vector<uint8_t>& out)
{
    const std::string line = formatCandumpLine(frame.frame);
    out.insert(out.end(), line.begin(), line.end());
    out.push_back('\n');
    directions += frame.direction != Direction::UNKNOWN ? 1U : 0U;
    finerTimes += frame.nanoseconds != 0 ? 1U : 0U;
    dropCounts += frame.droppedBefore != 0 ? 1U : 0U;
}

void CandumpEncoder::finish(std::vector<uint8_t>&) {}

std::vector<std::string> CandumpEncoder::losses() const
{
    std::vector<std::string> texts;
    const auto add = [&](uint64_t frames, const std::string& what) {
        if (frames != 0) {
            texts.push_back("a log has no place for " + what + ", which " + countedFrames(frames) + " had");
        }
    };
    add(directions, "a direction");
    add(finerTimes, "nanoseconds");
    add(dropCounts, "the count of frames lost before one");
    return texts;
}

} // namespace capture
