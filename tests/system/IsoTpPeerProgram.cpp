// The other end of an ISO-TP exchange, built as a user builds one. Arguments: "echo" or "half", channel, receive and
// transmit identifier. "echo" says "ready", sends back what it gets, and ends with its input. "half" sends the first
// frames of a message, says "half", and does not go on until its input ends.
#include <CanInterface.h>
#include <CanIsoTpHandler.h>

#include <iostream>
#include <limits>
#include <string>

namespace {

class Echo : public CanIsoTpHandlerCallback
{
public:
    explicit Echo(CanIsoTpHandler& ownHandler) : handler(ownHandler) {}

    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override
    {
        handler.sendTxID(msg->data.data(), msg->data.size());
    }
    void canIsoTpHandlerStatusCb(StatusCBType_t, int, const std::string&) override {}

private:
    CanIsoTpHandler& handler;
};

void awaitEndOfInput()
{
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

int echo(uint8_t channel, uint32_t rxId, uint32_t txId)
{
    CanIsoTpHandler handler("TraceLogger", "Diagnostic", channel, rxId, CAN_STANDARD, txId, CAN_STANDARD);
    Echo callback(handler);
    handler.setCallback(callback);
    handler.start();
    std::cout << "ready" << std::endl;
    awaitEndOfInput();
    return handler.stop();
}

int half(uint8_t channel, uint32_t txId)
{
    constexpr uint8_t FRAMES[][8] = {
        {0x10, 100, 1, 2, 3, 4, 5, 6}, {0x21, 7, 8, 9, 10, 11, 12, 13}, {0x22, 14, 15, 16, 17, 18, 19, 20}};
    CanInterface can;
    can.configure({channel, txId, CAN_STANDARD, {}});
    for (const auto& frame : FRAMES) {
        if (can.send(frame, sizeof frame) != 0) {
            return 1;
        }
    }
    std::cout << "half" << std::endl;
    awaitEndOfInput();
    return 0;
}

} // namespace

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 5) {
        std::cerr << "usage: " << arguments[0] << " echo|half CHANNEL RX_ID TX_ID\n";
        return 2;
    }
    const auto channel = static_cast<uint8_t>(std::stoul(arguments[2]));
    const auto rxId = static_cast<uint32_t>(std::stoul(arguments[3]));
    const auto txId = static_cast<uint32_t>(std::stoul(arguments[4]));
    return arguments[1] == std::string("echo") ? echo(channel, rxId, txId) : half(channel, txId);
}
