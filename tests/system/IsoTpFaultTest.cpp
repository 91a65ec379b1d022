#include "IsoTpSystemTest.h"

#include <vqpbus/VQPBusProxy.h>

#include <host/platform/vqpbus/RecordingBusCallback.h>
#include <support/PipeCalls.h>
#include <support/Program.h>
#include <support/Waiting.h>

#include <csignal>

namespace {

using vlogger::IsoTpFault;

constexpr const char* WRONG_SN = "CF sequence number is wrong";
constexpr const char* RX_TIMEOUT = "RX timeout error";
constexpr const char* OVERFLOWED = "other side report overflow error";

std::string abortLine(const std::string& text)
{
    return "[ERROR] CanIsoTpHandler::abortProcessing: error = " + text;
}

/// A handler and a node that does something wrong.
class IsoTpNodeFaultTest : public IsoTpSystemTest
{
protected:
    /// Three consecutive frames.
    const Bytes message = counting(27);

    void startWith(IsoTpFault fault, uint32_t frame = 1)
    {
        vlogger::IsoTpNodeOptions node = echo();
        node.fault = fault;
        node.faultFrame = frame;
        IsoTpSystemTest::startWith(node);
        tester.emplace(0);
        tester->start();
    }

    /// A message of a single frame still passes.
    void expectUsable()
    {
        const size_t before = tester->messages().size();
        EXPECT_TRUE(tester->send({1, 2, 3}));
        EXPECT_TRUE(tester->awaitMessage({1, 2, 3}, before + 1));
    }

    std::optional<TestHandler> tester;
};

/// What the handler has reported apart from the life of its worker.
std::vector<IsoTpEvent> transfersOf(const TestHandler& tester)
{
    std::vector<IsoTpEvent> events = tester.callback.events.all();
    std::erase_if(events, [](const IsoTpEvent& event) {
        return event == infoEvent("thread started") || event == infoEvent("thread stopped");
    });
    return events;
}

} // namespace

TEST_F(IsoTpNodeFaultTest, DroppedFrameIsAWrongSequenceNumber)
{
    CapturedOutput output;
    startWith(IsoTpFault::DROP_CONSECUTIVE, 2);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(9, WRONG_SN));
    expectUsable();
    EXPECT_EQ(transfersOf(*tester), (std::vector{errorEvent(9, WRONG_SN), messageEvent({1, 2, 3})}));
    EXPECT_EQ(output.err(), abortLine(WRONG_SN) + "\n");
}

TEST_F(IsoTpNodeFaultTest, FramesAfterAnAbortAreUnexpectedOneByOne)
{
    CapturedOutput output;
    startWith(IsoTpFault::DROP_CONSECUTIVE, 1);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(1, "type of received frame != expected frame type"));
    EXPECT_EQ(transfersOf(*tester), (std::vector{errorEvent(9, WRONG_SN),
                                                 errorEvent(1, "type of received frame != expected frame type")}));
    EXPECT_EQ(countOf(linesOf(output.err()),
                      "[ERROR] CanIsoTpHandler::showExpectedError: received consecutive frame "
                      "but expected first or single frame"),
              1U);
}

TEST_F(IsoTpNodeFaultTest, DroppedLastFrameIsATimeout)
{
    CapturedOutput output;
    startWith(IsoTpFault::DROP_CONSECUTIVE, 3);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(2, RX_TIMEOUT));
    expectUsable();
    EXPECT_EQ(transfersOf(*tester), (std::vector{errorEvent(2, RX_TIMEOUT), messageEvent({1, 2, 3})}));
    EXPECT_EQ(
        linesOf(output.err()),
        (std::vector{std::string("[ERROR] CanIsoTpHandler::threadCode: select() timeout"), abortLine(RX_TIMEOUT)}));
}

