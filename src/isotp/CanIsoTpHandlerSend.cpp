#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <algorithm>
#include <climits>
#include <cstring>

using directline::toError;
using directline::toOutput;

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
