#include <capture/CandumpCaptureReader.h>

#include <capture/Counted.h>

namespace capture {

bool CandumpCaptureReader::next(CaptureFrame& frame)
{
    LineDetails details;
    bool isFrame = false;
    try {
        isFrame = lines.next(frame.frame, &details);
    } catch (const CandumpError& error) {
        throw CaptureError(error.what(), !stream.bad());
    }
    frame.nanoseconds = details.nanoseconds;
    frame.direction = details.direction;
    frame.droppedBefore = 0;
    timeless += details.hasTime ? 0U : 1U;
    return isFrame;
}

std::vector<std::string> CandumpCaptureReader::remarks() const
{
    if (timeless == 0) {
        return {};
    }
    return {counted(timeless, "frame has no time and stands", "frames have no time and stand") +
            " at 0; candump shows times with -t a"};
}

} // namespace capture
