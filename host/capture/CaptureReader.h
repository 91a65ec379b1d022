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

    /// Packets of networks other than CAN that were passed over so far.
    virtual uint64_t foreignPackets() const { return 0; }
};

/// Chooses the reader by the first bytes of the capture: pcapng, else log lines. A byte-order mark in front of a log is
/// skipped.
///
/// @param input  positioned at its beginning; outlives the reader; its buffer takes back the first FORMAT_MARK_BYTES
///               bytes
/// @throws CaptureError if they are those of a format that is not read; says which, and the remedy
std::unique_ptr<CaptureReader> makeCaptureReader(std::istream& input);

} // namespace capture
