#include <logger/Timer.h>

#include <logger/EpollLoop.h>

namespace vlogger {

void Timer::start(Clock::Instant when)
{
    stop();
    loop.timers.emplace(when, this);
    deadline = when;
    running = true;
}

void Timer::stop()
{
    if (running) {
        loop.timers.erase({deadline, this});
        running = false;
    }
}

} // namespace vlogger
