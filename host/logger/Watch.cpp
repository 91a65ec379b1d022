#include <logger/Watch.h>

namespace vlogger {

Watch::Watch(EpollLoop& eventLoop, int descriptor, EpollLoop::Handler& handler, uint32_t events)
    : loop(eventLoop), fd(descriptor), owner(handler), current(events), token(loop.add(fd, owner, events))
{
}

Watch::~Watch()
{
    suspend();
}

void Watch::set(uint32_t events)
{
    if (token != 0 && events != current) {
        loop.change(token, fd, events);
        current = events;
    }
}

void Watch::suspend()
{
    if (token != 0) {
        loop.remove(token, fd);
        token = 0;
    }
}

void Watch::resume(uint32_t events)
{
    if (token == 0) {
        token = loop.add(fd, owner, events);
        current = events;
    }
}

} // namespace vlogger
