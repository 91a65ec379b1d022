#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/FailingCalls.h>
#include <support/GroupedDigits.h>
#include <support/VirtualSlot.h>

#include <CanTP_ISO_Interface.h>

#include <vqtrace/SystemMessage.h>
#include <vqutil/VQException.h>

#include <cerrno>
#include <stdexcept>

REVEAL_MEMBER(OwnHandler, CanTP_ISO_Interface, handler);
using InterfaceBaseOfBus = BusInterfaceBase<CANTransportTraceMessage, MessageBase>;
REVEAL_MEMBER(ReservedNumber1, InterfaceBaseOfBus, reservedNumber1);
REVEAL_MEMBER(ReservedNumbers, InterfaceBaseOfBus, reservedNumbers);
REVEAL_MEMBER(DefaultId, InterfaceBaseOfBus, defaultId);
REVEAL_MEMBER(ReservedNumber2, InterfaceBaseOfBus, reservedNumber2);
REVEAL_MEMBER(ReservedNumber3, InterfaceBaseOfBus, reservedNumber3);
REVEAL_MEMBER(Channel, InterfaceBaseOfBus, channel);
REVEAL_MEMBER(ReservedText, InterfaceBaseOfBus, reservedText);
REVEAL_MEMBER(HandlerTxId, CanIsoTpHandler, txId);
REVEAL_MEMBER(HandlerTxType, CanIsoTpHandler, txType);
REVEAL_MEMBER(HandlerRxId, CanIsoTpHandler, rxId);
REVEAL_MEMBER(HandlerRxType, CanIsoTpHandler, rxType);

namespace {

using Message = CANTransportTraceMessage;

class RecordingInterfaceCallback : public BusInterfaceBaseCb<Message>
{
public:
    Recorder<Message> messages;
    void onMessage(const Message* msg) override { messages.add(*msg); }
};

class CanTP_ISO_InterfaceTest : public testing::Test
{
protected:
    CanTP_ISO_InterfaceTest()
    {
        bus.reset();
        transmitter.reset();
        sut = std::make_unique<CanTP_ISO_Interface>(uint8_t{3}, std::vector<unsigned int>{0x7E8, 0x7E9}, 0x7E0U);
        sut->callbacks.insert(&callback);
    }

    Handler& handler() { return *(*sut.*reveal(OwnHandler{})); }
    int send(const Bytes& payload, uint32_t id = 0x7E1) { return sut->send(id, payload.data(), payload.size()); }
    static Message message(const Bytes& payload) { return {Message::MESSAGE_ID, 0, payload, 0x7E8, CAN_STANDARD}; }

    /// The output without the lines of reported states, and the number of these.
    static std::pair<std::string, int> splitReports(std::string out)
    {
        const std::string report = "[INFO] CanTP_ISO::canIsoTpHandlerStatusCb\n";
        int count = 0;
        for (size_t at = out.find(report); at != std::string::npos; at = out.find(report)) {
            out.erase(at, report.size());
            ++count;
        }
        return {out, count};
    }

