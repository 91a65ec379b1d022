#include "IsoTpNodeTest.h"

namespace {

using namespace std::chrono_literals;

class IsoTpNodeSendTest : public IsoTpNodeTest
{
protected:
    /// A node that answers the request 22 with 1, 2, 3, ….
    static vlogger::IsoTpNodeOptions counted(size_t bytes) { return answering({0x22}, counting(bytes)); }

    void asks() { tester({0x01, 0x22}); }
    void continues(uint8_t blockSize = 0, uint8_t separationTime = 0)
    {
        tester({0x30, blockSize, separationTime, 0, 0, 0, 0, 0});
    }

    /// The tester's view of an answer.
    const Data first{0x10, 27, 1, 2, 3, 4, 5, 6}; ///< of 27 bytes: three consecutive frames
    const Data one{0x21, 7, 8, 9, 10, 11, 12, 13};
    const Data two{0x22, 14, 15, 16, 17, 18, 19, 20};
    const Data three{0x23, 21, 22, 23, 24, 25, 26, 27};
};

} // namespace

TEST_F(IsoTpNodeSendTest, SevenBytesGoInOneFrame)
{
    build(counted(7));
    asks();
    EXPECT_EQ(bus->takeData(), (Frames{{0x07, 1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, EightBytesGoInTwoFrames)
{
    build(counted(8));
    asks();
    EXPECT_EQ(bus->takeData(), (Frames{{0x10, 8, 1, 2, 3, 4, 5, 6}}));
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{{0x21, 7, 8, 0, 0, 0, 0, 0}}));
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, LongestAnswerHas585ConsecutiveFrames)
{
    build(counted(4095));
    asks();
    EXPECT_EQ(bus->takeData(), (Frames{{0x1F, 0xFF, 1, 2, 3, 4, 5, 6}}));
    continues();
    const Frames frames = bus->takeData();
    ASSERT_EQ(frames.size(), 585U);
    for (size_t i = 0; i < frames.size(); ++i) {
        ASSERT_EQ(frames[i].front(), 0x20 | ((i + 1) & 0x0F));
    }
    EXPECT_EQ(frames.back(), (Data{0x29, 0xFF, 0, 0, 0, 0, 0, 0}));
}

TEST_F(IsoTpNodeSendTest, DelayPassesBeforeTheAnswer)
{
    vlogger::IsoTpNodeOptions options = counted(3);
    options.delay = 20ms;
    build(options);
    asks();
    bus->advance(19ms);
    EXPECT_EQ(bus->takeData(), Frames{});
    bus->advance(1ms);
    EXPECT_EQ(bus->takeData(), (Frames{{0x03, 1, 2, 3, 0, 0, 0, 0}}));
}

TEST_F(IsoTpNodeSendTest, PeersBlockSizeIsHonoured)
{
    build(counted(27));
    asks();
    continues(2);
    EXPECT_EQ(bus->takeData(), (Frames{first, one, two}));
    bus->advance(500ms);
    EXPECT_EQ(bus->takeData(), Frames{});
    continues(2);
    EXPECT_EQ(bus->takeData(), Frames{three});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, PeersBlockSizeMayChangeFromBlockToBlock)
{
    build(counted(27));
    asks();
    continues(1);
    EXPECT_EQ(bus->takeData(), (Frames{first, one}));
    continues(0);
    EXPECT_EQ(bus->takeData(), (Frames{two, three}));
}

TEST_F(IsoTpNodeSendTest, PeersSeparationTimeLiesBetweenTheFrames)
{
    build(counted(27));
    asks();
    continues(0, 0x05);
    bus->advance(1s);
    const std::vector<SentFrame> sent = bus->takeSent();
    ASSERT_EQ(sent.size(), 4U);
    EXPECT_EQ(sent[1].at, 0us);
    EXPECT_EQ(sent[2].at, 5ms);
    EXPECT_EQ(sent[3].at, 10ms);
}

TEST_F(IsoTpNodeSendTest, SeparationTimeCountsFromTheFrameThatTheBusHasTaken)
{
    build(counted(27));
    asks();
    bus->hold(true);
    continues(0, 0x05);
    bus->advance(7ms);
    bus->hold(false);
    bus->advance(1s);
    const std::vector<SentFrame> sent = bus->takeSent();
    ASSERT_EQ(sent.size(), 4U);
    EXPECT_EQ(sent[1].at, 7ms);
    EXPECT_EQ(sent[2].at, 12ms);
    EXPECT_EQ(sent[3].at, 17ms);
}

TEST_F(IsoTpNodeSendTest, WaitPutsOffTheAnswerAndItsTimeout)
{
    build(counted(27));
    asks();
    for (int i = 0; i < 3; ++i) {
        bus->advance(BEFORE_THE_TIMEOUT);
        tester({0x31, 0, 0, 0, 0, 0, 0, 0});
    }
    bus->advance(BEFORE_THE_TIMEOUT);
    EXPECT_EQ(bus->takeData(), Frames{first});
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{one, two, three}));
}

TEST_F(IsoTpNodeSendTest, SilentPeerIsGivenUpAfterASecond)
{
    build(counted(27));
    asks();
    bus->advance(THE_TIMEOUT);
    EXPECT_TRUE(bus->isIdle());
    continues();
    EXPECT_EQ(bus->takeData(), Frames{first});
}

