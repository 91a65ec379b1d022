#include <support/IsoTpState.h>

#include <support/PrivateMember.h>

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

REVEAL_MEMBER(ExpectedFrame, CanIsoTpHandler, expectedFrame);
REVEAL_MEMBER(ProtocolMutex, CanIsoTpHandler, protocolMutex);
REVEAL_MEMBER(PipeFds, CanIsoTpHandler, pipeFds);
REVEAL_MEMBER(ReadCommand, CanIsoTpHandler, readCommand);

namespace {

void require(bool done, const char* what)
{
    if (!done) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

size_t commandsIn(int readEnd)
{
    int count = 0;
    require(ioctl(readEnd, FIONREAD, &count) == 0, "FIONREAD");
    return static_cast<size_t>(count);
}

} // namespace

CanIsoTpHandler::expFrameType_t expectationOf(CanIsoTpHandler& handler)
{
    Mutex& mutex = handler.*reveal(ProtocolMutex{});
    const MutexLock lock(mutex);
    return handler.*reveal(ExpectedFrame{});
}

std::string pendingCommands(CanIsoTpHandler& handler)
{
    const int readEnd = (handler.*reveal(PipeFds{}))[0];
    std::string commands(commandsIn(readEnd), '\0');
    const auto size = static_cast<ssize_t>(commands.size());
    if (size != 0) {
        int copy[2];
        require(pipe(copy) == 0, "pipe");
        require(tee(readEnd, copy[1], commands.size(), 0) == size, "tee");
        require(read(copy[0], commands.data(), commands.size()) == size, "read");
        close(copy[0]);
        close(copy[1]);
    }
    return commands;
}

char carryOutCommand(CanIsoTpHandler& handler)
{
    const std::string commands = pendingCommands(handler);
    if (commands.empty()) {
        return 0;
    }
    (handler.*reveal(ReadCommand{}))();
    return commands.front();
}

void carryOutCommands(CanIsoTpHandler& handler)
{
    while (commandsIn((handler.*reveal(PipeFds{}))[0]) != 0) {
        (handler.*reveal(ReadCommand{}))();
    }
}
