#pragma once

#include <capture/CaptureError.h>
#include <capture/CaptureFrame.h>

#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace capture {

/// Reads the frames of a capture in the order of the file, in constant memory.
///
/// Threads: one at a time.
class CaptureReader
{
public:
    virtual ~CaptureReader() = default;

    /// @return true if there was a frame; false at the end of the capture
    /// @throws CaptureError
    virtual bool next(CaptureFrame& frame) = 0;

    /// Whole sentences on what the capture held besides the frames given out, for example packets of other
    /// networks.
    virtual std::vector<std::string> remarks() const = 0;
};

/// Chooses the reader by the first bytes of the capture: pcapng, else log lines.
///
/// @param input  positioned at its beginning; outlives the reader
std::unique_ptr<CaptureReader> makeCaptureReader(std::istream& input);

} // namespace capture
