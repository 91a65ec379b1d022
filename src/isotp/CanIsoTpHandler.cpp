#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <vqpbus/VQPBusProxy.h>
#include <vqtrace/SystemMessage.h>

#include <utility>

#include <unistd.h>

using directline::toError;
using directline::toOutput;

namespace {

/// Marks a 29-bit identifier in the registration text.
constexpr uint32_t EXTENDED_ID_FLAG = 0x80000000;

constexpr useconds_t STOP_POLL_US = 1000;

/// Notes that a thread runs callbacks, for as long as it does.
class OwnerMark
{
public:
    explicit OwnerMark(std::atomic<std::thread::id>& place) : owner(place) { owner = std::this_thread::get_id(); }
    ~OwnerMark() { owner = std::thread::id(); }
    OwnerMark(const OwnerMark&) = delete;
    OwnerMark& operator=(const OwnerMark&) = delete;

private:
    std::atomic<std::thread::id>& owner;
};

} // namespace

CanIsoTpHandler::CanIsoTpHandler(const std::string& peerBusName, const std::string& ownBusName,
                                 unsigned char canChannel, unsigned int receiveId, cantype_t receiveType,
                                 unsigned int transmitId, cantype_t transmitType)
    : busPeerName(peerBusName), ownName(ownBusName), channel(canChannel), rxId(receiveId), rxType(receiveType),
      txId(transmitId), txType(transmitType)
{
    openPipe();
    try {
        static_cast<void>(VQPBusProxy::getInstance()->setCallBack(*this));
        registered = registerHandler();
    } catch (...) {
        leaveBus();
        closePipe();
        throw;
    }
}

CanIsoTpHandler::~CanIsoTpHandler()
{
    // First of all: from here on the bus thread is in no operation of this object.
    leaveBus();
    closePipe();
}

void CanIsoTpHandler::leaveBus() noexcept
{
    try {
        VQPBusProxy::getInstance()->removeCallBack(*this);
    } catch (...) {
        // The object goes away whatever the bus answers: what else it holds is still to be released.
    }
}

bool CanIsoTpHandler::registerHandler()
{
    const uint32_t flaggedId = rxType == CAN_EXTENDED ? rxId | EXTENDED_ID_FLAG : rxId;
    const std::string text = "1 " + std::to_string(channel) + " 1 " + std::to_string(flaggedId) + " " + ownName;
    SystemMessage registration(SystemMessage::MESSAGE_ID, 0, SystemMessage::COMMAND_REGISTER, text);
    registration.stripNullChar();
    return VQPBusProxy::getInstance()->sendTo(busPeerName, registration.clone(), true);
}

bool CanIsoTpHandler::setCallback(CanIsoTpHandlerCallback& callback)
{
    const MutexLock lock(callbackMutex);
    return callbacks.insert(&callback).second;
}

int CanIsoTpHandler::removeCallback(CanIsoTpHandlerCallback& callback)
{
    const MutexLock lock(callbackMutex);
    return static_cast<int>(callbacks.erase(&callback));
}

void CanIsoTpHandler::forEachCallback(const std::function<void(CanIsoTpHandlerCallback&)>& call)
{
    if (callbackOwner == std::this_thread::get_id()) {
        // Caused by a callback of this handler: this thread holds the lock already.
        for (CanIsoTpHandlerCallback* const callback : callbacks) {
            call(*callback);
        }
        return;
    }
    // A peer that answers within the transmission brings the worker here with the queue locked. A callback may
    // send, and another thread's callback may wait for the queue just now.
    const bool heldQueue = releaseQueue();
    {
        const MutexLock lock(callbackMutex);
        const OwnerMark mark(callbackOwner);
        for (CanIsoTpHandlerCallback* const callback : callbacks) {
            call(*callback);
        }
    }
    if (heldQueue) {
        acquireQueue();
    }
}

void CanIsoTpHandler::callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::StatusCBType_t type, int code,
                                                  const std::string& text)
{
    forEachCallback([&](CanIsoTpHandlerCallback& callback) { callback.canIsoTpHandlerStatusCb(type, code, text); });
}

void CanIsoTpHandler::vqpBusProxyStatusCb(VQPBusProxyCallback::StatusCBType_t type, int /*code*/,
                                          const std::string& text)
{
    if (type == VQPBusProxyCallback::STATUS_ERROR) {
        toError("[ERROR] CanIsoTpHandler::vqpBusProxyStatus: ", text);
    }
}

