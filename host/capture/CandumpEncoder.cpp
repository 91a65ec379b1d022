#include <capture/CandumpEncoder.h>

namespace capture {

void CandumpEncoder::begin(std::vector<uint8_t>&) {}

void CandumpEncoder::encode(const CaptureFrame& frame, std::vector<uint8_t>& out)
{
    const std::string line = formatCandumpLine(frame.frame);
    out.insert(out.end(), line.begin(), line.end());
    out.push_back('\n');
}

void CandumpEncoder::finish(std::vector<uint8_t>&) {}

} // namespace capture
