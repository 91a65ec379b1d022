#include <capture/CandumpCaptureReader.h>

namespace capture {

bool CandumpCaptureReader::next(CaptureFrame& frame)
{
    frame.nanoseconds = 0;
    frame.direction = Direction::UNKNOWN;
    frame.droppedBefore = 0;
    try {
        return lines.next(frame.frame);
    } catch (const CandumpError& error) {
        throw CaptureError(error.what(), !stream.bad());
    }
}

} // namespace capture
