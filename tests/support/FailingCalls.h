#pragma once

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

#include <support/Recorder.h>

#include <pthread.h>

/// System functions that a test lets fail. A test program that uses this lists FailingCalls.cpp among its sources
/// and every function named here under WRAP.
namespace failing {

/// One function. Idle, its calls go to the system.
class Call
{
public:
    /// The next `times` calls fail with this error; only calls of the calling thread if `onThisThreadOnly`.
    void fail(int errorNumber, bool onThisThreadOnly = false, size_t times = 1);

    /// The next call, or the next of the calling thread, goes no further than its beginning until release().
    void holdNext(bool onThisThreadOnly = false);

    /// Waits until the call is held.
    bool awaitHeld();
    void release();

    /// Asked by the wrapper. Returns when the call is not held any more.
    /// @return the error with which this call has to fail, or 0
    int takeFailure();

    /// Calls so far, failed ones included.
    std::atomic<size_t> calls{0};

    /// Those that have come back from the system; not counted for close and pthread_create.
    std::atomic<size_t> returned{0};

private:
    std::atomic<size_t> left{0};
    std::atomic<int> error{0};
    std::atomic<std::thread::id> thread{};

    void stayIfHeld();

    std::atomic<bool> holdsNext{false};
    std::mutex holdMutex;
    std::condition_variable holdChanged;
    std::thread::id heldThread{}; ///< none: any
    bool isHeld = false;
};

extern Call socketCall;
extern Call connectCall;
extern Call setsockoptCall;
extern Call bindCall;
extern Call closeCall;
extern Call pselectCall;
extern Call recvCall;
extern Call recvfromCall;
extern Call sendCall;
extern Call sendtoCall;
extern Call pthreadCreateCall;

/// From now on usleep returns at once.
void skipPauses();

/// The n-th call of usleep from now on, counted from 1, returns only after endStoppedPause(). The calls before and
/// after it follow skipPauses().
void stopAtPause(size_t number);
void awaitStoppedPause();
void endStoppedPause();

/// The thread that the next pthread_create starts does nothing before releaseHeldThread().
void holdNextThread();
void releaseHeldThread();

/// The threads for whose end somebody has begun to wait.
extern Recorder<pthread_t> joins;

/// The pauses asked for so far, and the sum of their microseconds.
extern std::atomic<size_t> pauses;
extern std::atomic<size_t> pausedUs;

/// While not negative: socket() answers with a duplicate of its descriptor, at this number or above.
extern std::atomic<int> lowestSocketNumber;

/// While not 0: the next send() takes no more than this, once.
extern std::atomic<size_t> shortSendBytes;

/// So many of the next waits in pselect() end with a result of 1 and an empty set.
extern std::atomic<size_t> emptyWakeUps;

} // namespace failing
