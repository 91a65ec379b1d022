#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <utility>

using directline::toError;
using directline::toOutput;

/// Holds the queue while frames are sent from it. An abort by this thread, and callbacks that it runs, let it go.
class VQ_SCOPED_CAPABILITY CanIsoTpHandler::QueueHold
{
public:
    explicit QueueHold(CanIsoTpHandler& owner) VQ_ACQUIRES_LOCK(owner.queueMutex) : handler(owner)
    {
        handler.acquireQueue();
    }
    ~QueueHold() VQ_RELEASES_LOCK() { handler.releaseQueue(); }
    QueueHold(const QueueHold&) = delete;
    QueueHold& operator=(const QueueHold&) = delete;

private:
    CanIsoTpHandler& handler;
};

void CanIsoTpHandler::processSendQueue()
{
    if (currentExpectation() == EXPECT_FC) {
        callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_WARNING, 0,
                                    "can't process send queue, wait for FC frame");
        return;
    }
    Message sent; // complete, to be removed
    {
        const QueueHold hold(*this);
        const Message message = sendQueue.empty() ? nullptr : sendQueue.front();
        if (message == nullptr) {
            endTransferWithoutMessage();
            return;
        }
        if (!sendFromMessage(*message)) {
            return;
        }
        sent = message;
    }
    completeMessage(sent);
}

/// Sends what the state allows of the message at the head of the queue, which the caller holds.
/// @return true if the message is complete
bool CanIsoTpHandler::sendFromMessage(const std::vector<rawCANMsg_t>& message)
{
    const bool debug = debugLevel != 0;
    rawCANMsg_t frame{};
    uint64_t aborts = 0;
    switch (selectFrame(message, frame, aborts)) {
    case SendStep::NOTHING:
        return false;
    case SendStep::SINGLE:
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: send a SF...");
        }
        return sendFrame(frame, aborts);
    case SendStep::FIRST:
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: send a FF...");
        }
        static_cast<void>(sendFrame(frame, aborts));
        return false;
    case SendStep::CONSECUTIVE:
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: try to send a CF...");
        }
        return sendBurst(message, aborts);
    case SendStep::BLOCK_FULL:
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: try to send a CF...");
        }
        logBlockLimit();
        return false;
    case SendStep::FLOW_CONTROL:
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: send a FC...");
        }
        static_cast<void>(sendFrame(frame, aborts));
        return false;
    case SendStep::BEHIND_END:
        toOutput("[ERROR] CanIsoTpHandler::processSendQueue: reached end of vector - be confused :-/");
        break;
    case SendStep::REACHED_END:
        toOutput("[ERROR] CanIsoTpHandler::processSendQueue: reached end of vector (2) - be confused :-/");
        break;
    case SendStep::UNDECIDED:
        toError("[ERROR] CanIsoTpHandler::processSendQueue: can't make a decision, that should never happen!");
        break;
    }
    abortUnlessAbortedSince(aborts, ERR_BUG);
    return false;
}