void CanIsoTpHandler::acquireQueue()
{
    queueMutex.lock();
    queueOwner = std::this_thread::get_id();
}

bool CanIsoTpHandler::releaseQueue()
{
    if (queueOwner != std::this_thread::get_id()) {
        return false;
    }
    queueOwner = std::thread::id();
    queueMutex.unlock();
    return true;
}

bool CanIsoTpHandler::sendQueueEmpty()
{
    const MutexLock lock(queueMutex);
    return sendQueue.empty();
}

void CanIsoTpHandler::clear()
{
    std::deque<Message> dropped; // freed after the lock
    const MutexLock lock(queueMutex);
    dropped.swap(sendQueue);
}

CanIsoTpHandler::expFrameType_t CanIsoTpHandler::currentExpectation()
{
    const MutexLock lock(protocolMutex);
    return expectedFrame;
}

bool CanIsoTpHandler::abortedSince(uint64_t aborts)
{
    const MutexLock lock(protocolMutex);
    return abortCount != aborts;
}

/// The part of an abort that belongs to the decision: back to idle. finishAbort() must follow once the lock is
/// free.
void CanIsoTpHandler::beginAbort()
{
    ++abortCount;
    // Until the queue is empty the worker starts nothing from it: what it holds is lost already.
    ++abortsClearing;
    blockSize = 0;
    separationTime = 0;
    bytesToReceive = 0;
    framesInBlock = 0;
    rxSequence = 0;
    expectedFrame = EXPECT_SF_OR_FF;
    sendCursor = MSGPART_INVALID;
    rxBuffer.clear();
    delivering = false;
}

void CanIsoTpHandler::finishAbort(errorCode_t err)
{
    // The worker may be here with the queue locked; it has no more to send from it.
    releaseQueue();
    toError("[ERROR] CanIsoTpHandler::abortProcessing: error = ", toString(err));
    // Does not wait: a full pipe holds enough to wake the worker. A failure is not another abort.
    static_cast<void>(pushCommand(RESTART_WAIT, 0));
    {
        std::deque<Message> dropped; // freed after the locks
        const MutexLock queueLock(queueMutex);
        dropped.swap(sendQueue);
        const MutexLock protocolLock(protocolMutex);
        --abortsClearing;
    }
    callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_ERROR, static_cast<int>(err), toString(err));
}

void CanIsoTpHandler::abortProcessing(errorCode_t err)
{
    {
        const MutexLock lock(protocolMutex);
        beginAbort();
    }
    finishAbort(err);
}

/// Aborts the transfer that was going on when `aborts` was the count. If it has been aborted meanwhile this is
/// silent: the status was reported then, and another transfer may have begun.
void CanIsoTpHandler::abortUnlessAbortedSince(uint64_t aborts, errorCode_t err)
{
    {
        const MutexLock lock(protocolMutex);
        if (abortCount != aborts) {
            return;
        }
        beginAbort();
    }
    finishAbort(err);
}

void CanIsoTpHandler::handleTimeout()
{
    expFrameType_t expected{};
    bool late = false;
    {
        // Decided and reset at once: a frame that arrives in this moment comes either before or after.
        const MutexLock lock(protocolMutex);
        expected = expectedFrame;
        late = expected == EXPECT_FC || (expected == EXPECT_CF && !delivering);
        if (late) {
            beginAbort();
        }
    }
    if (late) {
        finishAbort(ERR_RX_TIMEOUT);
    } else if (expected != EXPECT_CF) {
        // In spite of the wording nothing is aborted.
        toOutput("[WARNING] CanIsoTpHandler::handleTimeout: abort, because there is no timeout reason!");
    }
}

int CanIsoTpHandler::stop()
{
    // Without a worker nobody empties the queue. One that was started may have ended, too: by an 'x' that found no
    // worker and waited for the next one.
    while (threadHandle != NO_THREAD && !workerEnded && !sendQueueEmpty()) {
        if (debugLevel != 0) {
            toOutput("[DEBUG] CanIsoTpHandler::stop: wait till all messages were sent");
        }
        usleep(STOP_POLL_US);
    }
    if (!pushCommand(END_WORKER, PUSH_TIMEOUT_US)) {
        // The worker must end all the same: whatever wakes it next makes it leave.
        leaveRequested = true;
        abortProcessing(ERR_PUSH_FAILED);
    }
    const int result = join();
    if (result == 0) {
        workerEnded = false; // it spoke of the worker that is joined now
    }
    return result;
}
