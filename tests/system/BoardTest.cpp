#include "RawReader.h"
#include "SystemTest.h"

#include <support/CapturedOutput.h>

#include <cerrno>

namespace {

struct BoardCase
{
    const char* name;
    wire::Board board;
    const char* devicePath;
};

std::ostream& operator<<(std::ostream& stream, const BoardCase& board)
{
    return stream << board.name;
}

class EveryBoardTest : public SystemTest, public testing::WithParamInterface<BoardCase>
{
};

TEST_P(EveryBoardTest, CarriesFramesOfEveryKindOverItsDevice)
{
    startLogger(GetParam().board);
    TestInterface sender({4, 0x100, CAN_STANDARD, {}});
    TestInterface fdSender({4, 0x1ABCDE00, CAN_FD_EXTENDED, {}});
    TestInterface receiver({5, 0x100, CAN_STANDARD, {{0x1ABCDE00, CAN_FD_EXTENDED}}});
    CapturedOutput output;
    goOnline({&sender, &fdSender, &receiver});

    ASSERT_EQ(sender.send({1, 2, 3}), 0);
    ASSERT_EQ(fdSender.send(std::vector<uint8_t>(64, 0xA5)), 0);

    const auto classic = receiver.callback.nextFrame();
    ASSERT_TRUE(classic);
    EXPECT_EQ(classic->channel, 5);
    EXPECT_EQ(classic->id, 0x100U);
    EXPECT_FALSE(classic->isExtended);
    EXPECT_EQ(classic->payload, (std::vector<uint8_t>{1, 2, 3}));
    const auto flexible = receiver.callback.nextFrame();
    ASSERT_TRUE(flexible);
    EXPECT_EQ(flexible->id, 0x1ABCDE00U);
    EXPECT_TRUE(flexible->isExtended);
    EXPECT_EQ(flexible->type, 3);
    EXPECT_EQ(flexible->payload, std::vector<uint8_t>(64, 0xA5));
    goOffline({&sender, &fdSender, &receiver});
    const std::vector<std::string> lines = linesOf(output.out());
    EXPECT_EQ(
        countOf(lines, std::string("[INFO] MsgRxHandler::openDevices() Open device=") + GetParam().devicePath), 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Boards, EveryBoardTest,
    testing::Values(BoardCase{"Plain", vlogger::board::PLAIN, "/dev/vqlog-fpgab"},
                    BoardCase{"WithExtension", vlogger::board::WITH_EXTENSION, "/dev/vqlog-fpgab"},
                    BoardCase{"Type16", vlogger::board::COMBINED_16, "/dev/vqlog-fpgam"},
                    BoardCase{"Type16Fd", vlogger::board::COMBINED_16_FD, "/dev/vqlog-fpgame"},
                    BoardCase{"Type112", vlogger::board::COMBINED_112, "/dev/vqlog-fpgam"},
                    BoardCase{"Type112Fd", vlogger::board::COMBINED_112_FD, "/dev/vqlog-fpgame"}),
    [](const auto& board) { return std::string(board.param.name); });

class CombinedBoardTest : public SystemTest, public testing::WithParamInterface<BoardCase>
{
};

TEST_P(CombinedBoardTest, ReceivesHighChannelsFromTheOneDevice)
{
    startLogger(GetParam().board);
    TestInterface sender({20, 0x100, CAN_STANDARD, {}});
    TestInterface receiver({21, 0x100, CAN_STANDARD, {}});
    CapturedOutput output;
    goOnline({&sender, &receiver});

    ASSERT_EQ(sender.send({7}), 0);

    const auto frame = receiver.callback.nextFrame();
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->channel, 21);
    goOffline({&sender, &receiver});
    const std::string line = std::string("[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, name=") +
                             GetParam().devicePath + ", active=true";
    EXPECT_EQ(countOf(linesOf(output.out()), line), 4U);
}

INSTANTIATE_TEST_SUITE_P(Boards, CombinedBoardTest,
                         testing::Values(BoardCase{"Type16", vlogger::board::COMBINED_16, "/dev/vqlog-fpgam"},
                                         BoardCase{"Type16Fd", vlogger::board::COMBINED_16_FD, "/dev/vqlog-fpgame"},
                                         BoardCase{"Type112", vlogger::board::COMBINED_112, "/dev/vqlog-fpgam"},
                                         BoardCase{"Type112Fd", vlogger::board::COMBINED_112_FD,
                                                   "/dev/vqlog-fpgame"}),
                         [](const auto& board) { return std::string(board.param.name); });

class BoardTest : public SystemTest
{
};

TEST_F(BoardTest, PlainBoardSendsAHighChannelOnTheMainDeviceAndReceivesNoneOfThem)
{
    vlogger::Options options = optionsFor(vlogger::board::PLAIN);
    options.buses = {{20, 21, 3}};
    startLogger(options);
    TestInterface sender({20, 0x100, CAN_STANDARD, {}});
    TestInterface high({21, 0x100, CAN_STANDARD, {}});
    TestInterface low({3, 0x100, CAN_STANDARD, {}});
    CapturedOutput output;
    goOnline({&sender, &high, &low});

    ASSERT_EQ(sender.send({1}), 0);

    ASSERT_TRUE(low.callback.nextFrame());
    EXPECT_EQ(high.callback.frames.count(), 0U);
    goOffline({&sender, &high, &low});
}

TEST_F(BoardTest, ChannelFourteenIsSentOnTheMainDeviceAndReceivedFromTheExtension)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    TestInterface fourteen({14, 0x14, CAN_STANDARD, {{0x15, CAN_STANDARD}}});
    TestInterface fifteen({15, 0x15, CAN_STANDARD, {{0x14, CAN_STANDARD}}});
    CapturedOutput output;
    RawReader extension(EXTENSION_DEVICE);
    goOnline({&fourteen, &fifteen});

