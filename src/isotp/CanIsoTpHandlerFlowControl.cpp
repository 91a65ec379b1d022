#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <ios>

using directline::toError;
using directline::toOutput;

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
    const int status = fc.data[addressBytes()] & 0x0F;
    const Received received = judge(fc, status, &CanIsoTpHandler::acceptFlowControl);
    if (received.error != ERR_UNEXPECTED_FRAME && received.error != ERR_WRONG_DLC) {
        const flowStatus_t shown = getFrameFlowStatus(fc); // logs an unknown one
        if (debug) {
            toOutput("[DEBUG] CanIsoTpHandler::checkFlowControlFrame: status = 0x", std::hex,
                     static_cast<uint32_t>(shown), " bs = 0x", +getFrameBlockSize(fc), " st = 0x",
                     +getFrameSeparationTime(fc));
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

void CanIsoTpHandler::acceptFlowControl(const rawCANMsg_t& fc, int status, Received& received)
{
    const int rightDlc = useMinimalDlc != 0 ? addressBytes() + 3 : 8;
    if (expectedFrame != EXPECT_FC) {
        received.error = ERR_UNEXPECTED_FRAME;
        return;
    }
    if (fc.dlc != rightDlc) {
        received.error = ERR_WRONG_DLC;
        return;
    }
    blockSize = getFrameBlockSize(fc);
    separationTime = getFrameSeparationTime(fc);
    if (status == FS_CTS) {
        framesInBlock = 0;
        expectedFrame = EXPECT_NONE;
    } else if (status != FS_WAIT) {
        received.error = status == FS_OVERFLOW ? ERR_OVERFLOW : ERR_INVALID_FORMAT;
    }
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
