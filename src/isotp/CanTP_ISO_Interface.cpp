#include <CanTP_ISO_Interface.h>

#include <isotp/DirectLine.h>

#include <vqpbus/VQPBusProxy.h>

using directline::toError;
using directline::toOutput;

namespace {

constexpr const char* BUS_PEER_NAME = "TraceLogger";
constexpr const char* OWN_BUS_NAME = "Diagnostic";

/// Has no effect with normal addressing.
constexpr uint8_t EXTENDED_ADDRESS = 0xEE;

} // namespace

CanTP_ISO_Interface::CanTP_ISO_Interface(unsigned char canChannel, const std::vector<unsigned int>& ids,
                                         unsigned int defaultSendId)
    : BusInterfaceBase<CANTransportTraceMessage, MessageBase>(canChannel, defaultSendId),
      handler(std::make_unique<CanIsoTpHandler>(BUS_PEER_NAME, OWN_BUS_NAME, canChannel, ids.at(0), CAN_STANDARD,
                                                defaultSendId, CAN_STANDARD))
{
}

CanTP_ISO_Interface::~CanTP_ISO_Interface()
{
    if (handler != nullptr) {
        toOutput("Stop CAN ISP TP handler");
        static_cast<void>(handler->stop());
        handler.reset();
    }
    // The base does it, too, but by then the bus thread would find on_MsgReceived() gone.
    VQPBusProxy::getInstance()->removeCallBack(*this);
}

int CanTP_ISO_Interface::configure()
{
    handler->extAddressLength = 0;
    handler->extAddress = EXTENDED_ADDRESS;
    handler->useMinimalDlc = 0;
    handler->debugLevel = 0;
    static_cast<void>(handler->setCallback(*this));
    toOutput("[INFO] CanTP_ISO::Start handler...");
    static_cast<void>(handler->start()); // refuses a second worker
    toOutput("[INFO] CanTP_ISO::Start handler done");
    configured = true;
    return 0;
}

int CanTP_ISO_Interface::send(unsigned int id, const uint8_t* data, size_t size)
{
    if (!configured) {
        return -1;
    }
    const CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0,
                                           std::vector<uint8_t>(data, data + size), id, CAN_STANDARD);
    toOutput("[INFO] CanTP_ISO::sendMsg[", +channel, "]:", message);
    if (!handler->send(&message)) {
        toError("[ERROR] CanTP_ISO::sendMsg failed!");
        return -1;
    }
    return 0;
}

int CanTP_ISO_Interface::send(const MessageBase* /*msg*/)
{
    return -1;
}

void CanTP_ISO_Interface::on_MsgReceived(const CANTransportTraceMessage* msg)
{
    tellCallbacks(msg);
}

void CanTP_ISO_Interface::canIsoTpHandlerCb(const CANTransportTraceMessage* msg)
{
    toOutput("[INFO] CanTP_ISO::canIsoTpHandlerCb ", *msg);
    tellCallbacks(msg);
}

void CanTP_ISO_Interface::canIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::StatusCBType_t /*type*/, int /*code*/,
                                                  const std::string& /*text*/)
{
    toOutput("[INFO] CanTP_ISO::canIsoTpHandlerStatusCb");
}
