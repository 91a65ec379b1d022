#include "IsoTpSystemTest.h"

namespace {

constexpr unsigned FIRST_BYTES = 6;
constexpr unsigned CONSECUTIVE_BYTES = 7;

/// The number of a consecutive frame, from 1, by its payload: the message is 1, 2, 3, ....
unsigned numberOf(uint8_t firstPayloadByte)
{
    return (firstPayloadByte - FIRST_BYTES - 1U) / CONSECUTIVE_BYTES + 1;
}

/// A peer that grants block after block, whatever it gets: shows which frames a sender leaves out.
class GrantingNode : public ListeningNode
{
public:
    GrantingNode(uint8_t size, unsigned consecutiveFrames) : blockSize(size), lastFrame(consecutiveFrames) {}

    void receive(const wire::CanRecord& frame, vlogger::Clock::Instant now) override
    {
        ListeningNode::receive(frame, now);
        const bool isConsecutive = frame.payload[0] >> 4 == 2;
        framesInBlock = isConsecutive ? framesInBlock + 1 : 0;
        const bool isLast = isConsecutive && numberOf(frame.payload[1]) == lastFrame;
        if (!isConsecutive || (framesInBlock == blockSize && !isLast)) {
            framesInBlock = 0;
            grantDue = now;
        }
    }
    std::optional<vlogger::Clock::Instant> due() const override { return grantDue; }
    void proceed(vlogger::Clock::Instant, const Transmit& transmit) override
    {
        wire::CanRecord grant{.id = ANSWER_ID, .lengthBytes = 8};
        grant.payload[0] = 0x30;
        grant.payload[1] = blockSize;
        if (transmit(grant)) {
            grantDue.reset();
        }
    }

private:
    const uint8_t blockSize;
    const unsigned lastFrame;
    unsigned framesInBlock = 0;
    std::optional<vlogger::Clock::Instant> grantDue;
};

/// A block size other than 0 costs the first frame of every block but the first: what the sender does is fixed.
class IsoTpBlockSizeTest : public IsoTpSystemTest
{
protected:
    /// Sends a message of so many consecutive frames to a peer that grants every block.
    /// @return the numbers of the consecutive frames that were on the bus, by their payload, from 1
    std::vector<unsigned> framesSent(uint8_t blockSize, unsigned consecutiveFrames)
    {
        const auto peer = std::make_shared<GrantingNode>(blockSize, consecutiveFrames);
        startWith({peer});
        CapturedOutput output;
        tester.emplace(0);
        tester->start();
        EXPECT_TRUE(tester->send(counting(FIRST_BYTES + CONSECUTIVE_BYTES * consecutiveFrames)));
        tester->stop(); // once the message is sent, or dropped
        // A frame that was written before the last answer of the logger has been heard.
        static_cast<void>(logger->statistics());
        static_cast<void>(logger->statistics());
        std::vector<unsigned> numbers;
        for (const FrameOnTheBus& frame : peer->frames.all()) {
            if (frame.data[0] >> 4 == 2) {
                const unsigned number = numberOf(frame.data[1]);
                EXPECT_EQ(frame.data[0], 0x20 | (number & 0x0F)) << "the frames keep their numbers";
                numbers.push_back(number);
            }
        }
        standardOutput = linesOf(output.out());
        return numbers;
    }

    void expectComplete() const
    {
        EXPECT_EQ(tester->callback.events.all(),
                  (std::vector{infoEvent("thread started"), infoEvent("thread stopped")}));
    }
    void expectEndOfVector() const
    {
        EXPECT_EQ(tester->callback.events.all(),
                  (std::vector{infoEvent("thread started"),
                               errorEvent(12, "this error should never happen, probably caused by a bug"),
                               infoEvent("thread stopped")}));
        EXPECT_EQ(countOf(standardOutput,
                          "[ERROR] CanIsoTpHandler::processSendQueue: reached end of vector (2) - be confused :-/"),
                  1U);
    }

    std::optional<TestHandler> tester;
    std::vector<std::string> standardOutput;
};

using Numbers = std::vector<unsigned>;

} // namespace

TEST_F(IsoTpBlockSizeTest, BlockSizeZeroLeavesNothingOut)
{
    EXPECT_EQ(framesSent(0, 9), (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    expectComplete();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeOneLeavesOutEverySecondFrame)
{
    EXPECT_EQ(framesSent(1, 7), (Numbers{1, 3, 5, 7}));
    expectComplete();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeOneEndsWithAnErrorWhenTheLastFrameIsLeftOut)
{
    EXPECT_EQ(framesSent(1, 8), (Numbers{1, 3, 5, 7}));
    expectEndOfVector();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeTwoLeavesOutEveryThirdFrame)
{
    EXPECT_EQ(framesSent(2, 8), (Numbers{1, 2, 4, 5, 7, 8}));
    expectComplete();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeTwoEndsWithAnErrorWhenTheLastFrameIsLeftOut)
{
    EXPECT_EQ(framesSent(2, 9), (Numbers{1, 2, 4, 5, 7, 8}));
    expectEndOfVector();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeEightLeavesOutEveryNinthFrame)
{
    EXPECT_EQ(framesSent(8, 20), (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 10, 11, 12, 13, 14, 15, 16, 17, 19, 20}));
    expectComplete();
}

TEST_F(IsoTpBlockSizeTest, BlockSizeEightEndsWithAnErrorWhenTheLastFrameIsLeftOut)
{
    EXPECT_EQ(framesSent(8, 9), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
    expectEndOfVector();
}

TEST_F(IsoTpBlockSizeTest, MessageThatFillsItsOnlyBlockIsWhole)
{
    EXPECT_EQ(framesSent(8, 8), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
    expectComplete();
}

TEST_F(IsoTpBlockSizeTest, StrictPeerFallsSilentAndTheSenderTimesOut)
{
    vlogger::IsoTpNodeOptions node = echo();
    node.blockSize = 2;
    startWith(node);
    CapturedOutput output;
    TestHandler handler(0);
    handler.start();

    ASSERT_TRUE(handler.send(counting(62)));

    EXPECT_TRUE(handler.awaitError(2, "RX timeout error"));
    EXPECT_EQ(handler.messages().size(), 0U);
}
