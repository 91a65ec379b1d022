#include <CanIsoTpHandler.h>

#include <CanTxHandler.h>
#include <isotp/DirectLine.h>
#include <isotp/SeparationTime.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/TimeOfDay.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <ios>
#include <utility>

#include <unistd.h>

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

bool CanIsoTpHandler::send(unsigned int id, cantype_t type, const unsigned char* data, unsigned long length)
{
    if (length > MAX_DATA_BYTES) {
        toError("[ERROR] CANIsoTpThread::send: data size is too big");
        return false;
    }
    return prepareData(id, type, data, length);
}

bool CanIsoTpHandler::send(const CANTransportTraceMessage* msg)
{
    if (msg == nullptr) {
        return false;
    }
    if (msg->data.size() > MAX_DATA_BYTES) {
        toError("[ERROR] CANIsoTpThread::send: message it's too long");
        return false;
    }
    return prepareData(msg->canId, msg->type, msg->data.data(), msg->data.size());
}

bool CanIsoTpHandler::sendTxID(const unsigned char* data, unsigned long length)
{
    return send(txId, txType, data, length);
}

bool CanIsoTpHandler::prepareData(unsigned int id, cantype_t type, const unsigned char* data, unsigned long length)
{
    const bool debug = debugLevel != 0;
    const int announced = static_cast<int>(std::min<unsigned long>(length, INT_MAX));
    const auto message = std::make_shared<std::vector<rawCANMsg_t>>();
    rawCANMsg_t frame{};
    frame.id = id;
    frame.type = type;

    const uint32_t singleFirst = getFirstDataByte(FRAME_SF);
    if (length <= sizeof frame.data - singleFirst) {
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::prepareData: create a single frame...");
        }
        if (!setSingleFrameHeader(frame, announced)) {
            abortProcessing(ERR_PROCESSING_TX);
            return false;
        }
        std::memcpy(frame.data + singleFirst, data, length);
        message->push_back(frame);
    } else {
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::prepareData: create a frist frame...");
        }
        if (!setFirstFrameHeader(frame, announced)) {
            abortProcessing(ERR_PROCESSING_TX);
            return false;
        }
        const uint32_t firstFirst = getFirstDataByte(FRAME_FF);
        const uint32_t consecutiveFirst = getFirstDataByte(FRAME_CF);
        const size_t capacity = sizeof frame.data - consecutiveFirst;
        size_t taken = sizeof frame.data - firstFirst;
        std::memcpy(frame.data + firstFirst, data, taken);
        message->reserve(1 + length / capacity + 1);
        message->push_back(frame);
        int sequence = 1;
        for (size_t done = taken; done < length; done += taken) {
            if (debug) {
                toOutput("[DEBUG] CanIsoTpThread::prepareData: create a consecutive frame...");
            }
            taken = std::min<size_t>(length - done, capacity);
            setConsecutiveFrameHeader(frame, static_cast<int>(taken), sequence++);
            std::memcpy(frame.data + consecutiveFirst, data + done, taken);
            message->push_back(frame);
        }
    }

    {
        const MutexLock lock(queueMutex);
        sendQueue.push_back(message);
    }
    if (currentExpectation() == EXPECT_SF_OR_FF) {
        pushThread(START_SENDING);
    } else {
        // The end of the transfer starts it. Whoever ends it looks at the queue after the state, this thread looks
        // at the state after the queue: one of them sees the other.
        callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_WARNING, 0,
                                    "can't process send queue, wait for some frame");
    }
    return true;
}

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