    FakeBus& bus = FakeBus::instance();
    FakeTransmitter& transmitter = FakeTransmitter::instance();
    RecordingInterfaceCallback callback;
    std::unique_ptr<CanTP_ISO_Interface> sut;
};

TEST_F(CanTP_ISO_InterfaceTest, FirstIdentifierIsReceivedAndTheDefaultSent)
{
    EXPECT_EQ(handler().*reveal(HandlerRxId{}), 0x7E8U);
    EXPECT_EQ(handler().*reveal(HandlerRxType{}), CAN_STANDARD);
    EXPECT_EQ(handler().*reveal(HandlerTxId{}), 0x7E0U);
    EXPECT_EQ(handler().*reveal(HandlerTxType{}), CAN_STANDARD);
}

TEST_F(CanTP_ISO_InterfaceTest, RegistersDiagnosticWithTheTraceLogger)
{
    ASSERT_EQ(bus.sent().size(), 1U);
    EXPECT_EQ(bus.sent()[0].destination, "TraceLogger");
    EXPECT_EQ(dynamic_cast<const SystemMessage&>(*bus.sent()[0].message).text, "1 3 1 2024 Diagnostic");
}

TEST_F(CanTP_ISO_InterfaceTest, EmptyListOfIdentifiersThrows)
{
    EXPECT_THROW(CanTP_ISO_Interface(0, {}, 1), std::out_of_range);
    EXPECT_EQ(bus.callbackCount(), 1U); // sut's handler
}

TEST_F(CanTP_ISO_InterfaceTest, FailingHandlerRemovesTheInterfaceFromTheBus)
{
    std::vector<std::string> calls;
    bus.onCall = [&](const std::string& operation) {
        calls.push_back(operation);
        if (operation == "setCallBack") {
            throw std::runtime_error("no bus");
        }
    };
    EXPECT_THROW(CanTP_ISO_Interface(0, {1}, 1), std::runtime_error);
    bus.onCall = nullptr;
    EXPECT_EQ(calls, (std::vector<std::string>{"setCallBack", "removeCallBack", "removeCallBack"}));
}

TEST_F(CanTP_ISO_InterfaceTest, SendBeforeConfigureFailsSilently)
{
    CapturedOutput output;
    EXPECT_EQ(send({1, 2}), -1);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(handler().sendQueueEmpty());
}

TEST_F(CanTP_ISO_InterfaceTest, ConfigureSetsUpTheHandlerAndStartsIt)
{
    handler().extAddressLength = 1;
    handler().useMinimalDlc = 1;
    handler().debugLevel = 3;
    CapturedOutput output;
    EXPECT_EQ(sut->configure(), 0);
    EXPECT_EQ(handler().extAddressLength, 0);
    EXPECT_EQ(handler().extAddress, 0xEE);
    EXPECT_EQ(handler().useMinimalDlc, 0);
    EXPECT_EQ(handler().debugLevel, 0);
    sut.reset(); // the worker has reported by then
    // The worker's start is reported by the worker, before or after the second line.
    auto [rest, reports] = splitReports(output.out());
    EXPECT_EQ(rest, "[INFO] CanTP_ISO::Start handler...\n"
                    "[INFO] CanTP_ISO::Start handler done\n"
                    "Stop CAN ISP TP handler\n");
    EXPECT_EQ(reports, 2);
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTP_ISO_InterfaceTest, SecondConfigureStartsNoSecondWorker)
{
    CapturedOutput output;
    EXPECT_EQ(sut->configure(), 0);
    EXPECT_EQ(sut->configure(), 0);
    sut.reset();
    EXPECT_EQ(splitReports(output.out()).second, 2); // one start, one end
}

TEST_F(CanTP_ISO_InterfaceTest, WorkerThatCannotBeStartedIsNoFailureOfConfigure)
{
    failing::pthreadCreateCall.fail(EAGAIN);
    CapturedOutput output;
    EXPECT_EQ(sut->configure(), 0);
    EXPECT_EQ(send({0xAB}), 0);
    EXPECT_FALSE(handler().sendQueueEmpty()); // nobody sends it
    sut.reset();                              // waits for nothing
    EXPECT_EQ(output.out(), "[INFO] CanTP_ISO::Start handler...\n"
                            "[INFO] CanTP_ISO::Start handler done\n"
                            "[INFO] CanTP_ISO::sendMsg[3]:id=0x7e1; type=standard; length=1; data= ab\n"
                            "Stop CAN ISP TP handler\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(transmitter.frames.all().empty());
}

TEST_F(CanTP_ISO_InterfaceTest, ConfigureAgainStartsTheWorkerThatCouldNotBeStarted)
{
    failing::pthreadCreateCall.fail(EAGAIN);
    EXPECT_EQ(sut->configure(), 0);
    EXPECT_EQ(send({0xAB}), 0);
    EXPECT_EQ(sut->configure(), 0);
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    EXPECT_EQ(bytesOf(transmitter.frames.all()[0]), padded({0x01, 0xAB}));
}

TEST_F(CanTP_ISO_InterfaceTest, LinesAreTheSameInEveryLocale)
{
    const GroupedDigits locale;
    failing::pthreadCreateCall.fail(EAGAIN); // no worker whose reports mix with the lines
    sut->configure();
    CapturedOutput output;
    const Message msg = message(Bytes(1000, 0xAB));
    EXPECT_EQ(send(msg.data), 0);
    sut->vqpBusProxyCb(&msg, "a", "b");
    std::string data;
    for (int i = 0; i < 1000; ++i) {
        data += " ab";
    }
    EXPECT_EQ(output.out(), "[INFO] CanTP_ISO::sendMsg[3]:id=0x7e1; type=standard; length=1000; data=" + data +
                                "\nRX:id=0x7e8; type=standard; length=1000; data=" + data + "\n");
}

TEST_F(CanTP_ISO_InterfaceTest, FrameAboveEightBytesThrowsOutOfTheBusCallback)
{
    sut->configure();
    const CANExtTraceMessage frame = canFrame(Bytes(9, 0x01));
    try {
        bus.deliver(&frame);
        FAIL() << "no exception";
    } catch (const BufferMismatchException& failure) {
        EXPECT_STREQ(failure.what(), "CANTraceMessageBase too long");
    }
    EXPECT_EQ(callback.messages.count(), 0U);
}

TEST_F(CanTP_ISO_InterfaceTest, SendIsToldAndTransmitted)
{
    sut->configure();
    CapturedOutput output;
    EXPECT_EQ(send({0x22, 0xF1, 0x90}), 0);
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    // The worker may report its start only now.
    EXPECT_EQ(splitReports(output.out()).first,
              "[INFO] CanTP_ISO::sendMsg[3]:id=0x7e1; type=standard; length=3; data= 22 f1 90\n");
    EXPECT_EQ(output.err(), "");
    const CANExtTraceMessage frame = transmitter.frames.all()[0];
    EXPECT_EQ(frame.canId, 0x7E1U);
    EXPECT_EQ(frame.channel, 3);
    EXPECT_EQ(bytesOf(frame), padded({0x03, 0x22, 0xF1, 0x90}));
}

TEST_F(CanTP_ISO_InterfaceTest, DefaultIdentifierIsUsedOnRequest)
{
    sut->configure();
    const Bytes payload{1};
    EXPECT_EQ(sut->sendDefaultID(payload.data(), payload.size()), 0);
    ASSERT_TRUE(transmitter.frames.waitForCount(1));
    EXPECT_EQ(transmitter.frames.all()[0].canId, 0x7E0U);
}

TEST_F(CanTP_ISO_InterfaceTest, Bytes4095AreAccepted)
{
    transmitter.onFrame = [this](const CANExtTraceMessage& frame) {
        if ((frame.data[0] & 0xF0) == 0x10) {
            const CANExtTraceMessage answer = canFrame(padded({0x30, 0, 0}));
            handler().vqpBusProxyCb(&answer, "", "");
        }
        return 0;
    };
    sut->configure();
    EXPECT_EQ(send(counting(4095)), 0);
    ASSERT_TRUE(transmitter.frames.waitForCount(586));
}

TEST_F(CanTP_ISO_InterfaceTest, Bytes4096AreRefused)
{
    sut->configure();
    CapturedOutput output;
    EXPECT_EQ(send(counting(4096)), -1);
    EXPECT_EQ(output.err(), "[ERROR] CANIsoTpThread::send: message it's too long\n"
                            "[ERROR] CanTP_ISO::sendMsg failed!\n");
}

TEST_F(CanTP_ISO_InterfaceTest, EmptyPayloadIsRefused)
{
    sut->configure();
    CapturedOutput output;
    EXPECT_EQ(send({}), -1);
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = 0\n"
              "[ERROR] CanIsoTpHandler::abortProcessing: error = error while processing data to send\n"
              "[ERROR] CanTP_ISO::sendMsg failed!\n");
}

TEST_F(CanTP_ISO_InterfaceTest, SendingAMessageObjectIsNotSupported)
{
    sut->configure();
    const Message msg = message({1});
    CapturedOutput output;
    EXPECT_EQ(sut->send(static_cast<const MessageBase*>(&msg)), -1);
    EXPECT_EQ(sut->send(static_cast<const MessageBase*>(nullptr)), -1);
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(transmitter.frames.all().empty());
}

TEST_F(CanTP_ISO_InterfaceTest, ReceivedMessageIsToldAndPassedOn)
{
    sut->configure();
    CapturedOutput output;
    const CANExtTraceMessage frame = canFrame(padded({0x02, 0x50, 0x03}));
    handler().vqpBusProxyCb(&frame, "", "");
    EXPECT_EQ(splitReports(output.out()).first,
              "[INFO] CanTP_ISO::canIsoTpHandlerCb id=0x7e8; type=standard; length=2; data= 50 03\n");
    ASSERT_EQ(callback.messages.count(), 1U);
    EXPECT_EQ(callback.messages.all()[0].data, (Bytes{0x50, 0x03}));
}

TEST_F(CanTP_ISO_InterfaceTest, StatusIsToldWithoutItsContent)
{
    CapturedOutput output;
    sut->canIsoTpHandlerStatusCb(CanIsoTpHandlerCallback::STATUS_ERROR, 5, "text");
    EXPECT_EQ(output.out(), "[INFO] CanTP_ISO::canIsoTpHandlerStatusCb\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTP_ISO_InterfaceTest, TransportMessageOfTheBusIsToldAndPassedOn)
{
    const Message msg = message({0xAA});
    CapturedOutput output;
    sut->vqpBusProxyCb(&msg, "a", "b");
    EXPECT_EQ(output.out(), "RX:id=0x7e8; type=standard; length=1; data= aa\n");
    EXPECT_EQ(callback.messages.count(), 1U);
}

TEST_F(CanTP_ISO_InterfaceTest, OtherMessageOfTheBusIsDroppedSilently)
{
    const SystemMessage other(128, 0, 19, "text");
    const CANExtTraceMessage frame = canFrame(padded({0x01, 1}));
    CapturedOutput output;
    sut->vqpBusProxyCb(&other, "a", "b");
    sut->vqpBusProxyCb(&frame, "a", "b");
    sut->vqpBusProxyCb(nullptr, "a", "b");
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(callback.messages.count(), 0U);
}

TEST_F(CanTP_ISO_InterfaceTest, PassingOnPrintsNothing)
{
    const Message msg = message({0xAA});
    CapturedOutput output;
    sut->on_MsgReceived(&msg);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(callback.messages.count(), 1U);
}

TEST_F(CanTP_ISO_InterfaceTest, EveryCallbackIsCalledInAddressOrder)
{
    std::vector<const void*> order;
    class Ordered : public BusInterfaceBaseCb<Message>
    {
    public:
        std::vector<const void*>* order = nullptr;
        void onMessage(const Message*) override { order->push_back(this); }
    } callbacks[3];
    sut->callbacks.clear();
    for (Ordered& one : callbacks) {
        one.order = &order;
        sut->callbacks.insert(&one);
    }
    const Message msg = message({0xAA});
    sut->on_MsgReceived(&msg);
    EXPECT_EQ(order, (std::vector<const void*>{&callbacks[0], &callbacks[1], &callbacks[2]}));
}

TEST_F(CanTP_ISO_InterfaceTest, WithoutCallbacksNothingHappens)
{
    sut->callbacks.clear();
    const Message msg = message({0xAA});
    sut->on_MsgReceived(&msg);
}

TEST_F(CanTP_ISO_InterfaceTest, OnlyBusErrorsAreLogged)
{
    CapturedOutput output;
    sut->vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_INFO, 0, "one");
    sut->vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_WARNING, 0, "two");
    sut->vqpBusProxyStatusCb(VQPBusProxyCallback::STATUS_ERROR, 0, "three");
    EXPECT_EQ(output.err(), "[ERROR] MainHandler::VQPBusProxy: three\n");
    EXPECT_EQ(output.out(), "");
}

TEST_F(CanTP_ISO_InterfaceTest, DestructionWithoutConfigureDoesNotWait)
{
    CapturedOutput output;
    sut.reset();
    EXPECT_EQ(output.out(), "Stop CAN ISP TP handler\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(bus.callbackCount(), 0U);
}

TEST_F(CanTP_ISO_InterfaceTest, DestructionWaitsUntilEverythingIsSent)
{
    sut->configure();
    for (uint8_t i = 0; i < 20; ++i) {
        send({i});
    }
    sut.reset();
    EXPECT_EQ(transmitter.frames.count(), 20U);
}

TEST_F(CanTP_ISO_InterfaceTest, DestructionRemovesAnInterfaceThatWasAddedToTheBus)
{
    bus.add(*sut);
    EXPECT_EQ(bus.callbackCount(), 2U);
    sut.reset();
    EXPECT_EQ(bus.callbackCount(), 0U);
}

TEST(IsoTpInterfaceLayoutTest, MembersOfTheBaseLieInOrderAndTheReservedOnesAreEmpty)
{
    const CanTP_ISO_Interface interface(uint8_t{3}, std::vector<unsigned int>{0x7E8}, 0x7E0U);
    const InterfaceBaseOfBus& base = interface;
    const size_t callbacks = offsetIn(base, &InterfaceBaseOfBus::callbacks);
    const size_t first = callbacks + sizeof base.callbacks;
    EXPECT_EQ(callbacks, sizeof(VQPBusProxyCallback));
    EXPECT_EQ(offsetIn(base, reveal(ReservedNumber1{})), first);
    EXPECT_EQ(offsetIn(base, reveal(ReservedNumbers{})), first + 8);
    const size_t second = first + 8 + sizeof(std::vector<uint32_t>);
    EXPECT_EQ(offsetIn(base, reveal(DefaultId{})), second);
    EXPECT_EQ(offsetIn(base, reveal(ReservedNumber2{})), second + 4);
    EXPECT_EQ(offsetIn(base, reveal(ReservedNumber3{})), second + 8);
    EXPECT_EQ(offsetIn(base, reveal(Channel{})), second + 12);
    EXPECT_EQ(offsetIn(base, reveal(ReservedText{})), second + 16);

    EXPECT_EQ(base.*reveal(DefaultId{}), 0x7E0U);
    EXPECT_EQ(base.*reveal(Channel{}), 3);
    EXPECT_EQ(base.*reveal(ReservedNumber1{}), 0U);
    EXPECT_EQ(base.*reveal(ReservedNumber2{}), 0U);
    EXPECT_EQ(base.*reveal(ReservedNumber3{}), 0U);
    EXPECT_TRUE((base.*reveal(ReservedNumbers{})).empty());
    EXPECT_TRUE((base.*reveal(ReservedText{})).empty());
}

TEST(IsoTpInterfaceLayoutTest, VirtualOperationsKeepTheirSlots)
{
    using Base = BusInterfaceBase<Message, MessageBase>;
    EXPECT_EQ(slotOf(&VQPBusProxyCallback::vqpBusProxyCb), 2U);
    EXPECT_EQ(slotOf(&VQPBusProxyCallback::vqpBusProxyStatusCb), 3U);
    EXPECT_EQ(slotOf<Base>(static_cast<int (Base::*)(unsigned int, const uint8_t*, size_t)>(&Base::send)), 4U);
    EXPECT_EQ(slotOf<Base>(static_cast<int (Base::*)(const MessageBase*)>(&Base::send)), 5U);
    EXPECT_EQ(slotOf(&Base::sendDefaultID), 6U);
    EXPECT_EQ(slotOf(&Base::on_MsgReceived), 7U);
    EXPECT_EQ(slotOf(&BusInterfaceBaseCb<Message>::onInterfaceState), 2U);
    EXPECT_EQ(slotOf(&BusInterfaceBaseCb<Message>::onMessage), 3U);
    EXPECT_EQ(slotOf(&CanIsoTpHandlerCallback::canIsoTpHandlerCb), 2U);
    EXPECT_EQ(slotOf(&CanIsoTpHandlerCallback::canIsoTpHandlerStatusCb), 3U);
    EXPECT_EQ(slotOf(&CanIsoTpHandler::threadCode), 2U);
    EXPECT_EQ(slotOf(&CanIsoTpHandler::vqpBusProxyCb), 3U);
    EXPECT_EQ(slotOf(&CanIsoTpHandler::vqpBusProxyStatusCb), 4U);
}

} // namespace