TEST_F(IsoTpNodeFaultTest, WrongSequenceNumberIsReported)
{
    CapturedOutput output;
    startWith(IsoTpFault::WRONG_SEQUENCE, 3);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(9, WRONG_SN));
    expectUsable();
    EXPECT_EQ(transfersOf(*tester), (std::vector{errorEvent(9, WRONG_SN), messageEvent({1, 2, 3})}));
}

TEST_F(IsoTpNodeFaultTest, MissingFlowControlIsATimeoutThatDropsTheQueue)
{
    CapturedOutput output;
    startWith(IsoTpFault::NO_FLOW_CONTROL);

    ASSERT_TRUE(tester->send(message));
    ASSERT_TRUE(tester->send({9, 9, 9})); // queued behind it

    ASSERT_TRUE(tester->awaitError(2, RX_TIMEOUT));
    EXPECT_TRUE(tester->handler.sendQueueEmpty());
    expectUsable();
    EXPECT_EQ(tester->messages().size(), 1U);
}

TEST_F(IsoTpNodeFaultTest, OverflowIsReported)
{
    CapturedOutput output;
    startWith(IsoTpFault::REPORT_OVERFLOW);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(3, OVERFLOWED));
    expectUsable();
    EXPECT_EQ(transfersOf(*tester), (std::vector{errorEvent(3, OVERFLOWED), messageEvent({1, 2, 3})}));
    EXPECT_EQ(output.err(), abortLine(OVERFLOWED) + "\n");
}

TEST_F(IsoTpNodeFaultTest, SilentNodeIsATimeoutOfASegmentedMessage)
{
    CapturedOutput output;
    startWith(IsoTpFault::SILENT);

    ASSERT_TRUE(tester->send(message));

    EXPECT_TRUE(tester->awaitError(2, RX_TIMEOUT));
}

TEST_F(IsoTpNodeFaultTest, SilentNodeIsNotNoticedByASingleFrame)
{
    CapturedOutput output;
    startWith(IsoTpFault::SILENT);

    ASSERT_TRUE(tester->send({1, 2, 3}));

    tester->stop(); // returns once it is sent
    EXPECT_EQ(transfersOf(*tester), std::vector<IsoTpEvent>{});
    EXPECT_EQ(output.err(), "");
}

TEST_F(IsoTpNodeFaultTest, FrameAboveEightBytesIsReportedAndTheBusThreadGoesOn)
{
    CapturedOutput output;
    startWith(IsoTpFault::NONE);
    expectUsable(); // the registration is in force

    logger->sendFromNode({.channel = 0, .id = ANSWER_ID, .lengthBytes = 12});
    ASSERT_TRUE(tester->send(message));

    EXPECT_TRUE(tester->awaitMessage(message, 2));
    EXPECT_EQ(transfersOf(*tester), (std::vector{messageEvent({1, 2, 3}), messageEvent(message)}));
    EXPECT_EQ(output.err(), "[ERROR] process bus: exception out of a callback: CANTraceMessageBase too long\n");
}

TEST_F(IsoTpNodeFaultTest, FailingWriteAbortsTheTransferAndTheNextSucceeds)
{
    CapturedOutput output;
    startWith(IsoTpFault::NONE);
    expectUsable(); // the device is open
    logger->failWrites(MAIN_DEVICE, EIO);

    ASSERT_TRUE(tester->send(message));

    ASSERT_TRUE(tester->awaitError(7, "error while processing data to send"));
    ASSERT_TRUE(tester->send(message));
    EXPECT_TRUE(tester->awaitMessage(message, 2));
    EXPECT_EQ(countOf(linesOf(output.err()), "[ERROR] CanIsoTpHandler::sendCANMessage: can't send"), 1U);
}

namespace {

/// Processes that end in the middle of a transfer.
class IsoTpKillTest : public IsoTpSystemTest
{
protected:
    ~IsoTpKillTest() override
    {
        VQPBusProxy::getInstance()->removeCallBack(bus);
        time.reset();
    }

