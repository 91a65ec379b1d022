#include <EthernetInterface.h>

#include <LogLine.h>

#include "ethernet/OpenSocket.h"

#include <algorithm>

using ethernet::OpenSocket;
using logline::Level;

// The life of the receive thread. Two rules keep a connected interface and its thread together:
// the thread gives up (clears rxThreadRunning) only in one step with finding no socket, or with taking out the
// socket that failed it; and connect() looks at rxThreadRunning only after its socket is published. So either the
// thread sees the new socket and stays, or connect() sees that it is going and starts another.

namespace {

/// The interface whose receive thread the calling thread is. Told apart this way, because a thread can run before
/// its creator has its handle, and has no handle any more while somebody waits for its end.
thread_local const EthernetInterface* receivingFor = nullptr;

void joinAll(const std::vector<pthread_t>& threads)
{
    for (const pthread_t thread : threads) {
        pthread_join(thread, nullptr);
    }
}

} // namespace

void EthernetInterface::threadCode()
{
    receivingFor = this;
    if (endIfDisconnected()) {
        logline::write(Level::ERROR, origin(), "threadCode", "Interface isn't connected! Exit thread.");
    } else {
        logline::write(Level::INFO, origin(), "threadCode", "Start RX thread.");
        closeTaken(receiveUntilEnd());
        logline::write(Level::INFO, origin(), "threadCode", "Exit RX thread.");
    }
    receivingFor = nullptr;
    markFinished();
}

/// Starts the receive thread unless one is running. A thread that cannot be created leaves the interface connected:
/// the next connect() that opens a socket tries again.
void EthernetInterface::startReceiveThread()
{
    std::vector<pthread_t> ended;
    {
        const MutexLock lock(stateMutex);
        if (rxThreadRunning || destroying) {
            return;
        }
        // The last thread may have ended since connect() began.
        ended = takeEndedThreads();
        rxThreadRunning = true;
    }
    joinAll(ended);
    logline::write(Level::DEBUG, origin(), "connect", "Start RX thread.");

    const MutexLock lock(stateMutex);
    rxThreadFinished = false;
    if (destroying || start() != 0) {
        rxThreadRunning = false;
    }
}

/// The threads that the caller must join now. A receive thread itself can wait neither for its own end nor, as two
/// of them could wait for each other, for one that may still make callbacks: those are set aside for the next
/// caller from elsewhere.
std::vector<pthread_t> EthernetInterface::takeEndedThreads()
{
    if (!rxThreadRunning && threadHandle != NO_THREAD) {
        endedThreads.push_back({threadHandle.exchange(NO_THREAD), rxThreadFinished});
    }
    const bool mayWait = receivingFor != this;
    const auto firstTaken =
        std::stable_partition(endedThreads.begin(), endedThreads.end(),
                              [mayWait](const endedThread_t& thread) { return !mayWait && !thread.finished; });
    std::vector<pthread_t> taken;
    std::transform(firstTaken, endedThreads.end(), std::back_inserter(taken),
                   [](const endedThread_t& thread) { return thread.handle; });
    endedThreads.erase(firstTaken, endedThreads.end());
    return taken;
}

void EthernetInterface::joinEndedThreads()
{
    std::vector<pthread_t> ended;
    {
        const MutexLock lock(stateMutex);
        ended = takeEndedThreads();
    }
    joinAll(ended);
}

/// For the destructor, which has cleared rxThreadRunning. A thread that was set aside meanwhile is found by the
/// next round; none is started any more.
void EthernetInterface::joinAllThreads()
{
    for (;;) {
        std::vector<pthread_t> ended;
        {
            const MutexLock lock(stateMutex);
            ended = takeEndedThreads();
        }
        if (ended.empty()) {
            return;
        }
        joinAll(ended);
    }
}

bool EthernetInterface::endIfDisconnected()
{
    const MutexLock lock(stateMutex);
    if (socketFd >= 0) {
        return false;
    }
    rxThreadRunning = false;
    return true;
}

/// Ends the receive thread because of a socket that gives nothing any more, and takes that socket out for closing.
/// @return false if the interface has another socket by now: the thread goes on with that
bool EthernetInterface::endAfterLoss(const OpenSocket& lost, std::shared_ptr<OpenSocket>& taken)
{
    const MutexLock lock(stateMutex);
    if (openSocket != nullptr && openSocket.get() != &lost) {
        return false;
    }
    rxThreadRunning = false;
    taken = takeSocketLocked();
    return true;
}

/// The calling receive thread makes no callback any more: whoever joins it waits for nothing.
void EthernetInterface::markFinished()
{
    const MutexLock lock(stateMutex);
    const pthread_t self = pthread_self();
    if (pthread_equal(threadHandle, self) != 0) {
        rxThreadFinished = true;
    }
    for (endedThread_t& thread : endedThreads) {
        thread.finished = thread.finished || pthread_equal(thread.handle, self) != 0;
    }
}