    // A fault of a device tells which one a channel is sent on.
    ASSERT_EQ(transmitter().open(), 0);
    logger->failWrites(MAIN_DEVICE, EIO);
    EXPECT_EQ(fifteen.send({1}), 0);
    EXPECT_EQ(fourteen.send({2}), -1);
    EXPECT_EQ(fourteen.send({3}), 0);

    const ReceivedFrame atFourteen = extension.nextFrame();
    EXPECT_EQ(atFourteen.channel, 14);
    EXPECT_EQ(atFourteen.id, 0x15U);
    const ReceivedFrame atFifteen = extension.nextFrame();
    EXPECT_EQ(atFifteen.channel, 15);
    EXPECT_EQ(atFifteen.payload, std::vector<uint8_t>{3});
    const auto received = fourteen.callback.nextFrame();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->payload, std::vector<uint8_t>{1});
    goOffline({&fourteen, &fifteen});
}

TEST_F(BoardTest, TimeStampIsDeviceTimePlusOffsetOnBothDevices)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    TestInterface low({0, 0x10, CAN_STANDARD, {}});
    TestInterface lowReceiver({1, 0x10, CAN_STANDARD, {}});
    TestInterface high({20, 0x20, CAN_STANDARD, {}});
    TestInterface highReceiver({21, 0x20, CAN_STANDARD, {}});
    CapturedOutput output;
    RawReader mainDevice(MAIN_DEVICE);
    RawReader extension(EXTENSION_DEVICE);
    goOnline({&low, &lowReceiver, &high, &highReceiver});
    const uint64_t offsetUs = logger->deviceOffsetUs();
    const uint64_t before = systemTimeUs();

    ASSERT_EQ(low.send({1}), 0);
    ASSERT_EQ(high.send({2}), 0);

    const auto lowFrame = lowReceiver.callback.nextFrame();
    const auto highFrame = highReceiver.callback.nextFrame();
    const uint64_t after = systemTimeUs();
    ASSERT_TRUE(lowFrame);
    ASSERT_TRUE(highFrame);
    EXPECT_EQ(lowFrame->timestampUs, mainDevice.nextFrame().timestampUs + offsetUs);
    EXPECT_EQ(highFrame->timestampUs, extension.nextFrame().timestampUs + offsetUs);
    EXPECT_GE(lowFrame->timestampUs, before);
    EXPECT_LE(highFrame->timestampUs, after);
    goOffline({&low, &lowReceiver, &high, &highReceiver});
}

TEST_F(BoardTest, SeveralOpenersAndInterfacesEachGetEveryFrame)
{
    startLogger(vlogger::board::PLAIN);
    TestInterface sender({0, 0x10, CAN_STANDARD, {}});
    TestInterface first({1, 0x10, CAN_STANDARD, {}});
    TestInterface second({1, 0x10, CAN_STANDARD, {{0x11, CAN_STANDARD}}});
    CapturedOutput output;
    RawReader firstOpener(MAIN_DEVICE);
    RawReader secondOpener(MAIN_DEVICE);
    goOnline({&sender, &first, &second});

    for (uint8_t i = 0; i < 100; ++i) {
        ASSERT_EQ(sender.send({i}), 0);
    }

    for (uint8_t i = 0; i < 100; ++i) {
        const std::vector<uint8_t> payload{i};
        EXPECT_EQ(first.callback.nextFrame().value_or(ReceivedFrame{}).payload, payload);
        EXPECT_EQ(second.callback.nextFrame().value_or(ReceivedFrame{}).payload, payload);
        EXPECT_EQ(firstOpener.nextFrame().payload, payload);
        EXPECT_EQ(secondOpener.nextFrame().payload, payload);
    }
    EXPECT_EQ(first.callback.frames.count(), 100U);
    goOffline({&sender, &first, &second});
}

} // namespace
