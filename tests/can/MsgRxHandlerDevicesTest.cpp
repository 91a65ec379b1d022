#include <can/DispatcherTest.h>
#include <support/FakeOffsets.h>

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <utility>

#include <sys/select.h>

using namespace dispatchertest;

namespace {

class MsgRxHandlerDevicesTest : public DispatcherTest
{
protected:
    MsgRxHandlerDevicesTest()
    {
        fakedevices::provideNull(MAIN, 201);
        fakedevices::provideNull(EXTENSION, 202);
    }
};

struct BoardCase
{
    const char* name;
    fakeboard::Answers board;
    std::vector<std::string> devices;
    /// Path for channels 0, 13, 14, 20 and 255.
    std::array<const char*, 5> paths;
};

class MsgRxHandlerBoardTest : public MsgRxHandlerDevicesTest, public testing::WithParamInterface<BoardCase>
{
};

TEST_P(MsgRxHandlerBoardTest, BoardDecidesDevicesAndPaths)
{
    fakeboard::answer(GetParam().board);
    EXPECT_EQ(devicePaths(), GetParam().devices);
    constexpr std::array<unsigned char, 5> CHANNELS{0, 13, 14, 20, 255};
    for (size_t i = 0; i < CHANNELS.size(); ++i) {
        EXPECT_STREQ(sut().getDeviceNameForCanChannel(CHANNELS[i]), GetParam().paths[i]) << unsigned{CHANNELS[i]};
    }
    EXPECT_EQ(effects::all(), Effects{});
}

constexpr std::array<const char*, 5> SPLIT{MAIN, MAIN, EXTENSION, EXTENSION, EXTENSION};
constexpr std::array<const char*, 5> ON_COMBINED{COMBINED, COMBINED, COMBINED, COMBINED, COMBINED};
constexpr std::array<const char*, 5> ON_COMBINED_FD{COMBINED_FD, COMBINED_FD, COMBINED_FD, COMBINED_FD,
                                                    COMBINED_FD};

INSTANTIATE_TEST_SUITE_P(
    Boards, MsgRxHandlerBoardTest,
    testing::Values(
        BoardCase{"Plain", {.boardType = 1}, {MAIN}, SPLIT},
        BoardCase{"PlainWithFd", {.boardType = 0, .canFdDevice = true}, {MAIN}, SPLIT},
        BoardCase{"WithExtension", {.boardType = 1, .deviceCode = 4}, {MAIN, EXTENSION}, SPLIT},
        BoardCase{"OtherExtensionCode", {.boardType = 1, .deviceCode = 3}, {MAIN}, SPLIT},
        BoardCase{"Type15", {.boardType = 15}, {MAIN}, SPLIT},
        BoardCase{"Type17", {.boardType = 17}, {MAIN}, SPLIT},
        BoardCase{"Type113", {.boardType = 113}, {MAIN}, SPLIT},
        BoardCase{"Type16", {.boardType = 16}, {COMBINED}, ON_COMBINED},
        BoardCase{"Type16Fd", {.boardType = 16, .canFdDevice = true}, {COMBINED_FD}, ON_COMBINED_FD},
        BoardCase{"Type112", {.boardType = 112}, {COMBINED}, ON_COMBINED},
        BoardCase{"Type112Fd", {.boardType = 112, .canFdDevice = true}, {COMBINED_FD}, ON_COMBINED_FD},
        BoardCase{"Type16WithExtension", {.boardType = 16, .deviceCode = 4}, {EXTENSION, COMBINED}, ON_COMBINED},
        BoardCase{"Type112WithExtension", {.boardType = 112, .deviceCode = 4}, {EXTENSION, COMBINED}, ON_COMBINED}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(MsgRxHandlerDevicesTest, DevicesBeginClosedAndInactive)
{
    EXPECT_EQ(descriptorOf(MAIN), -1);
    EXPECT_FALSE(hasBuffer(MAIN));
    EXPECT_FALSE(isActive(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, PathIsChosenAnewOnEveryCall)
{
    EXPECT_STREQ(sut().getDeviceNameForCanChannel(20), EXTENSION);
    fakeboard::answer({.boardType = 16});
    EXPECT_STREQ(sut().getDeviceNameForCanChannel(20), COMBINED);
}

TEST_F(MsgRxHandlerDevicesTest, AddingAKnownPathKeepsTheOldRecord)
{
    {
        CapturedOutput ignored;
        sut().activateDeviceByCanChannel(0, true);
    }
    sut().addDeviceNolock(MAIN);
    EXPECT_EQ(devicePaths(), std::vector<std::string>{MAIN});
    EXPECT_TRUE(isActive(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, ActivationIsLoggedEveryTime)
{
    CapturedOutput output;
    sut().activateDeviceByCanChannel(13, true);
    sut().activateDeviceByCanChannel(13, true);
    EXPECT_TRUE(isActive(MAIN));
    sut().activateDeviceByCanChannel(0, false);
    EXPECT_FALSE(isActive(MAIN));
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=false\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(MsgRxHandlerDevicesTest, ActivatingChannel14WithoutExtensionBoardIsSilent)
{
    CapturedOutput output;
    sut().activateDeviceByCanChannel(14, true);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_FALSE(isActive(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, Channel14IsReceivedFromTheExtensionDevice)
{
    fitExtensionBoard();
    CapturedOutput output;
    sut().activateDeviceByCanChannel(14, true);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgac, active=true\n");
    EXPECT_TRUE(isActive(EXTENSION));
    EXPECT_FALSE(isActive(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, OpeningThePlainBoardShowsEveryStepInOrder)
{
    fakeoffsets::set("fpgab", 1234567890123456789U);
    sut();
    effects::show();
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                            "{close -1}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "{open /dev/vqlog-fpgab O_RDONLY}\n"
                            "{buffer 201 65536 log lock}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
                            "{offset fpgab}\n"
                            "[INFO] MsgRxHandler::openDevices() #################### "
                            "fpgabOffset=1234567890123456789\n"
                            "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=0\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(descriptorOf(MAIN), 201);
    EXPECT_EQ((sut().*reveal(Devices{})).at(MAIN)->buffer->name, MAIN);
}

TEST_F(MsgRxHandlerDevicesTest, OpeningWithExtensionBoardReadsBothOffsets)
{
    fitExtensionBoard();
    fakeoffsets::set("fpgab", 10);
    fakeoffsets::set("fpgac", 20);
    sut();
    effects::show();
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 2 devices.\n"
                            "{close -1}\n"
                            "{close -1}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "{open /dev/vqlog-fpgab O_RDONLY}\n"
                            "{buffer 201 65536 log lock}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgac\n"
                            "{open /dev/vqlog-fpgac O_RDONLY}\n"
                            "{buffer 202 65536 log lock}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgac, fd=202\n"
                            "{offset fpgab}\n"
                            "{offset fpgac}\n"
                            "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=10\n"
                            "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=20\n");
    EXPECT_EQ(sut().*reveal(FpgabOffset{}), 10U);
    EXPECT_EQ(sut().*reveal(FpgacOffset{}), 20U);
}

TEST_F(MsgRxHandlerDevicesTest, CombinedDeviceUsesTheOffsetOfTheMainClock)
{
    fakeboard::answer({.boardType = 112, .canFdDevice = true});
    fakedevices::provideNull(COMBINED_FD, 203);
    fakeoffsets::set("fpgab", 30);
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(effects::count("open /dev/vqlog-fpgame O_RDONLY"), 1U);
    EXPECT_EQ(effects::count("offset"), 1U);
    EXPECT_EQ(sut().*reveal(FpgabOffset{}), 30U);
}

TEST_F(MsgRxHandlerDevicesTest, UnsynchronisedClocksCountAsZero)
{
    fitExtensionBoard();
    fakeoffsets::set("fpgab", 10);
    fakeoffsets::set("fpgac", 20);
    {
        CapturedOutput ignored;
        EXPECT_EQ(sut().openDevices(), 0);
        sut().closeDevices();
    }
    fakedevices::provideNull(MAIN, 201);
    fakedevices::provideNull(EXTENSION, 202);
    fakeoffsets::loseSynchronisation("fpgab");
    fakeoffsets::loseSynchronisation("fpgac");
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 2 devices.\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgac\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgac, fd=202\n"
                            "[ERROR] MsgRxHandler::openDevices() fpgab is not synchronized\n"
                            "[ERROR] MsgRxHandler::openDevices() fpgac is not synchronized\n"
                            "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=0\n"
                            "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=0\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(sut().*reveal(FpgabOffset{}), 0U);
    EXPECT_EQ(sut().*reveal(FpgacOffset{}), 0U);
}

struct ClockCase
{
    const char* name;
    const char* unsynchronised;
    const char* lines;
};

class MsgRxHandlerOneClockTest : public MsgRxHandlerDevicesTest, public testing::WithParamInterface<ClockCase>
{
};

TEST_P(MsgRxHandlerOneClockTest, UnsynchronisedClockCountsAsZeroAndTheOtherKeepsItsOffset)
{
    fitExtensionBoard();
    fakeoffsets::set("fpgab", 10);
    fakeoffsets::set("fpgac", 20);
    fakeoffsets::loseSynchronisation(GetParam().unsynchronised);
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 2 devices.\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgac\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgac, fd=202\n" +
                                std::string(GetParam().lines));
    EXPECT_EQ(output.err(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Clocks, MsgRxHandlerOneClockTest,
    testing::Values(ClockCase{"Main", "fpgab",
                              "[ERROR] MsgRxHandler::openDevices() fpgab is not synchronized\n"
                              "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=0\n"
                              "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=20\n"},
                    ClockCase{"Extension", "fpgac",
                              "[ERROR] MsgRxHandler::openDevices() fpgac is not synchronized\n"
                              "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=10\n"
                              "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=0\n"}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(MsgRxHandlerDevicesTest, OtherExceptionOfTheClockCorrectionReachesTheCaller)
{
    fakeoffsets::fail("fpgab", "no memory for the clock");
    CapturedOutput output;
    try {
        static_cast<void>(sut().openDevices());
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::runtime_error& exception) {
        EXPECT_STREQ(exception.what(), "no memory for the clock");
    }
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(descriptorOf(MAIN), 201);
}

TEST_F(MsgRxHandlerDevicesTest, OtherExceptionOfTheExtensionsClockReachesTheCallerToo)
{
    fitExtensionBoard();
    fakeoffsets::set("fpgab", 10);
    fakeoffsets::fail("fpgac", "no memory for the clock");
    CapturedOutput output;
    EXPECT_THROW(static_cast<void>(sut().openDevices()), std::runtime_error);
    EXPECT_EQ(sut().*reveal(FpgabOffset{}), 10U);
    EXPECT_EQ(output.err(), "");
}

TEST_F(MsgRxHandlerDevicesTest, WithoutExtensionBoardItsOffsetKeepsItsValue)
{
    sut().*reveal(FpgacOffset{}) = 77;
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(sut().*reveal(FpgacOffset{}), 77U);
    EXPECT_EQ(effects::count("offset fpgac"), 0U);
}

TEST_F(MsgRxHandlerDevicesTest, OpeningLeavesEveryDeviceInactive)
{
    {
        CapturedOutput ignored;
        sut().activateDeviceByCanChannel(0, true);
        EXPECT_EQ(sut().openDevices(), 0);
    }
    EXPECT_FALSE(isActive(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, SecondDeviceMissingClosesTheFirstAndReadsNoOffset)
{
    fitExtensionBoard();
    fakedevices::refuse(EXTENSION, ENOENT);
    sut();
    effects::show();
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), -1);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 2 devices.\n"
                            "{close -1}\n"
                            "{close -1}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "{open /dev/vqlog-fpgab O_RDONLY}\n"
                            "{buffer 201 65536 log lock}\n"
                            "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgac\n"
                            "{open /dev/vqlog-fpgac O_RDONLY}\n"
                            "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgac\n"
                            "[INFO] MsgRxHandler::closeDevices() Close 2 devices.\n"
                            "{buffer 201 gone}\n"
                            "{close 201}\n"
                            "{close -1}\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(descriptorOf(MAIN), -1);
    EXPECT_FALSE(hasBuffer(MAIN));
}

TEST_F(MsgRxHandlerDevicesTest, FirstDeviceMissingLeavesTheSecondUntried)
{
    fitExtensionBoard();
    fakedevices::refuse(MAIN, EACCES);
    CapturedOutput output;
    errno = 0;
    EXPECT_EQ(sut().openDevices(), -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(effects::count("open"), 1U);
}

TEST_F(MsgRxHandlerDevicesTest, DescriptorBeyondTheWatchSetIsAFailedOpen)
{
    fakedevices::provide(MAIN, FD_SETSIZE);
    CapturedOutput output;
    errno = 0;
    EXPECT_EQ(sut().openDevices(), -1);
    EXPECT_EQ(errno, EMFILE);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                            "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                            "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgab\n"
                            "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n");
    EXPECT_EQ(effects::all(), (Effects{"close -1", "open /dev/vqlog-fpgab O_RDONLY", "close 1024", "close -1"}));
}

TEST_F(MsgRxHandlerDevicesTest, HighestDescriptorOfTheWatchSetIsFine)
{
    fakedevices::provide(MAIN, FD_SETSIZE - 1);
    CapturedOutput output;
    EXPECT_EQ(sut().openDevices(), 0);
    EXPECT_EQ(descriptorOf(MAIN), FD_SETSIZE - 1);
}

TEST_F(MsgRxHandlerDevicesTest, ClosingAClosedDeviceClosesMinusOneAndIgnoresTheResult)
{
    effects::show();
    CapturedOutput output;
    sut().closeDevices();
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                            "{close -1}\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(MsgRxHandlerDevicesTest, ClosingDestroysTheBufferFirstAndDeactivates)
{
    {
        CapturedOutput ignored;
        EXPECT_EQ(sut().openDevices(), 0);
        sut().activateDeviceByCanChannel(0, true);
    }
    effects::show();
    CapturedOutput output;
    sut().closeDevices();
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                            "{buffer 201 gone}\n"
                            "{close 201}\n");
    EXPECT_EQ(descriptorOf(MAIN), -1);
    EXPECT_FALSE(hasBuffer(MAIN));
    EXPECT_FALSE(isActive(MAIN));
}

} // namespace
