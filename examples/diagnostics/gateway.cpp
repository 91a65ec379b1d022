// A gateway: what a tester on the bus of channel 3 asks is passed on to the ECU on the bus of channel 0, and its answer
// back. Shows how a message that one handler has received is sent through another: by a thread between them.

#include "Forwarder.h"

#include <CanIsoTpHandler.h>
#include <StopSignal.h>

#include <exception>
#include <iostream>
#include <system_error>

namespace {

constexpr unsigned REQUEST_ID = 0x7E0;
constexpr unsigned ANSWER_ID = 0x7E8;
constexpr unsigned char TESTER_CHANNEL = 3;
constexpr unsigned char ECU_CHANNEL = 0;

/// What one side receives goes out on the other.
class Passage : public CanIsoTpHandlerCallback
{
public:
    Passage(const char* sideName, Forwarder& messageForwarder, CanIsoTpHandler& otherSide)
        : name(sideName), forwarder(messageForwarder), other(otherSide)
    {
    }

    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override { forwarder.forward(other, msg->data); }

    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string& text) override
    {
        if (type == STATUS_ERROR) {
            std::cerr << std::string("gateway: ") + name + " side: " + text + '\n';
        }
    }

private:
    const char* const name;
    Forwarder& forwarder;
    CanIsoTpHandler& other;
};

/// A handler must not be destroyed while its worker runs: this one is stopped, whatever is thrown.
class RunningWorker
{
public:
    explicit RunningWorker(CanIsoTpHandler& ownHandler) : handler(ownHandler)
    {
        if (const int error = handler.start()) {
            throw std::system_error(error, std::generic_category(), "cannot start a worker");
        }
    }
    ~RunningWorker() { handler.stop(); }
    RunningWorker(const RunningWorker&) = delete;
    RunningWorker& operator=(const RunningWorker&) = delete;

private:
    CanIsoTpHandler& handler;
};

/// A callback must not be destroyed while a handler calls it: this one is removed, whatever is thrown.
class Subscription
{
public:
    Subscription(CanIsoTpHandler& from, CanIsoTpHandlerCallback& to) : handler(from), callback(to)
    {
        handler.setCallback(callback);
    }
    ~Subscription() { handler.removeCallback(callback); }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

private:
    CanIsoTpHandler& handler;
    CanIsoTpHandlerCallback& callback;
};

void run(const StopSignal& stop)
{
    CanIsoTpHandler testerSide("TraceLogger", "Diagnostic", TESTER_CHANNEL, REQUEST_ID, CAN_STANDARD, ANSWER_ID,
                               CAN_STANDARD);
    CanIsoTpHandler ecuSide("TraceLogger", "Diagnostic", ECU_CHANNEL, ANSWER_ID, CAN_STANDARD, REQUEST_ID,
                            CAN_STANDARD);
    const RunningWorker testerWorker(testerSide);
    const RunningWorker ecuWorker(ecuSide);
    Forwarder forwarder; // ends before the handlers do
    Passage requests("tester", forwarder, ecuSide);
    Passage answers("ecu", forwarder, testerSide);
    const Subscription fromTester(testerSide, requests);
    const Subscription fromEcu(ecuSide, answers);
    std::cout << "gateway: ready" << std::endl;
    stop.wait();
}

} // namespace

int main()
{
    try {
        run(StopSignal());
    } catch (const std::exception& error) {
        std::cerr << "gateway: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