TEST_F(IsoTpNodeSendTest, OverflowOfThePeerGivesUpTheAnswer)
{
    build(counted(27));
    asks();
    tester({0x32, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, UnknownFlowStatusGivesUpTheAnswer)
{
    build(counted(27));
    asks();
    tester({0x33, 0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, UnexpectedFlowControlIsIgnored)
{
    build(counted(27));
    continues();
    EXPECT_EQ(bus->takeData(), Frames{});
    asks();
    continues(0, 0x05);
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{first, one}));
}

TEST_F(IsoTpNodeSendTest, RequestDuringAnAnswerIsAnsweredAfterIt)
{
    build(counted(27));
    asks();
    asks();
    EXPECT_EQ(bus->takeData(), Frames{first});
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{one, two, three, first}));
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{one, two, three}));
}

TEST_F(IsoTpNodeSendTest, AnswersBeyondSixtyFourAreNotGiven)
{
    build(counted(27));
    for (int i = 0; i < 70; ++i) {
        asks();
    }
    size_t given = 0;
    while (!bus->isIdle()) {
        continues();
        ++given;
    }
    EXPECT_EQ(given, 64U);
}

TEST_F(IsoTpNodeSendTest, AnswerWithExtendedAddressingHoldsOneByteLessPerFrame)
{
    vlogger::IsoTpNodeOptions options = answering({0x22}, counting(14));
    options.format = {.extendedAddressing = true, .ownAddress = 0x10, .peerAddress = 0xF1};
    build(options);
    tester({0x10, 0x01, 0x22});
    tester({0x10, 0x30, 0, 0, 0, 0, 0, 0});
    EXPECT_EQ(bus->takeData(), (Frames{{0xF1, 0x10, 14, 1, 2, 3, 4, 5},
                                       {0xF1, 0x21, 6, 7, 8, 9, 10, 11},
                                       {0xF1, 0x22, 12, 13, 14, 0, 0, 0}}));
}

TEST_F(IsoTpNodeSendTest, ExtendedAddressingLimitsSingleFramesToSixBytes)
{
    vlogger::IsoTpNodeOptions options = answering({0x22}, counting(6));
    options.format.extendedAddressing = true;
    build(options);
    tester({0, 0x01, 0x22});
    EXPECT_EQ(bus->takeData(), (Frames{{0, 0x06, 1, 2, 3, 4, 5, 6}}));
}

TEST_F(IsoTpNodeSendTest, MinimalDlcCutsTheLastFrame)
{
    vlogger::IsoTpNodeOptions options = counted(9);
    options.format.minimalDlc = true;
    build(options);
    asks();
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{{0x10, 9, 1, 2, 3, 4, 5, 6}, {0x21, 7, 8, 9}}));
}

TEST_F(IsoTpNodeSendTest, MinimalDlcWithExtendedAddressingCutsASingleFrame)
{
    vlogger::IsoTpNodeOptions options = answering({0x22}, {1, 2});
    options.format = {.extendedAddressing = true, .ownAddress = 0x10, .peerAddress = 0xF1, .minimalDlc = true};
    build(options);
    tester({0x10, 0x01, 0x22});
    EXPECT_EQ(bus->takeData(), (Frames{{0xF1, 0x02, 1, 2}}));
}

TEST_F(IsoTpNodeSendTest, FaultDropLeavesOutTheNamedFrame)
{
    vlogger::IsoTpNodeOptions options = counted(27);
    options.fault = vlogger::IsoTpFault::DROP_CONSECUTIVE;
    options.faultFrame = 2;
    build(options);
    asks();
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{first, one, three}));
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, FaultDropOfTheLastFrameEndsTheAnswer)
{
    vlogger::IsoTpNodeOptions options = counted(27);
    options.fault = vlogger::IsoTpFault::DROP_CONSECUTIVE;
    options.faultFrame = 3;
    build(options);
    asks();
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{first, one, two}));
    EXPECT_TRUE(bus->isIdle());
}

TEST_F(IsoTpNodeSendTest, FaultWrongSequenceNumberIsOfOneFrameInEveryAnswer)
{
    vlogger::IsoTpNodeOptions options = counted(27);
    options.fault = vlogger::IsoTpFault::WRONG_SEQUENCE;
    options.faultFrame = 2;
    build(options);
    for (int answer = 0; answer < 2; ++answer) {
        asks();
        continues();
        EXPECT_EQ(bus->takeData(), (Frames{first, one, {0x23, 14, 15, 16, 17, 18, 19, 20}, three}));
    }
}

TEST_F(IsoTpNodeSendTest, FrameThatTheBusHoldsBackIsSentOnceWhenItIsFree)
{
    build(counted(27));
    asks();
    bus->hold(true);
    continues();
    bus->hold(false);
    EXPECT_EQ(bus->takeData(), (Frames{first, one, two, three}));
}

TEST_F(IsoTpNodeSendTest, FirstFrameThatTheBusHoldsBackStartsItsTimeoutWhenItIsSent)
{
    build(counted(27));
    bus->hold(true);
    asks();
    bus->advance(5s);
    bus->hold(false);
    bus->advance(BEFORE_THE_TIMEOUT);
    continues();
    EXPECT_EQ(bus->takeData(), (Frames{first, one, two, three}));
}
