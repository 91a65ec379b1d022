#include <bench/PeerConnection.h>

#include <sys/epoll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace vlogger {

namespace {

/// A client that does not take its echo is not read any further.
constexpr size_t UNSENT_LIMIT_BYTES = 1U << 20;

bool isNoFailure(int errorNumber)
{
    return errorNumber == EAGAIN || errorNumber == EWOULDBLOCK || errorNumber == EINTR;
}

} // namespace

PeerConnection::PeerConnection(EpollLoop& eventLoop, wire::FileDescriptor connection, bool echoes, bool silent,
                               std::function<void()> onEnded)
    : loop(eventLoop), fd(std::move(connection)), isEcho(echoes), isSilent(silent), ended(std::move(onEnded))
{
    watch.emplace(loop, fd.get(), *this, 0U);
    watchWhatIsWanted();
}

void PeerConnection::setSilent(bool silent)
{
    isSilent = silent;
    if (!hasEnded()) {
        watchWhatIsWanted();
    }
}

void PeerConnection::onReady(uint32_t events)
{
    if ((events & EPOLLIN) != 0) {
        receive();
    } else if ((events & (EPOLLHUP | EPOLLERR)) != 0) {
        close();
    }
    if (!hasEnded() && !isSilent) {
        send();
    }
    if (!hasEnded()) {
        watchWhatIsWanted();
    }
}

void PeerConnection::receive()
{
    std::array<uint8_t, 65536> bytes;
    const ssize_t count = ::recv(fd.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count == 0 || (count < 0 && !isNoFailure(errno))) {
        close();
    } else if (count > 0 && isEcho) {
        unsent.append(std::span(bytes).first(static_cast<size_t>(count)));
    }
}

void PeerConnection::send()
{
    while (!unsent.empty()) {
        const std::span<const uint8_t> bytes = unsent.front(unsent.size());
        const ssize_t count = ::send(fd.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0) {
            if (!isNoFailure(errno)) {
                close();
            }
            return;
        }
        unsent.pop(static_cast<size_t>(count));
    }
}

void PeerConnection::close()
{
    watch.reset();
    fd.reset();
    loop.defer(ended);
}

void PeerConnection::watchWhatIsWanted()
{
    uint32_t events = 0;
    if (!isSilent) {
        events = (unsent.size() < UNSENT_LIMIT_BYTES ? uint32_t{EPOLLIN} : 0U) |
                 (unsent.empty() ? 0U : uint32_t{EPOLLOUT});
    }
    watch->set(events);
}

} // namespace vlogger
