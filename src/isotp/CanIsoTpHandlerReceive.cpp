#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/TimeOfDay.h>

#include <utility>

using directline::toError;
using directline::toOutput;

void CanIsoTpHandler::vqpBusProxyCb(const MessageBase* msg, const std::string& source,
                                    const std::string& destination)
{
    const auto* const message = dynamic_cast<const CANExtTraceMessage*>(msg);
    if (message == nullptr) {
        if (debugLevel >= 3) {
            toOutput("[WARNING] CanIsoTpHandler::vqpBusProxyCb: can't cast, source = ", source,
                     ", dest = ", destination);
        }
        return;
    }
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::vqpBusProxyCb: receive ", *message);
    }
    if (message->canId != rxId || message->type != rxType) {
        if (debugLevel != 0) {
            toOutput("[DEBUG] CanIsoTpHandler::vqpBusProxyCb: message has wrong id or type");
        }
        return;
    }
    rawCANMsg_t frame{}; // zeroed: a frame may be shorter than its control bytes
    frame.id = message->canId;
    frame.type = message->type;
    frame.dlc = static_cast<uint8_t>(message->copyData(frame.data, sizeof frame.data));
    handleCANData(frame);
}

void CanIsoTpHandler::handleCANData(const rawCANMsg_t& frame)
{
    if (isSingleFrame(frame)) {
        checkSingleFrame(frame);
    } else if (isFirstFrame(frame)) {
        checkFirstFrame(frame);
    } else if (isConsecutiveFrame(frame)) {
        checkConsecutiveFrame(frame);
    } else if (isFlowControlFrame(frame)) {
        checkFlowControlFrame(frame);
    } else {
        toError("[ERROR] CanIsoTpHandler::handleCANData: received invalid frame");
        showExpectedError(frame);
        abortProcessing(ERR_INVALID_FORMAT);
    }
}

/// Meets a frame with the state of this moment. What refuses it begins the abort in the same critical section;
/// refuse() must follow.
CanIsoTpHandler::Received CanIsoTpHandler::judge(const rawCANMsg_t& frame, int number, Acceptance accept)
{
    Received received;
    const MutexLock lock(protocolMutex);
    received.expected = expectedFrame;
    received.aborts = abortCount;
    (this->*accept)(frame, number, received);
    if (received.error != ERR_NONE) {
        beginAbort();
    }
    return received;
}

void CanIsoTpHandler::checkSingleFrame(const rawCANMsg_t& frame)
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::checkSingleFrame: ", frame);
    }
    Received received = judge(frame, getFrameDataLength(frame), &CanIsoTpHandler::acceptSingleFrame);
    if (!refuse(frame, received)) {
        static_cast<void>(deliver(received));
    }
}

void CanIsoTpHandler::acceptSingleFrame(const rawCANMsg_t& frame, int length, Received& received)
{
    const int first = static_cast<int>(getFirstDataByte(FRAME_SF));
    const int rightDlc = useMinimalDlc != 0 ? length + first : 8;
    if (expectedFrame != EXPECT_SF_OR_FF) {
        received.error = ERR_UNEXPECTED_FRAME;
    } else if (frame.dlc != rightDlc) {
        received.error = ERR_WRONG_DLC;
    } else if (length < 1 || length > 8 - first) {
        received.error = ERR_INVALID_FORMAT;
    } else {
        bytesToReceive = length;
        append(frame.data + first, static_cast<unsigned long>(length), received);
    }
}

void CanIsoTpHandler::checkFirstFrame(const rawCANMsg_t& frame)
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::checkFirstFrame: ", frame);
    }
    const Received received = judge(frame, getFrameDataLength(frame), &CanIsoTpHandler::acceptFirstFrame);
    if (received.error == ERR_BUG) {
        toError("[ERROR] CanIsoTpHandler::checkFirstFrame: bytesToReceive != 0, this should never happen!");
    }
    if (refuse(frame, received)) {
        return;
    }
    if (sendFrame(ownFlowControl(FS_CTS), received.aborts)) {
        pushThread(RESTART_WAIT);
    }
}

void CanIsoTpHandler::acceptFirstFrame(const rawCANMsg_t& frame, int length, Received& received)
{
    const uint32_t first = getFirstDataByte(FRAME_FF);
    const uint32_t carried = static_cast<uint32_t>(sizeof frame.data) - first;
    if (expectedFrame != EXPECT_SF_OR_FF) {
        received.error = ERR_UNEXPECTED_FRAME;
    } else if (length < static_cast<int>(carried) + 2) {
        received.error = ERR_INVALID_FORMAT; // a single frame would have held it
    } else if (bytesToReceive != 0) {
        received.error = ERR_BUG;
    } else {
        framesInBlock = 0;
        rxSequence = 0;
        bytesToReceive = length;
        expectedFrame = EXPECT_CF;
        blockSize = 0;
        separationTime = 0;
        rxBuffer.clear();
        rxBuffer.reserve(static_cast<size_t>(length));
        append(frame.data + first, carried, received);
    }
}

