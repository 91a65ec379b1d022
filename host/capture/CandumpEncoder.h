#pragma once

#include <capture/CaptureEncoder.h>

namespace capture {

/// Log lines. What only a CaptureFrame can say (nanoseconds, direction, lost frames) is left out: the tools that
/// read these logs take exactly six decimals and no direction letter.
class CandumpEncoder : public CaptureEncoder
{
public:
    void begin(std::vector<uint8_t>& out) override;
    void encode(const CaptureFrame& frame, std::vector<uint8_t>& out) override;
    void finish(std::vector<uint8_t>& out) override;
    std::vector<std::string> losses() const override;

private:
    uint64_t directions = 0;
    uint64_t finerTimes = 0;
    uint64_t dropCounts = 0;
};

} // namespace capture
