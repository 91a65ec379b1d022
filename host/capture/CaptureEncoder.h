#pragma once

#include <capture/CaptureFrame.h>

#include <cstdint>
#include <string>
#include <vector>

namespace capture {

/// Turns frames into the bytes of one capture format. Whatever one call appends is whole: a file that ends at such
/// a place can be read.
class CaptureEncoder
{
public:
    virtual ~CaptureEncoder() = default;

    /// Appends what a file begins with.
    virtual void begin(std::vector<uint8_t>& out) = 0;

    /// Appends one frame.
    /// @throws CaptureError if the format cannot hold it; nothing is appended then
    virtual void encode(const CaptureFrame& frame, std::vector<uint8_t>& out) = 0;

    /// Appends what a file ends with. A file without it is complete all the same.
    virtual void finish(std::vector<uint8_t>& out) = 0;

    /// Whole sentences on what the frames so far had in them that the format cannot hold; empty if it was nothing.
    virtual std::vector<std::string> losses() const = 0;
};

} // namespace capture
