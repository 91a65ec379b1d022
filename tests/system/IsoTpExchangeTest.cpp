#include "IsoTpSystemTest.h"

#include <CanTP_ISO_Interface.h>

#include <tuple>

namespace {

using namespace std::chrono_literals;

/// Message length, extended addressing, minimal DLC.
using Case = std::tuple<size_t, bool, bool>;

class IsoTpExchangeTest : public IsoTpSystemTest, public testing::WithParamInterface<Case>
{
};

std::string nameOf(const testing::TestParamInfo<Case>& info)
{
    const auto [length, extended, minimal] = info.param;
    return std::to_string(length) + "Bytes" + (extended ? "Extended" : "Normal") + (minimal ? "Minimal" : "Padded");
}

} // namespace

TEST_P(IsoTpExchangeTest, MessageComesBackFromTheNode)
{
    const auto [length, extended, minimal] = GetParam();
    constexpr uint8_t NODE_ADDRESS = 0x10;
    constexpr uint8_t TESTER_ADDRESS = 0xF1;
    vlogger::IsoTpNodeOptions node = echo();
    node.format = {.extendedAddressing = extended,
                   .ownAddress = NODE_ADDRESS,
                   .peerAddress = TESTER_ADDRESS,
                   .minimalDlc = minimal};
    startWith(node);
    CapturedOutput output;
    TestHandler tester(0);
    tester.handler.extAddressLength = extended ? 1 : 0;
    tester.handler.extAddress = NODE_ADDRESS;
    tester.handler.useMinimalDlc = minimal ? 1 : 0;
    tester.start();

    const Bytes message = counting(length);
    ASSERT_TRUE(tester.send(message));

    EXPECT_TRUE(tester.awaitMessage(message));
    tester.stop();
    EXPECT_EQ(tester.callback.events.all(),
              (std::vector{infoEvent("thread started"), messageEvent(message), infoEvent("thread stopped")}));
    EXPECT_EQ(output.err(), "");
}

INSTANTIATE_TEST_SUITE_P(Lengths, IsoTpExchangeTest,
                         testing::Combine(testing::Values(1, 7, 8, 62, 4095), testing::Bool(), testing::Bool()),
                         nameOf);

namespace {

class IsoTpNodeSettingsTest : public IsoTpSystemTest
{
};

/// Passes on what arrives at a CanTP_ISO_Interface.
class RecordingTransportCallback : public BusInterfaceBaseCb<CANTransportTraceMessage>
{
public:
    void onMessage(const CANTransportTraceMessage* msg) override
    {
        messages.add(msg->data);
        if (answersThrough != nullptr) {
            answersThrough->sendDefaultID(msg->data.data(), msg->data.size());
        }
    }

    Recorder<Bytes> messages;
    CanTP_ISO_Interface* answersThrough = nullptr;
};

} // namespace

TEST_F(IsoTpNodeSettingsTest, EveryWaitFrameIsReportedAndTheTransferGoesOn)
{
    vlogger::IsoTpNodeOptions node = echo();
    node.waitFrames = 3;
    node.waitInterval = 5ms;
    startWith(node);
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    ASSERT_TRUE(tester.send(counting(62)));

    EXPECT_TRUE(tester.awaitMessage(counting(62)));
    tester.stop();
    const IsoTpEvent wait = warningEvent("receive FC with state = wait");
    EXPECT_EQ(tester.callback.events.all(), (std::vector{infoEvent("thread started"), wait, wait, wait,
                                                         messageEvent(counting(62)), infoEvent("thread stopped")}));
    EXPECT_EQ(countOf(linesOf(output.err()), "[WARNING] CanIsoTpHandler::checkFlowControl: receive 'wait'"), 3U);
}

TEST_F(IsoTpNodeSettingsTest, WaitingForLongerThanTheTimeoutIsAllowedWhileWaitFramesCome)
{
    vlogger::IsoTpNodeOptions node = echo();
    node.waitFrames = 4;
    node.waitInterval = 400ms; // 1.6 s in all
    startWith(node);
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    ASSERT_TRUE(tester.send(counting(8)));

    EXPECT_TRUE(tester.awaitMessage(counting(8)));
}

