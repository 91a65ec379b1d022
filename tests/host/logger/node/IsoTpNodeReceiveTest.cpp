#include "IsoTpNodeTest.h"

namespace {

using namespace std::chrono_literals;

class IsoTpNodeReceiveTest : public IsoTpNodeTest
{
protected:
    static vlogger::IsoTpNodeOptions confirming()
    {
        return answering(Data{0x36}, Data{0x76}); // short, so that it stands for "arrived whole"
    }
    const Frames confirmation{{0x01, 0x76, 0, 0, 0, 0, 0, 0}};

    /// The tester begins a request of `count` bytes, 0x36 first.
    void begins(uint8_t count) { tester({0x10, count, 0x36, 2, 3, 4, 5, 6}); }
    void goesOn(uint8_t sequenceNumber)
    {
        tester({static_cast<uint8_t>(0x20 | sequenceNumber), 7, 8, 9, 10, 11, 12, 13});
    }
};

const std::vector<std::vector<uint8_t>> CONTINUE{{0x30, 0, 0, 0, 0, 0, 0, 0}};

} // namespace

TEST_F(IsoTpNodeReceiveTest, SingleFrameIsAnsweredAtOnce)
{
    build(answering({0x3E, 0x00}, {0x7E, 0x00}));
    tester({0x02, 0x3E, 0x00, 0, 0, 0, 0, 0});
    const std::vector<SentFrame> sent = bus->takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].data, (Data{0x02, 0x7E, 0x00, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[0].id, 0x7E8U);
    EXPECT_EQ(sent[0].type, 0);
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, RequestThatNoAnswerFitsIsNotAnswered)
{
    build(answering({0x3E, 0x00}, {0x7E, 0x00}));
    tester({0x02, 0x3E, 0x01, 0, 0, 0, 0, 0});
    tester({0x01, 0x3E, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(bus->takeData(), Frames{});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, FrameWithAnotherIdentifierIsIgnored)
{
    build(echo());
    bus->deliver(loggerclient::frame(1, 0x7E1, {0x01, 0x3E}));
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, FrameOfAnotherTypeIsIgnored)
{
    build(echo());
    for (const uint8_t type : std::array<uint8_t, 3>{1, 2, 3}) {
        bus->deliver(loggerclient::frame(1, 0x7E0, {0x01, 0x3E}, type));
    }
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, TwentyNineBitIdentifiersAreServed)
{
    vlogger::IsoTpNodeOptions options = echo();
    options.requestId = 0x18DA10F1;
    options.responseId = 0x18DAF110;
    options.extended = true;
    build(options);
    tester({0x01, 0x3E});
    const std::vector<SentFrame> sent = bus->takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].id, 0x18DAF110U);
    EXPECT_EQ(sent[0].type, 1);
}

