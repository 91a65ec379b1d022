#include "../LoggerTest.h"

#include <logger/node/CyclicNode.h>
#include <logger/node/FrameNode.h>
#include <logger/node/IsoTpNode.h>

#include <array>

namespace {

using namespace std::chrono_literals;
using loggerclient::frame;
using vlogger::FrameNode;
using vlogger::FrameNodeOptions;

/// Nodes on a virtual logger in simulated time.
class NodeMemberTest : public LoggerTest
{
protected:
    /// Answers every frame of `requestId` with itself, as `responseId`.
    static std::shared_ptr<vlogger::Node> echo(uint8_t channel, uint32_t requestId, uint32_t responseId)
    {
        return std::make_shared<FrameNode>(
            FrameNodeOptions{.channel = channel,
                             .requestId = requestId,
                             .responseId = responseId,
                             .answers = {{.request = {}, .mask = {}, .response = {}, .echo = true}}});
    }

    static vlogger::Options withNodes(std::vector<std::shared_ptr<vlogger::Node>> nodes)
    {
        vlogger::Options options;
        options.nodes = std::move(nodes);
        return options;
    }
};

} // namespace

TEST_F(NodeMemberTest, FrameReachesTheChannelsBeforeItsAnswer)
{
    start(withNodes({echo(1, 0x100, 0x101)}));
    auto stream = reader();
    writer().write(frame(0, 0x100, {7}));
    const wire::CanRecord request = stream.next().value();
    EXPECT_EQ(request.channel, 1);
    EXPECT_EQ(request.id, 0x100U);
    // The answer reaches both channels of the bus.
    for (const uint8_t channel : std::array<uint8_t, 2>{0, 1}) {
        const wire::CanRecord answer = stream.next().value();
        EXPECT_EQ(answer.channel, channel);
        EXPECT_EQ(answer.id, 0x101U);
        EXPECT_EQ(answer.frameKind, 0);
        EXPECT_EQ(answer.payload[0], 7);
    }
}

TEST_F(NodeMemberTest, NodeHearsItsOwnBusOnly)
{
    start(withNodes({echo(1, 0x100, 0x101)}));
    auto stream = reader();
    writer().write(frame(2, 0x100, {7}));
    writer().write(frame(0, 0x200, {8}));
    EXPECT_EQ(stream.next().value().id, 0x100U);
    EXPECT_EQ(stream.next().value().id, 0x200U);
    sut->statistics();
    sut->statistics();
    EXPECT_TRUE(stream.isQuiet());
}

TEST_F(NodeMemberTest, NodesHearEachOtherAndNotThemselves)
{
    // Each would answer its own answer if it heard it.
    start(withNodes({echo(0, 0x100, 0x101), echo(1, 0x101, 0x102)}));
    auto stream = reader();
    writer().write(frame(0, 0x100, {7}));
    EXPECT_EQ(stream.next().value().id, 0x100U);
    EXPECT_EQ(stream.next().value().id, 0x101U);
    EXPECT_EQ(stream.next().value().id, 0x101U);
    EXPECT_EQ(stream.next().value().id, 0x102U);
    EXPECT_EQ(stream.next().value().id, 0x102U);
    EXPECT_EQ(sut->statistics().framesIn, 3U);
}

TEST_F(NodeMemberTest, NodeHearsFramesOfThreadsAndTools)
{
    start(withNodes({echo(1, 0x100, 0x101)}));
    auto stream = reader();
    sut->sendFromNode(frame(1, 0x100, {7}));
    EXPECT_EQ(stream.next().value().id, 0x100U);
    EXPECT_EQ(stream.next().value().id, 0x100U);
    EXPECT_EQ(stream.next().value().id, 0x101U);
}

TEST_F(NodeMemberTest, CyclicFramesFollowTheLoggersClock)
{
    start(withNodes({std::make_shared<vlogger::CyclicNode>(frame(1, 0x123, {1}), 20ms)}));
    auto stream = reader();
    for (uint64_t number = 1; number <= 3; ++number) {
        clock->advance(20ms);
        EXPECT_EQ(stream.next().value().timestampUs, number * 20'000);
        EXPECT_EQ(stream.next().value().timestampUs, number * 20'000);
    }
}

TEST_F(NodeMemberTest, FullReaderHoldsTheNodeBackUntilItReads)
{
    vlogger::Options options = withNodes({std::make_shared<vlogger::CyclicNode>(frame(1, 0x123, {1}), 1ms)});
    options.streamQueueBytes = 4096;
    start(options);
    auto stream = reader();
    auto from = writer();
    writeUntilHeld(from);
    const uint64_t before = sut->statistics().framesIn;
    clock->advance(1ms);
    sut->statistics();
    EXPECT_EQ(sut->statistics().framesIn, before);
    ASSERT_EQ(sut->readerStatistics().size(), 1U);
    EXPECT_EQ(sut->readerStatistics()[0].sendersWaiting, 2U); // the writer and the node

    while (stream.next().value().id != 0x123) {
    }
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(NodeMemberTest, LoggerThatEndsWhileANodeIsHeldBackEnds)
{
    vlogger::Options options = withNodes({std::make_shared<vlogger::CyclicNode>(frame(1, 0x123, {1}), 1ms)});
    options.streamQueueBytes = 4096;
    start(options);
    auto stream = reader();
    auto from = writer();
    writeUntilHeld(from);
    clock->advance(1ms);
    EXPECT_TRUE(waitUntil([&] { return sut->readerStatistics()[0].sendersWaiting == 2; }));
    sut.reset();
}

TEST_F(NodeMemberTest, LongAnswerLetsOthersTheirTurn)
{
    vlogger::IsoTpNodeOptions diagnostics;
    diagnostics.answers = {{.request = {0x22}, .mask = {}, .response = vlogger::Bytes(4095, 0x62)}};
    start(withNodes({std::make_shared<vlogger::IsoTpNode>(diagnostics)}));
    auto from = writer();
    from.write(frame(0, 0x7E0, {0x01, 0x22}));
    ASSERT_TRUE(waitForFramesIn(2));
    from.write(frame(0, 0x7E0, {0x30, 0, 0}));
    EXPECT_TRUE(waitForFramesIn(3 + 585));
    EXPECT_EQ(sut->statistics().framesIn, 3U + 585U);
}

TEST_F(NodeMemberTest, NodeBeginsAnewWithTheNextLogger)
{
    const auto node = std::make_shared<FrameNode>(
        FrameNodeOptions{.delay = 10ms, .answers = {{.request = {}, .mask = {}, .response = {1}}}});
    start(withNodes({node}));
    writer().write(frame(0, 0x7E0, {7}));
    ASSERT_TRUE(waitForFramesIn(1));
    start(withNodes({node})); // the old logger is gone once the new one is there
    clock->advance(20ms);
    EXPECT_EQ(sut->statistics().framesIn, 0U);
}
