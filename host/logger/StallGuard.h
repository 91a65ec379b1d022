#pragma once

#include <logger/EpollLoop.h>
#include <logger/Sender.h>
#include <logger/Timer.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace vlogger {

/// What becomes of an entry that is offered to a queue.
enum class Admission
{
    TAKE,
    DROP, ///< the queue is full and its reader has stalled
    HOLD, ///< the queue is full and its reader may yet move: the sender waits
};

/// Decides for one queue between holding its senders back and dropping.
///
/// A full queue holds its senders back as long as the reader behind it makes progress. One whose reader has taken
/// nothing for the stall limit drops its newest entries, until the reader moves again: a reader that has gone to
/// sleep must not stop a bus, and a sender that waits for itself must come free.
///
/// Whether a reader has taken something shows when the system takes more bytes for it. That is tried whenever the
/// answer is needed, and a few times per stall limit while senders wait, because the system by itself reports room
/// only when most of its own buffer is free.
class StallGuard
{
public:
    /// The queue that is guarded.
    class Queue
    {
    public:
        virtual bool isFull() const = 0;
        /// Hands the system as much as it takes, and reports to progressed() if it took anything.
        virtual void flush() = 0;
        /// The reader has stalled now; said once per stall.
        virtual void onStalled() = 0;

    protected:
        ~Queue() = default;
    };

    StallGuard(EpollLoop& eventLoop, Queue& guarded, Clock::Duration limit);

    /// Asks for one entry. On HOLD the sender calls wait().
    Admission admit() { return queue.isFull() ? admitToFull() : Admission::TAKE; }

    /// Keeps a sender until there is room or the reader has stalled; senders come back in the order of waiting.
    void wait(Sender& sender);

    /// The reader has taken something.
    void progressed();

    /// The queue takes no more part: lets every sender go.
    void release();

    bool hasStalled() const { return stalled; }
    size_t sendersWaiting() const { return waiting.size(); }

private:
    Admission admitToFull();
    Clock::Instant nextTry() const;
    void tryAgain();
    void stall();

    EpollLoop& loop;
    Queue& queue;
    const Clock::Duration stallLimit;
    Timer retry;
    Clock::Instant lastProgress;
    Clock::Instant lastTry;
    bool stalled = false;
    std::vector<std::weak_ptr<Sender>> waiting;
};

} // namespace vlogger
