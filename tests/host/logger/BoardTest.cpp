#include "LoggerTest.h"

#include <cerrno>
#include <set>
#include <string>

using loggerclient::frame;
using wire::Kind;

namespace board = vlogger::board;

namespace {

struct BoardRow
{
    std::string name;
    wire::Board board;
    std::set<std::string_view> readable;
    std::set<std::string_view> writable;
    std::string_view deviceOfChannel13;
    std::string_view deviceOfChannel14; ///< empty: nobody hears it
};

void PrintTo(const BoardRow& row, std::ostream* stream)
{
    *stream << row.name;
}

const std::string_view ALL_DEVICES[] = {board::MAIN_DEVICE, board::EXTENSION_DEVICE, board::COMBINED_DEVICE,
                                        board::COMBINED_FD_DEVICE};

const BoardRow ROWS[] = {
    {"Plain", board::PLAIN, {board::MAIN_DEVICE}, {board::MAIN_DEVICE}, board::MAIN_DEVICE, {}},
    {"WithExtension",
     board::WITH_EXTENSION,
     {board::MAIN_DEVICE, board::EXTENSION_DEVICE},
     {board::MAIN_DEVICE, board::EXTENSION_DEVICE},
     board::MAIN_DEVICE,
     board::EXTENSION_DEVICE},
    {"Combined16",
     board::COMBINED_16,
     {board::COMBINED_DEVICE},
     {board::MAIN_DEVICE, board::COMBINED_DEVICE},
     board::COMBINED_DEVICE,
     board::COMBINED_DEVICE},
    {"Combined16WithCanFd",
     board::COMBINED_16_FD,
     {board::COMBINED_FD_DEVICE},
     {board::MAIN_DEVICE, board::COMBINED_FD_DEVICE},
     board::COMBINED_FD_DEVICE,
     board::COMBINED_FD_DEVICE},
    {"Combined112",
     board::COMBINED_112,
     {board::COMBINED_DEVICE},
     {board::MAIN_DEVICE, board::COMBINED_DEVICE},
     board::COMBINED_DEVICE,
     board::COMBINED_DEVICE},
    {"Combined112WithCanFd",
     board::COMBINED_112_FD,
     {board::COMBINED_FD_DEVICE},
     {board::MAIN_DEVICE, board::COMBINED_FD_DEVICE},
     board::COMBINED_FD_DEVICE,
     board::COMBINED_FD_DEVICE},
    {"Combined16WithExtension",
     {.boardType = 16, .deviceCode = 4, .canFdDevice = true},
     {board::COMBINED_FD_DEVICE, board::EXTENSION_DEVICE},
     {board::MAIN_DEVICE, board::COMBINED_FD_DEVICE, board::EXTENSION_DEVICE},
     board::COMBINED_FD_DEVICE,
     board::COMBINED_FD_DEVICE},
    {"OtherBoardOnTheSlot",
     {.boardType = 3, .deviceCode = 5, .canFdDevice = true},
     {board::MAIN_DEVICE},
     {board::MAIN_DEVICE},
     board::MAIN_DEVICE,
     {}},
};

class BoardTest : public LoggerTest, public testing::WithParamInterface<BoardRow>
{
protected:
    void SetUp() override { start({.board = GetParam().board, .buses = {{0, 13, 14}}, .socketPath = {}}); }
};

TEST_P(BoardTest, ReadableDevicesAreThoseOfTheBoard)
{
    for (const std::string_view device : ALL_DEVICES) {
        EXPECT_EQ(reader(device).error(), GetParam().readable.contains(device) ? 0 : ENOENT) << device;
    }
}

TEST_P(BoardTest, WritableDevicesAreThoseOfTheBoardAndAlwaysTheMainOne)
{
    for (const std::string_view device : ALL_DEVICES) {
        EXPECT_EQ(writer(device).error(), GetParam().writable.contains(device) ? 0 : ENOENT) << device;
    }
}

TEST_P(BoardTest, BoardRequestIsAnsweredWithTheWholeRecord)
{
    const auto answer = ask(Kind::BOARD);
    EXPECT_EQ(answer.errorNumber, 0);
    EXPECT_EQ(wire::decodeBoard(answer.body), GetParam().board);
}

TEST_P(BoardTest, ChannelsAreHeardOnTheirDeviceOnly)
{
    std::vector<std::pair<std::string_view, loggerclient::Reader>> readers;
    for (const std::string_view device : GetParam().readable) {
        readers.emplace_back(device, reader(device));
    }
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 0x11)), 0);
    ASSERT_TRUE(waitForFramesIn(1));
    for (auto& [device, stream] : readers) {
        std::vector<int> channels;
        if (device == GetParam().deviceOfChannel13) {
            channels.push_back(13);
        }
        if (device == GetParam().deviceOfChannel14) {
            channels.push_back(14);
        }
        for (const int channel : channels) {
            const auto record = stream.next();
            ASSERT_TRUE(record) << device;
            EXPECT_EQ(record->channel, channel) << device;
        }
        sut->statistics(); // a further round: whatever else there were would be there by now
        EXPECT_TRUE(stream.isQuiet()) << device;
    }
}

TEST_P(BoardTest, MainClockIsKnownOnEveryBoardAndTheExtensionsWithTheExtensionOnly)
{
    EXPECT_EQ(ask(Kind::OFFSET, "fpgab").errorNumber, 0);
    EXPECT_EQ(ask(Kind::OFFSET, "fpgac").errorNumber, board::hasExtension(GetParam().board) ? 0 : ENOENT);
}

INSTANTIATE_TEST_SUITE_P(EveryBoard, BoardTest, testing::ValuesIn(ROWS),
                         [](const testing::TestParamInfo<BoardRow>& row) { return row.param.name; });

class DeviceNameTest : public LoggerTest
{
};

TEST_F(DeviceNameTest, PathsThatNoBoardHasAreNotFound)
{
    start();
    for (const std::string_view path : {"", "/dev/vqlog-fpga", "/dev/vqlog-fpgabb", "vqlog-fpgab", "/dev/null"}) {
        EXPECT_EQ(reader(path).error(), ENOENT) << path;
        EXPECT_EQ(writer(path).error(), ENOENT) << path;
    }
}

TEST_F(DeviceNameTest, ClocksThatNoBoardHasAreNotFound)
{
    start();
    for (const std::string_view name : {"", "fpga", "fpgam", "/dev/vqlog-fpgab"}) {
        EXPECT_EQ(ask(Kind::OFFSET, name).errorNumber, ENOENT) << name;
    }
}

} // namespace