/// Moves the cursor, reads its frame and sets the state that holds while the frame goes out: the peer may answer
/// before the transmission returns.
CanIsoTpHandler::SendStep CanIsoTpHandler::selectFrame(const std::vector<rawCANMsg_t>& message, rawCANMsg_t& frame,
                                                       uint64_t& aborts)
{
    const MutexLock lock(protocolMutex);
    aborts = abortCount;
    if (abortsClearing != 0 || expectedFrame == EXPECT_CF || expectedFrame == EXPECT_FC) {
        return SendStep::NOTHING;
    }
    if (expectedFrame == EXPECT_SF_OR_FF) {
        sendCursor = 0;
    } else {
        // One step ahead, whether the cursor stands on the first frame that was sent last or, after a full block,
        // on the next one to send. So the first frame of every block but the first is not sent. This is the
        // behaviour that peers know.
        if (sendCursor >= message.size()) {
            return SendStep::BEHIND_END;
        }
        if (++sendCursor == message.size()) {
            return SendStep::REACHED_END;
        }
    }
    frame = message[sendCursor];
    if (isSingleFrame(frame)) {
        // Only a change of the codec settings brings one here in the middle of a message: it ends it.
        if (expectedFrame == EXPECT_NONE) {
            expectedFrame = EXPECT_SF_OR_FF;
        }
        return SendStep::SINGLE;
    }
    if (isFirstFrame(frame)) {
        expectedFrame = EXPECT_FC;
        return SendStep::FIRST;
    }
    if (isConsecutiveFrame(frame)) {
        if (blockSize != 0 && framesInBlock >= blockSize) {
            expectedFrame = EXPECT_FC;
            return SendStep::BLOCK_FULL;
        }
        expectedFrame = EXPECT_NONE;
        return SendStep::CONSECUTIVE;
    }
    if (isFlowControlFrame(frame)) {
        expectedFrame = EXPECT_CF;
        return SendStep::FLOW_CONTROL;
    }
    return SendStep::UNDECIDED;
}

/// Sends consecutive frames from the cursor on, up to the end of the message or of the block.
/// @return true if the message is complete
bool CanIsoTpHandler::sendBurst(const std::vector<rawCANMsg_t>& message, uint64_t aborts)
{
    const bool debug = debugLevel != 0;
    BurstFrame next{};
    while (nextBurstFrame(message, aborts, next)) {
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: send a CF...");
        }
        if (!sendFrame(next.frame, aborts)) {
            return false;
        }
        if (next.last) {
            if (debug) {
                toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: sent segmented message complete");
            }
            return true;
        }
        sleepFor(next.separationTime);
        if (next.fillsBlock) {
            if (!abortedSince(aborts)) {
                logBlockLimit();
            }
            return false;
        }
    }
    return false;
}

/// Takes the frame at the cursor, counts it and sets the state that follows it; see selectFrame().
/// @return false if the transfer has been aborted
bool CanIsoTpHandler::nextBurstFrame(const std::vector<rawCANMsg_t>& message, uint64_t aborts, BurstFrame& next)
{
    const MutexLock lock(protocolMutex);
    if (abortCount != aborts) {
        return false;
    }
    next.frame = message[sendCursor];
    next.separationTime = separationTime;
    ++framesInBlock;
    ++sendCursor;
    next.last = sendCursor >= message.size();
    next.fillsBlock = blockSize != 0 && framesInBlock >= blockSize;
    if (next.last) {
        expectedFrame = EXPECT_SF_OR_FF;
    } else {
        expectedFrame = next.fillsBlock ? EXPECT_FC : EXPECT_NONE;
    }
    return true;
}

void CanIsoTpHandler::logBlockLimit()
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::processSendQueue: block size limit reached, wait for FC");
    }
}

/// The queue was emptied under a transfer: nothing is left to send of it.
void CanIsoTpHandler::endTransferWithoutMessage()
{
    const MutexLock lock(protocolMutex);
    if (expectedFrame == EXPECT_NONE) {
        expectedFrame = EXPECT_SF_OR_FF;
    }
}

/// Removes a message that was sent and starts the next one.
void CanIsoTpHandler::completeMessage(const Message& message)
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::deleteFirstMessage");
    }
    {
        const MutexLock lock(queueMutex);
        // Another thread may have emptied the queue since the worker let it go.
        if (!sendQueue.empty() && sendQueue.front() == message) {
            sendQueue.pop_front();
        }
    }
    wakeForNextMessage();
}

void CanIsoTpHandler::deleteFirstMessage()
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::deleteFirstMessage");
    }
    Message dropped; // freed after the lock
    const MutexLock lock(queueMutex);
    if (!sendQueue.empty()) {
        dropped = std::move(sendQueue.front());
        sendQueue.pop_front();
    }
}
