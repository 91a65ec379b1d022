#include <support/FakeTransmitter.h>

#include <CanTxHandler.h>

CanTxHandler* CanTxHandler::getInstance(bool withOSync)
{
    // Only send() is ever called on it, which does not look at the object.
    alignas(CanTxHandler) static unsigned char storage[sizeof(CanTxHandler)];
    FakeTransmitter::instance().useOSync = withOSync;
    return reinterpret_cast<CanTxHandler*>(storage);
}

int CanTxHandler::send(CANExtTraceMessage& message)
{
    return FakeTransmitter::instance().transmit(message);
}

FakeTransmitter& FakeTransmitter::instance()
{
    static FakeTransmitter transmitter;
    return transmitter;
}

void FakeTransmitter::reset()
{
    frames.clear();
    records = true;
    useOSync = false;
    failFrom = -1;
    onFrame = nullptr;
    count = 0;
}

int FakeTransmitter::transmit(const CANExtTraceMessage& message)
{
    const int index = count++;
    if (records) {
        frames.add(message);
    }
    const int limit = failFrom;
    if (limit >= 0 && index >= limit) {
        return -1;
    }
    return onFrame ? onFrame(message) : 0;
}
