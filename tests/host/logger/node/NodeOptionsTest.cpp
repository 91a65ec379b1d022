#include <logger/VirtualLogger.h>
#include <logger/node/CyclicNode.h>
#include <logger/node/FrameNode.h>
#include <logger/node/IsoTpNode.h>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>

// Options that a program fills in by itself: nothing has checked them before.

namespace {

using namespace std::chrono_literals;
using vlogger::Answer;
using vlogger::Bytes;

std::string refusalOf(const std::function<void()>& construction)
{
    try {
        construction();
    } catch (const std::invalid_argument& refusal) {
        return refusal.what();
    }
    return "accepted";
}

std::string refusalOf(const vlogger::IsoTpNodeOptions& options)
{
    return refusalOf([&] { const vlogger::IsoTpNode node(options); });
}

std::string refusalOf(const vlogger::FrameNodeOptions& options)
{
    return refusalOf([&] { const vlogger::FrameNode node(options); });
}

std::string refusalOf(const wire::CanRecord& frame, vlogger::Clock::Duration period)
{
    return refusalOf([&] { const vlogger::CyclicNode node(frame, period); });
}

Answer respondingWith(size_t bytes)
{
    return {.request = {0x22}, .mask = {}, .response = Bytes(bytes)};
}

} // namespace

TEST(NodeOptionsTest, LongestIsoTpResponseIsAccepted)
{
    EXPECT_EQ(refusalOf(vlogger::IsoTpNodeOptions{.answers = {respondingWith(4095)}}), "accepted");
}

TEST(NodeOptionsTest, IsoTpResponseAbove4095BytesIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::IsoTpNodeOptions{.answers = {respondingWith(1), respondingWith(4096)}}),
              "answer 1: a response has 1 to 4095 bytes, not 4096");
}

TEST(NodeOptionsTest, EmptyResponseIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::IsoTpNodeOptions{.answers = {respondingWith(0)}}),
              "answer 0: a response has 1 to 4095 bytes, not 0");
}

TEST(NodeOptionsTest, NegativeDelayIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::IsoTpNodeOptions{.delay = -1ms}), "delay has 0 to 4294967295 ms, not -1");
}

TEST(NodeOptionsTest, WaitIntervalThatNoClockCanCountIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::IsoTpNodeOptions{.waitInterval = std::chrono::milliseconds::max()}),
              "waitInterval has 0 to 4294967295 ms, not 9223372036854775807");
}

TEST(NodeOptionsTest, FullFrameAsResponseIsAccepted)
{
    EXPECT_EQ(refusalOf(vlogger::FrameNodeOptions{.answers = {respondingWith(8)}}), "accepted");
}

TEST(NodeOptionsTest, ResponseAboveOneFrameIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::FrameNodeOptions{.answers = {respondingWith(65)}}),
              "answer 0: a response has 1 to 8 bytes, not 65");
}

TEST(NodeOptionsTest, NegativeDelayOfAFrameNodeIsRefused)
{
    EXPECT_EQ(refusalOf(vlogger::FrameNodeOptions{.delay = -5ms}), "delay has 0 to 4294967295 ms, not -5");
}

TEST(NodeOptionsTest, PeriodOfZeroIsRefused)
{
    EXPECT_EQ(refusalOf({.lengthBytes = 8}, 0ns), "a cyclic frame needs a period above 0");
}

TEST(NodeOptionsTest, CyclicFrameAbove64BytesIsRefused)
{
    EXPECT_EQ(refusalOf({.lengthBytes = 64}, 1ms), "accepted");
    EXPECT_EQ(refusalOf({.lengthBytes = 65}, 1ms), "a frame has at most 64 bytes, not 65");
}

TEST(NodeOptionsTest, FrameAbove64BytesIsNotSent)
{
    vlogger::VirtualLogger logger(vlogger::Options{});
    EXPECT_EQ(refusalOf([&] { logger.sendFromNode({.lengthBytes = 65}); }), "a frame has at most 64 bytes, not 65");
}

TEST(NodeOptionsTest, NullPointerIsNoNode)
{
    vlogger::Options options;
    options.nodes = {nullptr};
    EXPECT_EQ(refusalOf([&] { const vlogger::VirtualLogger logger(options); }),
              "a node of the options is a null pointer");
}
