#pragma once

#include <capture/CaptureReader.h>

namespace capture {

/// A log of lines as a capture.
class CandumpCaptureReader : public CaptureReader
{
public:
    explicit CandumpCaptureReader(std::istream& input) : stream(input), lines(input) {}

    bool next(CaptureFrame& frame) override;
    std::vector<std::string> remarks() const override { return {}; }

private:
    std::istream& stream;
    CandumpReader lines;
};

} // namespace capture
