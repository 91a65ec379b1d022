// The other end of an ISO-TP exchange, built as a user builds one. Arguments: "echo", "sink" or "half", channel, receive
// and transmit identifier. "echo" says "ready", sends back what it gets, and ends with its input; "sink" counts the
// messages instead. Both say "aborted" when a transfer is. "half" sends the first frames of a message, says
// "half", and does not go on until its input ends.
#include <CanInterface.h>
#include <CanIsoTpHandler.h>

#include <iostream>
#include <limits>
#include <string>

namespace {

class Receiver : public CanIsoTpHandlerCallback
{
public:
    Receiver(CanIsoTpHandler& ownHandler, bool sendsBack) : handler(ownHandler), echoes(sendsBack) {}

    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override
    {
        if (echoes) {
            handler.sendTxID(msg->data.data(), msg->data.size());
        } else {
            std::cout << "received " + std::to_string(++received) + "\n" << std::flush;
        }
    }
    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string&) override
    {
        if (type == STATUS_ERROR) {
            std::cout << "aborted" << std::endl;
        }
    }

private:
    CanIsoTpHandler& handler;
    const bool echoes;
    unsigned received = 0;
};

void awaitEndOfInput()
{
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

int receive(uint8_t channel, uint32_t rxId, uint32_t txId, bool echoes)
{
    CanIsoTpHandler handler("TraceLogger", "Diagnostic", channel, rxId, CAN_STANDARD, txId, CAN_STANDARD);
    Receiver callback(handler, echoes);
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
        std::cerr << "usage: " << arguments[0] << " echo|sink|half CHANNEL RX_ID TX_ID\n";
        return 2;
    }
    const auto channel = static_cast<uint8_t>(std::stoul(arguments[2]));
    const auto rxId = static_cast<uint32_t>(std::stoul(arguments[3]));
    const auto txId = static_cast<uint32_t>(std::stoul(arguments[4]));
    const std::string kind = arguments[1];
    return kind == "half" ? half(channel, txId) : receive(channel, rxId, txId, kind == "echo");
}
