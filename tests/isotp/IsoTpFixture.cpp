#include "IsoTpFixture.h"

#include <algorithm>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

REVEAL_MEMBER(ExpectedFrame, CanIsoTpHandler, expectedFrame);
REVEAL_MEMBER(ProtocolMutex, CanIsoTpHandler, protocolMutex);
REVEAL_MEMBER(PipeFds, CanIsoTpHandler, pipeFds);
REVEAL_MEMBER(ReadCommand, CanIsoTpHandler, readCommand);

Handler::rawCANMsg_t rawFrame(const Bytes& bytes, uint32_t id, cantype_t type)
{
    Handler::rawCANMsg_t frame{};
    frame.id = id;
    frame.type = type;
    frame.dlc = static_cast<uint8_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), frame.data);
    return frame;
}

Handler::expFrameType_t expectationOf(Handler& handler)
{
    Mutex& mutex = handler.*reveal(ProtocolMutex{});
    const MutexLock lock(mutex);
    return handler.*reveal(ExpectedFrame{});
}

namespace {

size_t commandsIn(int readEnd)
{
    int count = 0;
    EXPECT_EQ(ioctl(readEnd, FIONREAD, &count), 0);
    return static_cast<size_t>(count);
}

} // namespace

std::string pendingCommands(Handler& handler)
{
    const int readEnd = (handler.*reveal(PipeFds{}))[0];
    std::string commands(commandsIn(readEnd), '\0');
    const auto size = static_cast<ssize_t>(commands.size());
    if (size != 0) {
        int copy[2];
        EXPECT_EQ(pipe(copy), 0);
        EXPECT_EQ(tee(readEnd, copy[1], commands.size(), 0), size);
        EXPECT_EQ(read(copy[0], commands.data(), commands.size()), size);
        close(copy[0]);
        close(copy[1]);
    }
    return commands;
}

void carryOutCommands(Handler& handler)
{
    while (commandsIn((handler.*reveal(PipeFds{}))[0]) != 0) {
        (handler.*reveal(ReadCommand{}))();
    }
}

Frames IsoTpTest::sentFrames() const
{
    Frames frames;
    for (const CANExtTraceMessage& frame : transmitter.frames.all()) {
        frames.push_back(bytesOf(frame));
    }
    return frames;
}
