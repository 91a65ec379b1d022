#pragma once

#include <logger/Clock.h>

#include <functional>
#include <utility>

namespace vlogger {

class EpollLoop;

/// Calls back once at a given time, on the loop's thread. One that is destroyed or stopped does not call any more.
class Timer
{
public:
    Timer(EpollLoop& eventLoop, std::function<void()> onDue) : loop(eventLoop), callback(std::move(onDue)) {}
    ~Timer() { stop(); }
    Timer(const Timer&) = delete;
    Timer& operator=(const Timer&) = delete;

    /// Starts the timer, or moves its deadline.
    void start(Clock::Instant when);
    void stop();
    bool isRunning() const { return running; }

private:
    friend class EpollLoop;
    using Entry = std::pair<Clock::Instant, Timer*>;

    EpollLoop& loop;
    std::function<void()> callback;
    Clock::Instant deadline{0};
    bool running = false;
};

} // namespace vlogger
