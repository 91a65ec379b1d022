#pragma once

#include <logger/Clock.h>
#include <logger/Completion.h>
#include <logger/Timer.h>
#include <vqutil/Mutex.h>
#include <wire/FileDescriptor.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vlogger {

/// Waits for descriptors, timers and work from other threads, and serves them one after the other.
///
/// One round: every descriptor that is ready, then every timer that is due, then the work that other threads have
/// left, then what was deferred meanwhile. So a thread that moves a simulated clock and then calls into the loop
/// finds the timers done.
///
/// Threads: run() makes its caller the loop's thread. call(), awaitQuiet() and stop() are for other threads;
/// everything else, the classes Watch and Timer included, belongs to the loop's thread, or to whoever owns a loop that
/// does not run.
class EpollLoop
{
public:
    using Task = std::function<void()>;

    /// Whoever wants to know that a descriptor is ready. See Watch.
    class Handler
    {
    public:
        /// The descriptor is ready: EPOLLIN, EPOLLOUT, EPOLLHUP, EPOLLERR as asked for. The handler may end its
        /// watch and may be destroyed by deferred work, but not in here.
        virtual void onReady(uint32_t events) = 0;

        /// onReady() threw, which means that memory or another resource of the process has run out. The handler
        /// gives up what it holds.
        virtual void onFailure() noexcept = 0;

    protected:
        ~Handler() = default;
    };

    /// @throws std::system_error if there is no descriptor left
    explicit EpollLoop(std::shared_ptr<Clock> loopClock);
    ~EpollLoop();
    EpollLoop(const EpollLoop&) = delete;
    EpollLoop& operator=(const EpollLoop&) = delete;

    /// Serves until stop().
    void run();

    /// Ends run() after the present round. What is posted before that is still done, what is deferred is not.
    void stop();

    /// Runs `work` on the loop's thread and waits for it; directly if this is the loop's thread.
    /// @return what `work` returns
    /// @throws what `work` throws
    template <typename Work>
    std::invoke_result_t<Work&> call(Work work)
    {
        using Result = std::invoke_result_t<Work&>;
        if (std::this_thread::get_id() == threadId.load(std::memory_order_relaxed)) {
            return work();
        }
        Completion completion;
        if constexpr (std::is_void_v<Result>) {
            post([&] { completion.run(work); });
            completion.wait();
        } else {
            std::optional<Result> result;
            post([&] { completion.run([&] { result.emplace(work()); }); });
            completion.wait();
            return std::move(*result);
        }
    }

    /// Waits for a round that finds no descriptor ready and nothing deferred: what was written to watched
    /// descriptors before the call has been served then.
    /// @return false if every round found some until the limit had passed
    bool awaitQuiet(std::chrono::milliseconds limit);

    /// Has `work` run on the loop's thread; does not wait.
    void post(Task work) VQ_EXCLUDES_LOCK(mutex);

    /// Has `work` run at the end of this round: when it is safe to destroy whoever is at work now, and when several
    /// causes for one effect have come together.
    void defer(Task work) { deferred.push_back(std::move(work)); }

    Clock& clock() const { return *time; }
    Clock::Instant now() const { return time->now(); }

private:
    friend class Watch;
    friend class Timer;

    uint64_t add(int fd, Handler& handler, uint32_t events);
    void change(uint64_t token, int fd, uint32_t events);
    void remove(uint64_t token, int fd);
    void wake();
    void armWakeUp();
    /// @return true if a handler has been called
    bool serve(uint64_t token, uint32_t events);
    void runDueTimers();
    void runPosted() VQ_EXCLUDES_LOCK(mutex);
    void runDeferred();

    std::shared_ptr<Clock> time;
    wire::FileDescriptor epoll;
    wire::FileDescriptor wakeUp;  ///< eventfd: other threads and simulated clocks
    wire::FileDescriptor alarmFd; ///< timerfd: the earliest deadline
    std::atomic<std::thread::id> threadId{};
    uint64_t lastToken;
    /// A token that is not here belongs to a watch that ended in this round.
    std::unordered_map<uint64_t, Handler*> handlers;
    std::set<Timer::Entry> timers;
    Clock::Instant armedFor;
    std::vector<Task> deferred;
    std::vector<Task> deferredNow; ///< what of it is being run; a member to keep its memory
    bool quiet = true;             ///< no handler has been called in this round
    bool stopped = false;

    Mutex mutex;
    std::vector<Task> posted VQ_GUARDED_BY(mutex);
};

} // namespace vlogger