TEST_F(IsoTpNodeSettingsTest, SeparationTimeOfTheNodeLiesBetweenTheFrames)
{
    vlogger::IsoTpNodeOptions node = echo();
    node.separationTime = 5ms;
    const auto listener = std::make_shared<ListeningNode>();
    startWith({std::make_shared<vlogger::IsoTpNode>(node), listener});
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    ASSERT_TRUE(tester.send(counting(76))); // ten consecutive frames

    ASSERT_TRUE(tester.awaitMessage(counting(76)));
    std::vector<vlogger::Clock::Instant> consecutive;
    vlogger::Clock::Instant granted{0};
    for (const FrameOnTheBus& frame : listener->frames.all()) {
        if (frame.id == REQUEST_ID && frame.data[0] >> 4 == 2) {
            consecutive.push_back(frame.at);
        } else if (frame.id == ANSWER_ID && frame.data[0] == 0x30) {
            granted = frame.at;
        }
    }
    ASSERT_EQ(consecutive.size(), 10U);
    // From the permission on, since each frame may be late by itself.
    for (int number = 0; number < 10; ++number) {
        EXPECT_GE(consecutive[static_cast<size_t>(number)] - granted, number * 5ms) << number;
    }
}

TEST_F(IsoTpNodeSettingsTest, SlowNodeAnswersAfterItsDelay)
{
    vlogger::IsoTpNodeOptions node = echo();
    node.delay = 1500ms; // idle handlers have no time-out
    startWith(node);
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    ASSERT_TRUE(tester.send(counting(3)));

    EXPECT_TRUE(tester.awaitMessage(counting(3)));
}

TEST_F(IsoTpNodeSettingsTest, DiagnosticTableIsAnswered)
{
    vlogger::IsoTpNodeOptions node;
    node.answers = vlogger::diagnosticAnswers("TESTVEH1C1E000042");
    startWith(node);
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    ASSERT_TRUE(tester.send({0x3E, 0x00}));
    EXPECT_TRUE(tester.awaitMessage({0x7E, 0x00}));
    ASSERT_TRUE(tester.send({0x22, 0xF1, 0x90}));
    EXPECT_TRUE(tester.awaitMessage(
        {0x62, 0xF1, 0x90, 'T', 'E', 'S', 'T', 'V', 'E', 'H', '1', 'C', '1', 'E', '0', '0', '0', '0', '4', '2'},
        2));
}

TEST_F(IsoTpNodeSettingsTest, TwoInterfacesOfOneProcessExchangeTheLongestMessageOnWiredChannels)
{
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    RecordingTransportCallback atTester;
    RecordingTransportCallback atEcu;
    {
        CanTP_ISO_Interface tester(0, {ANSWER_ID}, REQUEST_ID);
        CanTP_ISO_Interface ecu(1, {REQUEST_ID}, ANSWER_ID);
        tester.callbacks.insert(&atTester);
        ecu.callbacks.insert(&atEcu);
        atEcu.answersThrough = &ecu;
        tester.configure();
        ecu.configure();
        const Bytes message = counting(4095);
        ASSERT_EQ(tester.sendDefaultID(message.data(), message.size()), 0);
        ASSERT_TRUE(atTester.messages.waitForCount(1));
        EXPECT_EQ(atTester.messages.all(), std::vector<Bytes>{message});
        EXPECT_EQ(atEcu.messages.all(), std::vector<Bytes>{message});
    }
    EXPECT_EQ(output.err(), "");
}

TEST_F(IsoTpNodeSettingsTest, QueuedRequestsAreAnsweredInTheirOrder)
{
    startWith(echo());
    CapturedOutput output;
    TestHandler tester(0);
    tester.start();

    for (uint8_t number = 0; number < 20; ++number) {
        ASSERT_TRUE(tester.send({number, 1, 2}));
    }

    ASSERT_TRUE(tester.awaitMessages(20));
    for (uint8_t number = 0; number < 20; ++number) {
        EXPECT_EQ(tester.messages()[number], (Bytes{number, 1, 2}));
    }
}