void CanIsoTpHandler::checkFlowControlFrame(const rawCANMsg_t& fc)
{
    const bool debug = debugLevel != 0;
    if (debug) {
        toOutput("[DEBUG] CanIsoTpHandler::checkFlowControlFrame: ", fc);
    }
    if (!isFlowControlFrame(fc)) {
        abortProcessing(ERR_BUG);
        return;
    }
    const uint8_t address = addressBytes();
    const uint8_t rightDlc = useMinimalDlc != 0 ? static_cast<uint8_t>(address + 3) : uint8_t{8};
    const uint8_t announcedBlock = fc.data[address + 1];
    const uint8_t announcedTime = fc.data[address + 2];
    const int status = fc.data[address] & 0x0F;
    Received received;
    {
        const MutexLock lock(protocolMutex);
        received.expected = expectedFrame;
        received.aborts = abortCount;
        if (expectedFrame != EXPECT_FC) {
            received.error = ERR_UNEXPECTED_FRAME;
        } else if (fc.dlc != rightDlc) {
            received.error = ERR_WRONG_DLC;
        } else {
            blockSize = announcedBlock;
            separationTime = announcedTime;
            if (status == FS_CTS) {
                framesInBlock = 0;
                expectedFrame = EXPECT_NONE;
            } else if (status != FS_WAIT) {
                received.error = status == FS_OVERFLOW ? ERR_OVERFLOW : ERR_INVALID_FORMAT;
            }
        }
        if (received.error != ERR_NONE) {
            beginAbort();
        }
    }
    if (received.error != ERR_UNEXPECTED_FRAME && received.error != ERR_WRONG_DLC) {
        const flowStatus_t shown = getFrameFlowStatus(fc); // logs an unknown one
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::checkFlowControlFrame: status = 0x", std::hex,
                     static_cast<uint32_t>(shown), " bs = 0x", +announcedBlock, " st = 0x", +announcedTime);
        }
    }
    if (refuse(fc, received)) {
        return;
    }
    if (status == FS_CTS) {
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::checkFlowControlFrame: receive 'continue to send'");
        }
        pushThread(START_SENDING);
        return;
    }
    toError("[WARNING] CanIsoTpHandler::checkFlowControl: receive 'wait'");
    callCanIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_WARNING, 0, "receive FC with state = wait");
    if (!abortedSince(received.aborts)) {
        pushThread(RESTART_WAIT);
    }
}

void CanIsoTpHandler::sleepSeparationTime()
{
    uint8_t current = 0;
    {
        const MutexLock lock(protocolMutex);
        current = separationTime;
    }
    sleepFor(current);
}

void CanIsoTpHandler::sleepFor(uint8_t separationTimeByte)
{
    const uint32_t sleepUs = separationTimeUs(separationTimeByte);
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::sleepSeparationTime: sleep for ", sleepUs, " usec");
    }
    if (sleepUs != 0) {
        usleep(sleepUs);
    }
}

bool CanIsoTpHandler::transmit(const rawCANMsg_t& frame)
{
    CANExtTraceMessage message(CANExtTraceMessage::MESSAGE_ID, getMicroSecondsOfDay(), channel, CAN_FRAME_DATA,
                               CAN_STATE_OK, frame.type, std::min<uint8_t>(frame.dlc, sizeof frame.data), frame.id,
                               frame.data);
    if (CanTxHandler::getInstance(true)->send(message) < 0) {
        toError("[ERROR] CanIsoTpHandler::sendCANMessage: can't send");
        return false;
    }
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::sendCANMessage: send successful");
    }
    return true;
}

void CanIsoTpHandler::sendCANMessage(const rawCANMsg_t& frame)
{
    if (!transmit(frame)) {
        abortProcessing(ERR_PROCESSING_TX);
    }
}

/// Transmits a frame of the transfer that was going on when `aborts` was the count.
/// @return false if that transfer is over: transmission failed, or it was aborted meanwhile
bool CanIsoTpHandler::sendFrame(const rawCANMsg_t& frame, uint64_t aborts)
{
    if (!transmit(frame)) {
        abortUnlessAbortedSince(aborts, ERR_PROCESSING_TX);
        return false;
    }
    return !abortedSince(aborts);
}

CanIsoTpHandler::rawCANMsg_t CanIsoTpHandler::ownFlowControl(flowStatus_t fs)
{
    uint8_t announcedBlock = 0;
    uint8_t announcedTime = 0;
    {
        const MutexLock lock(protocolMutex);
        announcedBlock = blockSize;
        announcedTime = separationTime;
    }
    rawCANMsg_t frame{};
    frame.id = txId;
    frame.type = txType;
    setFlowControlFrame(frame, fs, announcedBlock, announcedTime);
    return frame;
}

void CanIsoTpHandler::sendFlowControl(cantype_t /*type*/, flowStatus_t fs)
{
    sendCANMessage(ownFlowControl(fs));
}