    std::unique_ptr<Program> startLoggerProcess()
    {
        auto process = std::make_unique<Program>(LOGGER_PROGRAM, std::vector<std::string>{socketPath, "plain"});
        EXPECT_TRUE(process->awaitLine("ready"));
        VQPBusProxy::getInstance()->setCallBack(bus);
        return process;
    }

    static void kill(Program& process)
    {
        process.signal(SIGKILL);
        EXPECT_EQ(process.awaitEnd(), -SIGKILL);
    }

    /// After the logger is back: device and process bus in the documented order.
    void recover()
    {
        startLogger(vlogger::board::PLAIN);
        // By then the registrations have been repeated.
        ASSERT_TRUE(bus.waitFor("status 0 0 connected to the process bus again"));
        transmitter().close();
        ASSERT_EQ(transmitter().open(), 0);
        time.ownTime();
    }

    static void expectExchange(TestHandler& from, TestHandler& to)
    {
        const size_t before = to.messages().size();
        ASSERT_TRUE(from.send(counting(4095)));
        EXPECT_TRUE(to.awaitMessage(counting(4095), before + 1))
            << "sender: " << testing::PrintToString(from.callback.events.all())
            << "\nreceiver: " << testing::PrintToString(to.callback.events.all());
    }

    /// Returns when every frame that was on the bus has reached the handlers of this process.
    /// @param marker  another handler on channel 1, with a receive identifier of its own
    void awaitFramesSoFar(const TestHandler& marker)
    {
        logger->sendFromNode({.channel = 1, .id = MARKER_ID, .lengthBytes = 8, .payload = {0x01, 0xAB}});
        ASSERT_TRUE(marker.awaitMessage({0xAB}));
    }

    static constexpr uint32_t MARKER_ID = 0x123;
    RecordingBusCallback bus;
    /// From ownTime() on a handler of this process that waits for its peer waits until the test says otherwise: a busy
    /// machine may keep the peer from its answer for more than the protocol's second.
    PipeCalls& time = PipeCalls::instance();
};

} // namespace

TEST_F(IsoTpKillTest, LoggerKilledWhileASenderWaitsForFlowControl)
{
    auto killed = startLoggerProcess();
    CapturedOutput output;
    TestHandler tester(0);
    TestHandler ecu(1, REQUEST_ID, ANSWER_ID);
    tester.start();
    ASSERT_TRUE(tester.send({1})); // opens the device
    ASSERT_TRUE(ecu.awaitMessage({1}));
    // Nobody answers this one: its identifier is that of no handler.
    TestInterface listener({1, 0x123, CAN_STANDARD, {}});
    goOnline({&listener});
    ASSERT_TRUE(tester.handler.send(0x123, CAN_STANDARD, counting(27).data(), 27));
    ASSERT_TRUE(listener.callback.frames.waitForCount(1));

    kill(*killed);

    ASSERT_TRUE(tester.awaitError(2, RX_TIMEOUT));
    recover();
    ecu.start();
    expectExchange(tester, ecu);
    expectExchange(ecu, tester);
    // Each handler is told that the bus has gone.
    EXPECT_EQ(countOf(linesOf(output.err()), "[ERROR] CanIsoTpHandler::vqpBusProxyStatus: the process bus is gone"),
              2U);
}

TEST_F(IsoTpKillTest, LoggerKilledWhileAReceiverWaitsForTheRest)
{
    auto killed = startLoggerProcess();
    CapturedOutput output;
    TestHandler tester(0);
    TestHandler ecu(1, REQUEST_ID, ANSWER_ID);
    ecu.start();
    TestInterface raw({0, REQUEST_ID, CAN_STANDARD, {}});
    raw.configure();
    // The first frame's flow control aborts the idle tester at the other end: it has begun nothing.
    ASSERT_EQ(raw.send({0x10, 27, 1, 2, 3, 4, 5, 6}), 0);
    ASSERT_TRUE(tester.awaitError(1, "type of received frame != expected frame type"));

    kill(*killed);

    ASSERT_TRUE(ecu.awaitError(2, RX_TIMEOUT));
    recover();
    tester.start();
    expectExchange(tester, ecu);
    expectExchange(ecu, tester);
}

