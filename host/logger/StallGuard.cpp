#include <logger/StallGuard.h>

#include <algorithm>

namespace vlogger {

namespace {

/// How often a queue with a reader that does not seem to move is tried within the stall limit.
constexpr int TRIES_PER_LIMIT = 8;

} // namespace

StallGuard::StallGuard(EpollLoop& eventLoop, Queue& guarded, Clock::Duration limit)
    : loop(eventLoop), queue(guarded), stallLimit(limit), retry(eventLoop, [this] { tryAgain(); }),
      lastProgress(eventLoop.now()), lastTry(lastProgress)
{
}

Admission StallGuard::admitToFull()
{
    const Clock::Instant present = loop.now();
    // A stalled reader is tried now and then only: in a flood this is asked for every frame.
    if (stalled && present - lastTry < stallLimit / TRIES_PER_LIMIT) {
        return Admission::DROP;
    }
    lastTry = present;
    queue.flush();
    if (!queue.isFull()) {
        return Admission::TAKE;
    }
    if (!stalled && present - lastProgress >= stallLimit) {
        stall();
    }
    return stalled ? Admission::DROP : Admission::HOLD;
}

void StallGuard::wait(Sender& sender)
{
    waiting.push_back(sender.weak_from_this());
    if (!retry.isRunning()) {
        retry.start(nextTry());
    }
}

void StallGuard::progressed()
{
    lastProgress = loop.now();
    stalled = false;
    if (!queue.isFull()) {
        release();
    }
}

void StallGuard::release()
{
    retry.stop();
    if (waiting.empty()) {
        return;
    }
    // Not at once: the queue may be in the middle of an offer by somebody else.
    loop.defer([senders = std::exchange(waiting, {})] {
        for (const std::weak_ptr<Sender>& waiter : senders) {
            if (const std::shared_ptr<Sender> sender = waiter.lock()) {
                sender->resume();
            }
        }
    });
}

Clock::Instant StallGuard::nextTry() const
{
    return std::min(loop.now() + stallLimit / TRIES_PER_LIMIT, lastProgress + stallLimit);
}

void StallGuard::tryAgain()
{
    queue.flush(); // lets the senders go if that makes room
    if (waiting.empty()) {
        return;
    }
    if (loop.now() - lastProgress >= stallLimit) {
        stall();
        release();
        return;
    }
    retry.start(nextTry());
}

void StallGuard::stall()
{
    stalled = true;
    queue.onStalled();
}

} // namespace vlogger