void CanIsoTpHandler::checkConsecutiveFrame(const rawCANMsg_t& frame)
{
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::checkConsecutiveFrame: ", frame);
    }
    Received received = judge(frame, getFrameSequenceNo(frame), &CanIsoTpHandler::acceptConsecutiveFrame);
    if (!refuse(frame, received) && deliver(received)) {
        pushThread(RESTART_WAIT);
    }
}

void CanIsoTpHandler::acceptConsecutiveFrame(const rawCANMsg_t& frame, int sequence, Received& received)
{
    if (delivering) {
        received.expected = EXPECT_SF_OR_FF; // the callbacks have the message: nothing more of it is due
    }
    if (received.expected != EXPECT_CF) {
        received.error = ERR_UNEXPECTED_FRAME;
        return;
    }
    ++rxSequence;
    if (sequence != rxSequence) {
        received.error = ERR_WRONG_SN;
        return;
    }
    if (sequence == 15) {
        rxSequence = -1; // the next number is 0
    }
    const int first = static_cast<int>(getFirstDataByte(FRAME_CF));
    int taken = 8 - first;
    if (bytesToReceive < taken) {
        taken = bytesToReceive;
        if (useMinimalDlc != 0 && frame.dlc != taken + first) {
            received.error = ERR_WRONG_DLC;
            return;
        }
    }
    append(frame.data + first, static_cast<unsigned long>(taken), received);
}

void CanIsoTpHandler::addReceivedData(unsigned short /*id*/, cantype_t /*type*/, const unsigned char* data,
                                      unsigned long length)
{
    Received received;
    {
        const MutexLock lock(protocolMutex);
        received.expected = expectedFrame;
        received.aborts = abortCount;
        append(data, length, received);
        if (received.error != ERR_NONE) {
            beginAbort();
        }
    }
    if (received.error != ERR_NONE) {
        toError("[ERROR] CanIsoTpHandler::addReceivedData: bytesToReceive is negative");
        finishAbort(received.error);
        return;
    }
    static_cast<void>(deliver(received));
}

/// Adds payload to the message being received and takes the message out when it is complete.
void CanIsoTpHandler::append(const unsigned char* data, unsigned long length, Received& received)
{
    if (length > static_cast<unsigned long>(bytesToReceive)) {
        received.error = ERR_BUG;
        return;
    }
    rxBuffer.insert(rxBuffer.end(), data, data + length);
    bytesToReceive -= static_cast<int32_t>(length);
    if (bytesToReceive != 0) {
        return;
    }
    received.complete = true;
    received.segmented = expectedFrame == EXPECT_CF;
    received.payload = std::exchange(rxBuffer, {});
    delivering = received.segmented;
}

/// Ends the transfer if the frame was not accepted.
/// @return true if it was not
bool CanIsoTpHandler::refuse(const rawCANMsg_t& frame, const Received& received)
{
    if (received.error == ERR_NONE) {
        return false;
    }
    if (received.error == ERR_UNEXPECTED_FRAME) {
        logUnexpected(frame, received.expected);
    }
    finishAbort(received.error);
    return true;
}

/// Hands a complete message to the callbacks and ends its reception.
/// @return true if the reception goes on or has ended well; false if it was aborted meanwhile
bool CanIsoTpHandler::deliver(Received& received)
{
    if (!received.complete) {
        return true;
    }
    const CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, getMicroSecondsOfDay(),
                                           std::move(received.payload), rxId, rxType);
    if (debugLevel != 0) {
        toOutput("[DEBUG] CanIsoTpHandler::addReceivedData: received complete transport message ", message);
    }
    forEachCallback([&](CanIsoTpHandlerCallback& callback) { callback.canIsoTpHandlerCb(&message); });
    {
        const MutexLock lock(protocolMutex);
        if (abortCount != received.aborts) {
            return false;
        }
        // A single frame left the state alone: the worker may have begun a transfer meanwhile.
        if (received.segmented) {
            delivering = false;
            rxSequence = 0;
            framesInBlock = 0;
            expectedFrame = EXPECT_SF_OR_FF;
        }
    }
    pushThread(START_SENDING);
    return !abortedSince(received.aborts); // a command that found no room has aborted
}
