#include "IsoTpFixture.h"

#include <algorithm>

Handler::rawCANMsg_t rawFrame(const Bytes& bytes, uint32_t id, cantype_t type)
{
    Handler::rawCANMsg_t frame{};
    frame.id = id;
    frame.type = type;
    frame.dlc = static_cast<uint8_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), frame.data);
    return frame;
}

Frames IsoTpTest::sentFrames() const
{
    Frames frames;
    for (const CANExtTraceMessage& frame : transmitter.frames.all()) {
        frames.push_back(bytesOf(frame));
    }
    return frames;
}
