#include <logger/EpollLoop.h>

#include <logger/Diagnostics.h>
#include <logger/SystemError.h>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <string>

namespace vlogger {

namespace {

constexpr int EVENTS_PER_ROUND = 64;
constexpr uint64_t WAKE_UP_TOKEN = 0;
constexpr uint64_t ALARM_TOKEN = 1;
constexpr Clock::Instant NEVER = Clock::Instant::max();

wire::FileDescriptor checked(int fd, const char* what)
{
    if (fd < 0) {
        throw systemError(errno, what);
    }
    return wire::FileDescriptor(fd);
}

void addToEpoll(int epoll, int fd, uint64_t token, uint32_t events)
{
    epoll_event event{.events = events, .data = {.u64 = token}};
    if (::epoll_ctl(epoll, EPOLL_CTL_ADD, fd, &event) != 0) {
        throw systemError(errno, "cannot watch a descriptor");
    }
}

/// Takes the count off an eventfd or timerfd, so that it is not ready any more.
void drain(int fd)
{
    uint64_t count = 0;
    // EAGAIN: somebody was here before, which is as good.
    [[maybe_unused]] const ssize_t size = ::read(fd, &count, sizeof count);
}

/// Runs work that has nobody to tell about a failure. What can fail in it is memory.
void runGuarded(const EpollLoop::Task& task)
{
    try {
        task();
    } catch (const std::exception& failure) {
        diagnostics::error(std::string("work was given up: ") + failure.what());
    }
}

} // namespace

EpollLoop::EpollLoop(std::shared_ptr<Clock> loopClock)
    : time(std::move(loopClock)), epoll(checked(::epoll_create1(EPOLL_CLOEXEC), "cannot make an epoll instance")),
      wakeUp(checked(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "cannot make an eventfd")),
      alarmFd(checked(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "cannot make a timerfd")),
      lastToken(ALARM_TOKEN), armedFor(NEVER)
{
    addToEpoll(epoll.get(), wakeUp.get(), WAKE_UP_TOKEN, EPOLLIN);
    addToEpoll(epoll.get(), alarmFd.get(), ALARM_TOKEN, EPOLLIN);
    time->onJump([this] { wake(); });
}

EpollLoop::~EpollLoop()
{
    time->onJump({});
}

void EpollLoop::run()
{
    threadId.store(std::this_thread::get_id(), std::memory_order_relaxed);
    std::array<epoll_event, EVENTS_PER_ROUND> events;
    while (!stopped) {
        armWakeUp();
        const int timeoutMs = deferred.empty() ? -1 : 0;
        const int count = ::epoll_wait(epoll.get(), events.data(), EVENTS_PER_ROUND, timeoutMs);
        quiet = count >= 0 && deferred.empty();
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<size_t>(i)];
            quiet = !serve(event.data.u64, event.events) && quiet;
        }
        runPosted();
        runDeferred();
    }
    runPosted(); // nobody who called before the end waits for ever
}

void EpollLoop::stop()
{
    post([this] { stopped = true; });
}

bool EpollLoop::awaitQuiet(std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    call([] {}); // the round that is going on may have looked before the call
    while (!call([this] { return quiet; })) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
    }
    return true;
}

void EpollLoop::post(Task work)
{
    {
        const MutexLock lock(mutex);
        posted.push_back(std::move(work));
    }
    wake();
}

uint64_t EpollLoop::add(int fd, Handler& handler, uint32_t events)
{
    const uint64_t token = ++lastToken;
    handlers.emplace(token, &handler);
    try {
        addToEpoll(epoll.get(), fd, token, events);
    } catch (...) {
        handlers.erase(token);
        throw;
    }
    return token;
}

void EpollLoop::change(uint64_t token, int fd, uint32_t events)
{
    epoll_event event{.events = events, .data = {.u64 = token}};
    // Cannot fail for a descriptor that is in the set.
    ::epoll_ctl(epoll.get(), EPOLL_CTL_MOD, fd, &event);
}

void EpollLoop::remove(uint64_t token, int fd)
{
    ::epoll_ctl(epoll.get(), EPOLL_CTL_DEL, fd, nullptr);
    handlers.erase(token);
}

void EpollLoop::wake()
{
    const uint64_t one = 1;
    // EAGAIN: the count is at its limit, so the loop will wake up in any case.
    [[maybe_unused]] const ssize_t size = ::write(wakeUp.get(), &one, sizeof one);
}

void EpollLoop::armWakeUp()
{
    const Clock::Instant earliest = timers.empty() ? NEVER : timers.begin()->first;
    if (earliest == armedFor) {
        return;
    }
    itimerspec setting{};
    if (earliest != NEVER) {
        const auto wait = time->realTimeUntil(earliest);
        if (wait) {
            // Zero would disarm it.
            const Clock::Duration atLeast = std::max(*wait, Clock::Duration{1});
            const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(atLeast);
            setting.it_value = {.tv_sec = seconds.count(), .tv_nsec = (atLeast - seconds).count()};
        }
    }
    ::timerfd_settime(alarmFd.get(), 0, &setting, nullptr);
    armedFor = earliest;
}

bool EpollLoop::serve(uint64_t token, uint32_t events)
{
    if (token == WAKE_UP_TOKEN) {
        drain(wakeUp.get());
        return false;
    }
    if (token == ALARM_TOKEN) {
        drain(alarmFd.get());
        armedFor = NEVER; // it has fired; whatever is first now has to be armed anew
        return false;
    }
    const auto found = handlers.find(token);
    if (found == handlers.end()) {
        return false;
    }
    Handler& handler = *found->second;
    try {
        handler.onReady(events);
    } catch (const std::exception& failure) {
        diagnostics::error(std::string("a client is cut off: ") + failure.what());
        handler.onFailure();
    }
    return true;
}

void EpollLoop::runDueTimers()
{
    const Clock::Instant present = now();
    // Each at most once: one that starts itself again without a delay must not keep everybody else waiting.
    for (size_t left = timers.size(); left > 0 && !timers.empty() && timers.begin()->first <= present; --left) {
        Timer& timer = *timers.begin()->second;
        timers.erase(timers.begin());
        timer.running = false;
        runGuarded(timer.callback);
    }
}

void EpollLoop::runPosted()
{
    std::vector<Task> work;
    {
        const MutexLock lock(mutex);
        work.swap(posted);
    }
    // After the work was taken: whoever moved the clock before posting it finds the timers done.
    runDueTimers();
    for (const Task& task : work) {
        runGuarded(task);
    }
}

void EpollLoop::runDeferred()
{
    // What is deferred from here on waits for the next round, which then does not sleep.
    deferredNow.swap(deferred);
    for (const Task& task : deferredNow) {
        runGuarded(task);
    }
    deferredNow.clear();
}

} // namespace vlogger
