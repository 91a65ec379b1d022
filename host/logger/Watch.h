#pragma once

#include <logger/EpollLoop.h>

#include <cstdint>

namespace vlogger {

/// Reports a descriptor's readiness to a handler for as long as it lives. Ends before the descriptor is closed.
class Watch
{
public:
    /// @param events  EPOLLIN, EPOLLOUT or 0; EPOLLHUP and EPOLLERR are always reported
    /// @throws std::system_error if the system cannot watch it
    Watch(EpollLoop& eventLoop, int descriptor, EpollLoop::Handler& handler, uint32_t events);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    /// Asks for other events.
    void set(uint32_t events);

    /// Reports nothing, not even a hang-up, until resume(): a peer that has gone must not keep the loop busy while
    /// its last packets wait.
    void suspend();
    void resume(uint32_t events);

private:
    EpollLoop& loop;
    int fd;
    EpollLoop::Handler& owner;
    uint32_t current;
    uint64_t token; ///< 0: suspended
};

} // namespace vlogger