TEST_F(IsoTpKillTest, SendingWithoutALoggerIsATransmitErrorUntilItIsReopened)
{
    time.ownTime();
    auto killed = startLoggerProcess();
    CapturedOutput output;
    TestHandler tester(0);
    TestHandler ecu(1, REQUEST_ID, ANSWER_ID);
    tester.start();
    ecu.start();
    expectExchange(tester, ecu);

    kill(*killed);
    ASSERT_TRUE(tester.send(counting(62)));

    ASSERT_TRUE(tester.awaitError(7, "error while processing data to send"));
    EXPECT_TRUE(tester.handler.sendQueueEmpty());
    recover();
    expectExchange(tester, ecu);
    EXPECT_EQ(countOf(linesOf(output.err()), "[ERROR] CanIsoTpHandler::sendCANMessage: can't send"), 1U);
}

TEST_F(IsoTpKillTest, PeerKilledInTheMiddleOfItsMessageIsATimeoutAndItsSuccessorIsServed)
{
    time.ownTime();
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    TestHandler ecu(1, REQUEST_ID, ANSWER_ID);
    const TestHandler marker(1, MARKER_ID, 0);
    ecu.start();
    {
        Program peer(ISOTP_PEER_PROGRAM, {"half", "0", std::to_string(ANSWER_ID), std::to_string(REQUEST_ID)});
        ASSERT_TRUE(peer.awaitLine("half"));
        kill(peer);
    }
    awaitFramesSoFar(marker);
    time.expire();
    ASSERT_TRUE(ecu.awaitError(2, RX_TIMEOUT));
    EXPECT_EQ(ecu.messages().size(), 0U);
    EXPECT_TRUE(becomesTrue([this] { return logger->statistics().busClients == 1; }));

    Program next(ISOTP_PATIENT_PEER_PROGRAM, {"echo", "0", std::to_string(ANSWER_ID), std::to_string(REQUEST_ID)});
    ASSERT_TRUE(next.awaitLine("ready"));
    ASSERT_TRUE(ecu.send(counting(4095)));
    EXPECT_TRUE(ecu.awaitMessage(counting(4095)));
    next.closeInput();
    EXPECT_EQ(next.awaitEnd(), 0);
}

TEST_F(IsoTpKillTest, PeerKilledBeforeItsFlowControlIsATimeout)
{
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();
    Program peer(ISOTP_PEER_PROGRAM, {"echo", "1", std::to_string(REQUEST_ID), std::to_string(ANSWER_ID)});
    ASSERT_TRUE(peer.awaitLine("ready"));
    peer.signal(SIGSTOP); // its flow control never comes
    ASSERT_TRUE(tester.send(counting(62)));

    kill(peer);

    EXPECT_TRUE(tester.awaitError(2, RX_TIMEOUT));
}

TEST_F(IsoTpKillTest, TwoProcessesExchangeEveryLength)
{
    time.ownTime();
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    Program peer(ISOTP_PATIENT_PEER_PROGRAM, {"echo", "1", std::to_string(REQUEST_ID), std::to_string(ANSWER_ID)});
    ASSERT_TRUE(peer.awaitLine("ready"));
    TestHandler tester(0);
    tester.start();
    size_t number = 0;
    for (const size_t length : {1U, 7U, 8U, 62U, 4095U}) {
        ASSERT_TRUE(tester.send(counting(length)));
        EXPECT_TRUE(tester.awaitMessage(counting(length), ++number)) << length;
    }
    peer.closeInput();
    EXPECT_EQ(peer.awaitEnd(), 0);
    EXPECT_EQ(peer.errorLines(), std::vector<std::string>{});
    EXPECT_EQ(output.err(), "");
}
