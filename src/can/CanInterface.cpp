#include <CanInterface.h>

#include <CanTxHandler.h>
#include <LogLine.h>
#include <MsgRxHandler.h>

using logline::Level;

namespace {

constexpr std::string_view CLASS_NAME = "CanInterface";

constexpr size_t CLASSIC_PAYLOAD_BYTES = 8;
constexpr size_t FD_PAYLOAD_BYTES = 64;

/// Types above the four known ones have no limit.
constexpr bool fits(size_t sizeBytes, cantype_t type)
{
    if (sizeBytes <= CLASSIC_PAYLOAD_BYTES) {
        return true;
    }
    switch (type) {
    case CAN_STANDARD:
    case CAN_EXTENDED:
        return false;
    case CAN_FD_STANDARD:
    case CAN_FD_EXTENDED:
        return sizeBytes <= FD_PAYLOAD_BYTES;
    }
    return true;
}

/// The state as an interface reports it to the application.
constexpr int statusOf(MsgRxHandlerCb::handlerState_t state)
{
    switch (state) {
    case MsgRxHandlerCb::ONLINE:
        return 1;
    case MsgRxHandlerCb::OFFLINE:
        return 2;
    case MsgRxHandlerCb::ERROR:
        return 4;
    case MsgRxHandlerCb::UNDEFINED:
        break;
    }
    return 0;
}

} // namespace

CanInterface::~CanInterface()
{
    MsgRxHandler::getInstance()->unregisterReceiver(this);
}

int CanInterface::configure(const Configuration& configuration)
{
    channel = configuration.channel;
    id = configuration.id;
    type = configuration.type;
    receiveIds = configuration.receiveIds;
    configured = true;

    MsgRxHandler* const dispatcher = MsgRxHandler::getInstance();
    for (const Configuration::idPair_t& pair : receiveIds) {
        dispatcher->registerCanMessage(channel, pair.id, pair.type, this);
    }
    dispatcher->registerCanMessage(channel, id, type, this);
    return 0;
}

int CanInterface::send(const uint8_t* data, size_t size)
{
    if (!configured) {
        logline::write(Level::ERROR, CLASS_NAME, "send", "Interface is not configured.");
        return -1;
    }
    const cantype_t sentType = type;
    if (!fits(size, sentType)) {
        logline::write(Level::ERROR, CLASS_NAME, "send", "Invalid _dataSize=", size);
        return -1;
    }
    // The length keeps its low eight bits: with a type without limit, 256 bytes make an empty frame.
    CANExtTraceMessage msg(CANExtTraceMessage::MESSAGE_ID, 0, channel, CAN_FRAME_TX, CAN_STATE_OK, sentType,
                           static_cast<unsigned char>(size), id, data);
    return send(msg);
}

int CanInterface::send(CANExtTraceMessage& msg)
{
    if (!configured) {
        logline::write(Level::ERROR, CLASS_NAME, "send", "Interface is not configured.");
        return -1;
    }
    msg.time = 0;
    msg.frame = CAN_FRAME_TX;
    msg.channel = channel;
    // Meant so: the type that the message brought decides the width, and only then gives way to ours.
    msg.canId = maskedCanId(id, msg.type);
    msg.type = type;
    if (debugLevel > 0) {
        logline::write(Level::DEBUG, CLASS_NAME, "send", msg);
    }
    return CanTxHandler::getInstance(true)->send(msg);
}

void CanInterface::onStateChanged(MsgRxHandlerCb::handlerState_t state, const std::string& text)
{
    logline::write(Level::INFO, CLASS_NAME, "onStateChanged", "_newState=", state, "; _text=", text);
    const int status = statusOf(state);
    for (InterfaceBaseCb* const callback : callbacks) {
        callback->onInterfaceState(status);
    }
}

void CanInterface::onRawReceived(const uint8_t* data, size_t size)
{
    for (InterfaceBaseCb* const callback : callbacks) {
        callback->onDataReceived(data, size);
    }
}
