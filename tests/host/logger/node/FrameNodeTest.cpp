#include "NodeDriver.h"

#include <logger/node/CyclicNode.h>
#include <logger/node/FrameNode.h>

namespace {

using namespace std::chrono_literals;
using loggerclient::frame;
using Data = std::vector<uint8_t>;
using Frames = std::vector<Data>;

vlogger::FrameNodeOptions pingPong()
{
    return {.answers = {{.request = {0x10}, .mask = {0xF0}, .response = {0xA0, 0xA1}}}};
}

} // namespace

TEST(FrameNodeTest, FittingFrameIsAnswered)
{
    vlogger::FrameNode sut(pingPong());
    NodeDriver bus(sut);
    bus.deliver(frame(1, 0x7E0, {0x15}));
    const std::vector<SentFrame> sent = bus.takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].id, 0x7E8U);
    EXPECT_EQ(sent[0].type, 0);
    EXPECT_EQ(sent[0].data, (Data{0xA0, 0xA1}));
}

TEST(FrameNodeTest, OtherFramesAreNotAnswered)
{
    vlogger::FrameNode sut(pingPong());
    NodeDriver bus(sut);
    bus.deliver(frame(1, 0x7E0, {0x25}));
    bus.deliver(frame(1, 0x7E0, {}));
    bus.deliver(frame(1, 0x7E1, {0x15}));
    bus.deliver(frame(1, 0x7E0, {0x15}, 1));
    bus.deliver(frame(1, 0x7E0, {0x15}, 2));
    EXPECT_EQ(bus.takeData(), Frames{});
}

TEST(FrameNodeTest, TwentyNineBitIdentifiersAreServed)
{
    vlogger::FrameNodeOptions options = pingPong();
    options.extended = true;
    vlogger::FrameNode sut(options);
    NodeDriver bus(sut);
    bus.deliver(frame(1, 0x7E0, {0x15}, 1));
    const std::vector<SentFrame> sent = bus.takeSent();
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].type, 1);
}

TEST(FrameNodeTest, DelayPassesBeforeEachAnswer)
{
    vlogger::FrameNodeOptions options = pingPong();
    options.delay = 10ms;
    vlogger::FrameNode sut(options);
    NodeDriver bus(sut);
    bus.deliver(frame(1, 0x7E0, {0x15}));
    bus.advance(4ms);
    bus.deliver(frame(1, 0x7E0, {0x15}));
    bus.advance(1s);
    const std::vector<SentFrame> sent = bus.takeSent();
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].at, 10ms);
    EXPECT_EQ(sent[1].at, 14ms);
}

TEST(FrameNodeTest, AnswersBeyondSixtyFourAreNotGiven)
{
    vlogger::FrameNodeOptions options = pingPong();
    options.delay = 10ms;
    vlogger::FrameNode sut(options);
    NodeDriver bus(sut);
    for (int i = 0; i < 70; ++i) {
        bus.deliver(frame(1, 0x7E0, {0x15}));
    }
    bus.advance(1s);
    EXPECT_EQ(bus.takeSent().size(), 64U);
}

TEST(FrameNodeTest, RestartForgetsWhatWaits)
{
    vlogger::FrameNodeOptions options = pingPong();
    options.delay = 10ms;
    vlogger::FrameNode sut(options);
    NodeDriver bus(sut);
    bus.deliver(frame(1, 0x7E0, {0x15}));
    EXPECT_TRUE(NodeDriver(sut).isIdle());
}

TEST(CyclicNodeTest, FramesComeAtTheirPeriodFromOnePeriodAfterTheStart)
{
    vlogger::CyclicNode sut(frame(1, 0x123, {1, 2}), 20ms);
    NodeDriver bus(sut);
    bus.advance(60ms);
    const std::vector<SentFrame> sent = bus.takeSent();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0].at, 20ms);
    EXPECT_EQ(sent[1].at, 40ms);
    EXPECT_EQ(sent[2].at, 60ms);
    EXPECT_EQ(sent[0].id, 0x123U);
    EXPECT_EQ(sent[0].data, (Data{1, 2}));
}

TEST(CyclicNodeTest, FramesThatABusyBusHasDelayedAreNotMadeUpFor)
{
    vlogger::CyclicNode sut(frame(1, 0x123, {1}), 20ms);
    NodeDriver bus(sut);
    bus.hold(true);
    bus.advance(100ms);
    bus.hold(false);
    bus.advance(20ms);
    const std::vector<SentFrame> sent = bus.takeSent();
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent[0].at, 100ms); // the one that was held
    EXPECT_EQ(sent[1].at, 100ms); // the one that is due
    EXPECT_EQ(sent[2].at, 120ms);
}
