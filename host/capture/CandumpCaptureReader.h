#pragma once

#include <capture/CaptureReader.h>

namespace capture {

/// A log of lines, or what a terminal has shown, as a capture.
class CandumpCaptureReader : public CaptureReader
{
public:
    explicit CandumpCaptureReader(std::istream& input) : stream(input), lines(input) {}

    bool next(CaptureFrame& frame) override;
    std::vector<std::string> remarks() const override;

private:
    std::istream& stream;
    CandumpReader lines;
    uint64_t timeless = 0; ///< lines without a time
};

} // namespace capture
