#include <CanIsoTpHandler.h>

#include <CanTxHandler.h>
#include <isotp/DirectLine.h>
#include <isotp/SeparationTime.h>

#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/TimeOfDay.h>

#include <algorithm>

#include <unistd.h>

using directline::toError;
using directline::toOutput;

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
