#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <vqutil/VQException.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

using directline::toError;
using directline::toOutput;

namespace {

using Clock = std::chrono::steady_clock;

/// The one time limit of the transport: for flow control and for the next consecutive frame.
constexpr long PROTOCOL_TIMEOUT_S = 1;

timeval timeUntil(Clock::time_point deadline)
{
    const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
    timeval time{};
    if (left > 0) {
        time.tv_sec = static_cast<time_t>(left / 1'000'000);
        time.tv_usec = static_cast<suseconds_t>(left % 1'000'000);
    }
    return time;
}

} // namespace

void CanIsoTpHandler::openPipe()
{
    int error = 0;
    if (::pipe(pipeFds) != 0) {
        error = errno;
    } else if (pipeFds[0] >= FD_SETSIZE || pipeFds[1] >= FD_SETSIZE) {
        // select() cannot watch it.
        error = EMFILE;
        closePipe();
    }
    if (error != 0) {
        throw VQException(std::string("[ERROR] CanIsoTpHandler::CanIsoTpHandler: can't init pipe: ") +
                          std::strerror(error));
    }
    fcntl(pipeFds[0], F_SETFD, FD_CLOEXEC);
    fcntl(pipeFds[1], F_SETFD, FD_CLOEXEC);
    // Two writers may find room for one byte: the second must not be caught in write().
    fcntl(pipeFds[1], F_SETFL, O_NONBLOCK);
}

void CanIsoTpHandler::closePipe() noexcept
{
    for (int& fd : pipeFds) {
        ::close(fd);
        fd = -1;
    }
}

bool CanIsoTpHandler::writeCommand(char cmd, long timeoutUs)
{
    const Clock::time_point deadline = Clock::now() + std::chrono::microseconds(timeoutUs);
    for (bool interrupted = false;; interrupted = true) {
        timeval left = timeUntil(deadline);
        fd_set writable;
        FD_ZERO(&writable);
        FD_SET(pipeFds[1], &writable);
        const bool expired = interrupted && left.tv_sec == 0 && left.tv_usec == 0;
        const int ready = expired ? 0 : ::select(pipeFds[1] + 1, nullptr, &writable, nullptr, &left);
        int error = errno;
        if (ready == 0) {
            toError("[ERROR] CanIsoTpHandler::pushThread: timeout");
            return false;
        }
        if (ready < 0) {
            if (error == EINTR) {
                continue;
            }
            toError("[ERROR] CanIsoTpHandler::pushThread: select error: ", std::strerror(error));
            return false;
        }
        if (::write(pipeFds[1], &cmd, 1) == 1) {
            return true;
        }
        error = errno;
        // EAGAIN: another thread took the room.
        if (error != EINTR && error != EAGAIN) {
            toError("[ERROR] CanIsoTpHandler::pushThread: can't write, error: ", std::strerror(error));
            return false;
        }
    }
}

bool CanIsoTpHandler::pushCommand(char cmd, long timeoutUs)
{
    if (debugLevel != 0) {
        // The tag is misspelt for good: tools look for it.
        toOutput("[DBEUG] CanIsoTpThread::pushThread: cmd = ", cmd);
    }
    if (cmd == START_SENDING) {
        ++startsPending;
    }
    const bool written = writeCommand(cmd, timeoutUs);
    if (!written && cmd == START_SENDING) {
        --startsPending;
    }
    return written;
}

void CanIsoTpHandler::pushThread(char cmd)
{
    if (!pushCommand(cmd, PUSH_TIMEOUT_US)) {
        abortProcessing(ERR_PUSH_FAILED);
    }
}

void CanIsoTpHandler::wakeForNextMessage()
{
    // One that is on its way does it, too. The worker calls this: it must not wait for room in a pipe that only it
    // empties.
    if (startsPending == 0 && !sendQueueEmpty()) {
        pushThread(START_SENDING);
    }
}

void CanIsoTpHandler::logExpectation()
{
    if (debugLevel != 0) {
        expFrameType_t expected = currentExpectation();
        toOutput("[DEBUG] CanIsoTpHandler::threadCode: wait for frame type = ", toString(expected));
    }
}

bool CanIsoTpHandler::workIsDue()
{
    const MutexLock queueLock(queueMutex);
    const MutexLock protocolLock(protocolMutex);
    // What an abort is about to drop is no work: waiting for it would end in a time-out without a transfer.
    return expectedFrame != EXPECT_SF_OR_FF || (!sendQueue.empty() && abortsClearing == 0);
}

void CanIsoTpHandler::threadCode()
{
    workerEnded = false;
    callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_INFO, 0, "thread started");
    logExpectation();
    for (;;) {
        const bool limited = workIsDue();
        if (debugLevel != 0) {
            if (limited) {
                toOutput("[DEBUG] CanIsoTpThread::threadCode: timeout set to ", PROTOCOL_TIMEOUT_S, " (default)");
            } else {
                toOutput("[DEBUG] CanIsoTpThread::threadCode: timeout set to 0");
            }
        }
        timeval limit{PROTOCOL_TIMEOUT_S, 0};
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(pipeFds[0], &readable);
        const int ready = ::select(pipeFds[0] + 1, &readable, nullptr, nullptr, limited ? &limit : nullptr);
        const int error = errno;
        if (ready < 0 && error == EINTR) {
            continue;
        }
        bool leave = false;
        if (ready < 0) {
            toError("[ERROR] CanIsoTpHandler::threadCode: select() reported an error: ", std::strerror(error));
        } else if (ready == 0) {
            toError("[ERROR] CanIsoTpHandler::threadCode: select() timeout");
            handleTimeout();
        } else {
            leave = readCommand();
        }
        if (leave || leaveRequested.exchange(false)) {
            break;
        }
        logExpectation();
    }
    // Before the report: who hears it may rely on stop() to return.
    workerEnded = true;
    callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_INFO, 0, "thread stopped");
}

/// Reads one command and carries it out.
/// @return true for the command to end
bool CanIsoTpHandler::readCommand()
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::threadCode: select() data available");
    }
    char cmd = 0;
    ssize_t count = 0;
    do {
        count = ::read(pipeFds[0], &cmd, 1);
    } while (count < 0 && errno == EINTR);
    if (count != 1) {
        const int error = errno;
        toError("[ERROR] CanIsoTpHandler::threadCode: can't read thread pipe, error: ", std::strerror(error));
        abortProcessing(ERR_THREAD_LOOP);
        return false;
    }
    if (cmd == START_SENDING) {
        if (startsPending != 0) {
            --startsPending;
        }
        processSendQueue();
    }
    return cmd == END_WORKER;
}