TEST_F(IsoTpNodeReceiveTest, MalformedFramesAreIgnored)
{
    build(echo());
    tester({});
    tester({0x00, 1, 2, 3, 4, 5, 6, 7});
    tester({0x08, 1, 2, 3, 4, 5, 6, 7});
    tester({0x03, 1, 2});
    tester({0x10});
    tester({0x10, 7, 1, 2, 3, 4, 5, 6});
    tester({0x10, 8, 1, 2, 3, 4, 5});
    tester({0x21, 1, 2, 3, 4, 5, 6, 7});
    tester({0x30, 0});
    tester({0x30, 0, 0});
    tester({0x40, 1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(bus->takeData(), Frames{});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, SegmentedRequestIsPutTogether)
{
    build(echo());
    tester({0x10, 15, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(bus->takeData(), CONTINUE);
    tester({0x21, 7, 8, 9, 10, 11, 12, 13});
    tester({0x22, 14, 15, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}); // padding is not part of it
    EXPECT_EQ(bus->takeData(), (Frames{{0x10, 15, 1, 2, 3, 4, 5, 6}}));
    tester({0x30, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(bus->takeData(), (Frames{{0x21, 7, 8, 9, 10, 11, 12, 13}, {0x22, 14, 15, 0, 0, 0, 0, 0}}));
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, LongestRequestRunsThroughTheSequenceNumbers)
{
    build(confirming());
    tester({0x1F, 0xFF, 0x36, 2, 3, 4, 5, 6});
    for (unsigned frame = 1; frame <= 584; ++frame) {
        goesOn(frame & 0x0F);
    }
    EXPECT_EQ(bus->takeData(), CONTINUE);
    goesOn(585 & 0x0F);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, BlockSizeAsksForFlowControlAfterEveryBlock)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.blockSize = 2;
    build(options);
    const Frames goOn{{0x30, 2, 0, 0, 0, 0, 0, 0}};
    begins(40); // 6 and five times 7 are 41
    EXPECT_EQ(bus->takeData(), goOn);
    goesOn(1);
    EXPECT_EQ(bus->takeData(), Frames{});
    goesOn(2);
    EXPECT_EQ(bus->takeData(), goOn);
    goesOn(3);
    EXPECT_EQ(bus->takeData(), Frames{});
    goesOn(4);
    EXPECT_EQ(bus->takeData(), goOn);
    goesOn(5);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, LastFrameThatFillsTheBlockEndsTheRequestWithoutFlowControl)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.blockSize = 1;
    build(options);
    begins(13);
    bus->takeData();
    goesOn(1);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, BlockSizeZeroGrantsMoreFramesThanAByteCounts)
{
    build(confirming());
    tester({0x18, 0x00, 0x36, 2, 3, 4, 5, 6}); // 2048 bytes: 292 consecutive frames
    EXPECT_EQ(bus->takeData(), CONTINUE);
    for (unsigned frame = 1; frame <= 291; ++frame) {
        goesOn(frame & 0x0F);
    }
    EXPECT_EQ(bus->takeData(), Frames{});
    goesOn(292 & 0x0F);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, SeparationTimeIsTold)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.separationTime = 500us;
    build(options);
    begins(13);
    EXPECT_EQ(bus->takeData(), (Frames{{0x30, 0, 0xF5, 0, 0, 0, 0, 0}}));
}

TEST_F(IsoTpNodeReceiveTest, WaitFramesComeAtTheirIntervalBeforeTheSenderMayGoOn)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.waitFrames = 2;
    options.waitInterval = 50ms;
    build(options);
    begins(13);
    bus->advance(200ms);
    const std::vector<SentFrame> sent = bus->takeSent();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0].data, (Data{0x31, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[0].at, 0us);
    EXPECT_EQ(sent[1].data, (Data{0x31, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[1].at, 50ms);
    EXPECT_EQ(sent[2].data, (Data{0x30, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(sent[2].at, 100ms);
    goesOn(1);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, WaitFramesComeBeforeEveryBlock)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.waitFrames = 1;
    options.blockSize = 1;
    build(options);
    begins(20);
    bus->advance(100ms);
    goesOn(1);
    bus->advance(100ms);
    EXPECT_EQ(bus->takeData(), (Frames{{0x31, 1, 0, 0, 0, 0, 0, 0},
                                       {0x30, 1, 0, 0, 0, 0, 0, 0},
                                       {0x31, 1, 0, 0, 0, 0, 0, 0},
                                       {0x30, 1, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(IsoTpNodeReceiveTest, ConsecutiveFrameBeforeFlowControlIsIgnored)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.waitFrames = 1;
    build(options);
    begins(13);
    goesOn(1);
    bus->advance(100ms);
    bus->takeData();
    goesOn(1);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, WrongSequenceNumberEndsTheRequest)
{
    build(confirming());
    begins(20);
    bus->takeData();
    goesOn(2);
    EXPECT_TRUE(bus->isIdle());
    goesOn(1);
    goesOn(2);
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, SenderMayTakeJustUnderASecond)
{
    build(confirming());
    begins(20);
    bus->takeData();
    bus->advance(BEFORE_THE_TIMEOUT);
    goesOn(1);
    bus->advance(BEFORE_THE_TIMEOUT);
    goesOn(2);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, SilentSenderIsForgottenAfterASecond)
{
    build(confirming());
    begins(13);
    bus->takeData();
    bus->advance(THE_TIMEOUT);
    EXPECT_TRUE(bus->isIdle());
    goesOn(1);
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, NewFirstFrameReplacesAnUnfinishedRequest)
{
    build(confirming());
    begins(20);
    goesOn(1);
    begins(13);
    bus->takeData();
    goesOn(1);
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, SingleFrameReplacesAnUnfinishedRequest)
{
    build(confirming());
    begins(13);
    bus->takeData();
    tester({0x01, 0x36});
    EXPECT_EQ(bus->takeData(), confirmation);
    goesOn(1);
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, ExtendedAddressingTakesFramesForItsOwnAddress)
{
    vlogger::IsoTpNodeOptions options = echo();
    options.format = {.extendedAddressing = true, .ownAddress = 0x10, .peerAddress = 0xF1};
    build(options);
    tester({0x10, 0x10, 7, 1, 2, 3, 4, 5});
    EXPECT_EQ(bus->takeData(), (Frames{{0xF1, 0x30, 0, 0, 0, 0, 0, 0}}));
    tester({0x10, 0x21, 6, 7, 0, 0, 0, 0});
    EXPECT_EQ(bus->takeData(), (Frames{{0xF1, 0x10, 7, 1, 2, 3, 4, 5}}));
    tester({0x10, 0x30, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(bus->takeData(), (Frames{{0xF1, 0x21, 6, 7, 0, 0, 0, 0}}));
}

TEST_F(IsoTpNodeReceiveTest, ExtendedAddressingIgnoresFramesForAnotherAddress)
{
    vlogger::IsoTpNodeOptions options = echo();
    options.format = {.extendedAddressing = true, .ownAddress = 0x10, .peerAddress = 0xF1};
    build(options);
    tester({0x11, 0x01, 0x3E});
    tester({0x10});
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, SingleFrameWithExtendedAddressingHasSixBytesAtMost)
{
    vlogger::IsoTpNodeOptions options = echo();
    options.format.extendedAddressing = true;
    build(options);
    tester({0, 0x07, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(bus->takeData(), Frames{});
    tester({0, 0x06, 1, 2, 3, 4, 5, 6});
    EXPECT_EQ(bus->takeData(), (Frames{{0, 0x06, 1, 2, 3, 4, 5, 6}}));
}

TEST_F(IsoTpNodeReceiveTest, MinimalDlcFlowControlHasThreeBytes)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.format.minimalDlc = true;
    build(options);
    begins(8);
    EXPECT_EQ(bus->takeData(), (Frames{{0x30, 0, 0}}));
    tester({0x21, 7, 8});
    EXPECT_EQ(bus->takeData(), (Frames{{0x01, 0x76}}));
}

TEST_F(IsoTpNodeReceiveTest, ConsecutiveFrameThatIsTooShortEndsTheRequest)
{
    build(confirming());
    begins(20);
    tester({0x21, 7, 8});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, FaultNoFlowControlLeavesFirstFramesUnansweredAndServesSingleFrames)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.fault = vlogger::IsoTpFault::NO_FLOW_CONTROL;
    build(options);
    begins(13);
    EXPECT_EQ(bus->takeData(), Frames{});
    tester({0x01, 0x36});
    EXPECT_EQ(bus->takeData(), confirmation);
}

TEST_F(IsoTpNodeReceiveTest, FaultOverflowRefusesFirstFrames)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.fault = vlogger::IsoTpFault::REPORT_OVERFLOW;
    build(options);
    begins(13);
    EXPECT_EQ(bus->takeData(), (Frames{{0x32, 0, 0, 0, 0, 0, 0, 0}}));
    goesOn(1);
    EXPECT_EQ(bus->takeData(), Frames{});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeReceiveTest, FaultSilentSendsNothing)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.fault = vlogger::IsoTpFault::SILENT;
    build(options);
    begins(13);
    goesOn(1);
    tester({0x01, 0x36});
    bus->advance(10s);
    EXPECT_EQ(bus->takeData(), Frames{});
}

TEST_F(IsoTpNodeReceiveTest, FlowControlThatTheBusHoldsBackIsSentOnceWhenItIsFree)
{
    vlogger::IsoTpNodeOptions options = confirming();
    options.waitFrames = 1;
    build(options);
    bus->hold(true);
    begins(13);
    EXPECT_EQ(bus->takeData(), Frames{});
    bus->hold(false);
    EXPECT_EQ(bus->takeData(), (Frames{{0x31, 0, 0, 0, 0, 0, 0, 0}}));
}

TEST_F(IsoTpNodeReceiveTest, RestartedNodeForgetsAnUnfinishedRequest)
{
    build(confirming());
    begins(13);
    bus->takeData();
    NodeDriver again(*node);
    EXPECT_TRUE(again.isIdle());
    goesOn(1);
    EXPECT_EQ(bus->takeData(), Frames{});
}
