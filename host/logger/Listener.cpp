#include <logger/Listener.h>

#include <logger/Diagnostics.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace vlogger {

namespace {

constexpr int CLIENTS_PER_TURN = 16;
constexpr std::chrono::milliseconds PAUSE{100};

wire::FileDescriptor makeSpare()
{
    return wire::FileDescriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC));
}

bool isShortage(int errorNumber)
{
    return errorNumber == EMFILE || errorNumber == ENFILE || errorNumber == ENOMEM || errorNumber == ENOBUFS;
}

} // namespace

Listener::Listener(EpollLoop& eventLoop, wire::FileDescriptor listeningSocket,
                   std::function<void(wire::FileDescriptor)> onClient, std::function<void()> onRefused)
    : loop(eventLoop), fd(std::move(listeningSocket)), spare(makeSpare()), clientCame(std::move(onClient)),
      clientRefused(std::move(onRefused)), pauseOver(eventLoop, [this] { watch.set(EPOLLIN); }),
      watch(eventLoop, fd.get(), *this, EPOLLIN)
{
}

void Listener::onReady(uint32_t)
{
    for (int i = 0; i < CLIENTS_PER_TURN; ++i) {
        wire::FileDescriptor client = accept();
        if (client) {
            hasSaidShortage = false;
            clientCame(std::move(client));
            continue;
        }
        const int reason = errno;
        if (isShortage(reason)) {
            if (!refuseOne(reason)) {
                pause();
                return;
            }
        } else if (reason != EINTR && reason != ECONNABORTED) {
            return; // EAGAIN: nobody waits any more
        }
    }
}

wire::FileDescriptor Listener::accept()
{
    return wire::FileDescriptor(::accept4(fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
}

/// @return false if not even the spare descriptor helped
bool Listener::refuseOne(int errorNumber)
{
    if (!hasSaidShortage) {
        hasSaidShortage = true;
        diagnostics::error(std::string("clients are refused: ") + std::strerror(errorNumber) +
                           "; close what is not needed or raise the limit of open files");
    }
    spare.reset();
    if (const wire::FileDescriptor client = accept()) {
        // A fresh connection has room for the answer.
        wire::sendPacket(client.get(), wire::encodeReply({.errorNumber = errorNumber, .body = {}}), -1,
                         MSG_DONTWAIT);
        clientRefused();
    } else if (errno != EAGAIN) {
        spare = makeSpare();
        return false;
    }
    spare = makeSpare();
    return true;
}

/// The client keeps waiting and the listener stays ready: without a pause the loop would spin.
void Listener::pause()
{
    watch.set(0);
    pauseOver.start(loop.now() + PAUSE);
}

} // namespace vlogger
