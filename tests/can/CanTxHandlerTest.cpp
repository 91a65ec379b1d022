#include <CanTxHandler.h>

#include <can/FullDevice.h>
#include <can/TestFrames.h>
#include <support/CapturedOutput.h>
#include <support/Effects.h>
#include <support/FakeBoard.h>
#include <support/FakeDevices.h>
#include <support/LogLock.h>
#include <support/PrivateMember.h>
#include <support/SecondThread.h>
#include <support/ThreadState.h>
#include <support/Waiting.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

REVEAL_MEMBER(FpgabOpen, CanTxHandler, fpgabOpen);
REVEAL_MEMBER(FpgacOpen, CanTxHandler, fpgacOpen);
REVEAL_MEMBER(ExtBoard, CanTxHandler, extBoard);
REVEAL_MEMBER(UnusedStream, CanTxHandler, unused);
REVEAL_MEMBER(FdFpgab, CanTxHandler, fdFpgab);
REVEAL_MEMBER(FdFpgac, CanTxHandler, fdFpgac);
REVEAL_MEMBER(UseOSync, CanTxHandler, useOSync);

namespace {

using Effects = std::vector<std::string>;

constexpr const char* MAIN = "/dev/vqlog-fpgab";
constexpr const char* EXTENSION = "/dev/vqlog-fpgac";
constexpr int MAIN_FD = 201;
constexpr int EXTENSION_FD = 202;

class CanTxHandlerTest : public testing::Test
{
protected:
    CanTxHandlerTest()
    {
        fakedevices::provideNull(MAIN, MAIN_FD);
        fakedevices::provideNull(EXTENSION, EXTENSION_FD);
    }

    static void fitExtensionBoard() { fakeboard::answer({.deviceCode = 4}); }

    /// Lets a device be one end of a pair of which the test keeps the other. One frame is one packet.
    static int listenTo(const char* path, int number)
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        fakedevices::provideAs(path, ends[0], number);
        return ends[1];
    }

    /// The next frame on a device; empty if there is none.
    static std::vector<uint8_t> nextFrame(int fd)
    {
        std::vector<uint8_t> frame(200);
        const ssize_t size = recv(fd, frame.data(), frame.size(), MSG_DONTWAIT);
        frame.resize(size < 0 ? 0 : static_cast<size_t>(size));
        return frame;
    }

    /// The transmitter, without its lines.
    static CanTxHandler* quietInstance()
    {
        CapturedOutput ignored;
        return CanTxHandler::getInstance(true);
    }
};

TEST_F(CanTxHandlerTest, FirstInstanceOpensTheMainDeviceWithOSync)
{
    effects::show();
    CapturedOutput output;
    CanTxHandler* const sut = CanTxHandler::getInstance(true);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                            "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_NE(sut, nullptr);
}

TEST_F(CanTxHandlerTest, FirstInstanceWithoutOSyncOpensWriteOnlyAlone)
{
    effects::show();
    CapturedOutput output;
    CanTxHandler::getInstance(false);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? false\n"
                            "{open /dev/vqlog-fpgab O_WRONLY}\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTxHandlerTest, LaterOSyncArgumentIsIgnored)
{
    CanTxHandler* const sut = quietInstance();
    EXPECT_EQ(CanTxHandler::getInstance(false), sut);
    CapturedOutput output;
    sut->close();
    EXPECT_EQ(sut->open(), 0);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n");
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC", "close 201",
                                       "open /dev/vqlog-fpgab O_WRONLY|O_SYNC"}));
}

TEST_F(CanTxHandlerTest, LaterCallsDoNotOpenAnything)
{
    quietInstance();
    CapturedOutput output;
    CanTxHandler::getInstance(true);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(effects::all().size(), 1U);
}

TEST_F(CanTxHandlerTest, ConcurrentFirstCallsGetOneTransmitterWithOpenDevices)
{
    CapturedOutput output;
    constexpr int CALLERS = 8;
    std::vector<std::future<std::pair<CanTxHandler*, int>>> callers;
    for (int i = 0; i < CALLERS; ++i) {
        callers.push_back(std::async(std::launch::async, [] {
            CanTxHandler* const instance = CanTxHandler::getInstance(true);
            CANExtTraceMessage frame = testframes::onChannel(0);
            return std::pair(instance, instance->send(frame));
        }));
    }
    std::set<CanTxHandler*> instances;
    for (auto& caller : callers) {
        const auto [instance, result] = caller.get();
        instances.insert(instance);
        EXPECT_EQ(result, 0);
    }
    EXPECT_EQ(instances.size(), 1U);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n");
    EXPECT_EQ(effects::count("open"), 1U);
}

TEST_F(CanTxHandlerTest, NobodyGetsTheTransmitterBeforeItsDevicesAreOpen)
{
    CapturedOutput output;
    std::promise<void> opening;
    std::promise<void> letGo;
    fakedevices::whenOpened([&opening, held = letGo.get_future().share()] {
        opening.set_value();
        held.wait();
    });
    std::future<CanTxHandler*> first =
        std::async(std::launch::async, [] { return CanTxHandler::getInstance(true); });
    ASSERT_EQ(opening.get_future().wait_for(LIMIT), std::future_status::ready);
    std::promise<pid_t> secondStarted;
    std::future<int> second = std::async(std::launch::async, [&secondStarted] {
        secondStarted.set_value(gettid());
        CANExtTraceMessage frame = testframes::onChannel(0);
        return CanTxHandler::getInstance(true)->send(frame);
    });
    EXPECT_TRUE(fallsAsleep(secondStarted.get_future().get()));
    EXPECT_EQ(second.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    letGo.set_value();
    EXPECT_NE(first.get(), nullptr);
    EXPECT_EQ(second.get(), 0);
    fakedevices::whenOpened({});
}

TEST_F(CanTxHandlerTest, ExtensionBoardOpensBothDevicesInOrder)
{
    fitExtensionBoard();
    effects::show();
    CapturedOutput output;
    CanTxHandler::getInstance(true);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                            "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"
                            "[DEBUG] CanTxHandler::open() ext board 4 detected, open device=/dev/vqlog-fpgac\n"
                            "{open /dev/vqlog-fpgac O_WRONLY|O_SYNC}\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTxHandlerTest, ExtensionDeviceIsOpenedWithoutOSyncToo)
{
    fitExtensionBoard();
    CapturedOutput output;
    CanTxHandler::getInstance(false);
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY", "open /dev/vqlog-fpgac O_WRONLY"}));
}

class CanTxHandlerDeviceCodeTest : public CanTxHandlerTest, public testing::WithParamInterface<uint32_t>
{
};

TEST_P(CanTxHandlerDeviceCodeTest, OtherDeviceCodesMeanNoExtensionBoard)
{
    fakeboard::answer({.deviceCode = GetParam()});
    CanTxHandler* const sut = quietInstance();
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC"}));
    EXPECT_EQ(sut->open(), 0);
    EXPECT_EQ(effects::count("open"), 1U);
}

INSTANTIATE_TEST_SUITE_P(Codes, CanTxHandlerDeviceCodeTest, testing::Values(0U, 1U, 2U, 3U, 5U, 255U, 0xFFFFFFFFU));

class CanTxHandlerCombinedBoardTest : public CanTxHandlerTest, public testing::WithParamInterface<uint32_t>
{
};

TEST_P(CanTxHandlerCombinedBoardTest, CombinedBoardsSendOnTheMainPathToo)
{
    fakeboard::answer({.boardType = GetParam(), .canFdDevice = true});
    CanTxHandler* const sut = quietInstance();
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC"}));
    CANExtTraceMessage frame = testframes::onChannel(20);
    EXPECT_EQ(sut->send(frame), 0);
}

INSTANTIATE_TEST_SUITE_P(BoardTypes, CanTxHandlerCombinedBoardTest, testing::Values(16U, 112U));

TEST_F(CanTxHandlerTest, MissingMainDeviceLeavesTheExtensionDeviceUntouched)
{
    fitExtensionBoard();
    fakedevices::refuse(MAIN, ENOENT);
    CapturedOutput output;
    CanTxHandler* const sut = CanTxHandler::getInstance(true);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                            "[ERROR] CanTxHandler::open() can't open device = /dev/vqlog-fpgab\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC"}));
    EXPECT_EQ(sut->open(), -1);
    EXPECT_EQ(effects::count("open /dev/vqlog-fpgac"), 0U);
}

TEST_F(CanTxHandlerTest, MissingExtensionDeviceFailsOpenAndKeepsTheMainDevice)
{
    fitExtensionBoard();
    fakedevices::refuse(EXTENSION, ENOENT);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    EXPECT_EQ(sut->open(), -1);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() ext board 4 detected, open device=/dev/vqlog-fpgac\n"
                            "[ERROR] CanTxHandler::open() can't open device = /dev/vqlog-fpgac\n");
    EXPECT_EQ(output.err(), "");
    CANExtTraceMessage onMain = testframes::onChannel(14);
    EXPECT_EQ(sut->send(onMain), 0);
}

TEST_F(CanTxHandlerTest, OpenAfterAFailureOpensOnlyWhatIsClosed)
{
    fitExtensionBoard();
    fakedevices::refuse(EXTENSION, ENOENT);
    CanTxHandler* const sut = quietInstance();
    fakedevices::provideNull(EXTENSION, EXTENSION_FD);
    CapturedOutput output;
    EXPECT_EQ(sut->open(), 0);
    EXPECT_EQ(output.out(), "[DEBUG] CanTxHandler::open() ext board 4 detected, open device=/dev/vqlog-fpgac\n");
    EXPECT_EQ(effects::count("open /dev/vqlog-fpgab"), 1U);
}

TEST_F(CanTxHandlerTest, OpenWithEverythingOpenDoesNothing)
{
    fitExtensionBoard();
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    EXPECT_EQ(sut->open(), 0);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(effects::count("open"), 2U);
}

TEST_F(CanTxHandlerTest, CloseClosesBothDevicesOnce)
{
    fitExtensionBoard();
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    sut->close();
    sut->close();
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC",
                                       "open /dev/vqlog-fpgac O_WRONLY|O_SYNC", "close 201", "close 202"}));
}

TEST_F(CanTxHandlerTest, CloseWithNothingOpenClosesNothing)
{
    fakedevices::refuse(MAIN, ENODEV);
    CanTxHandler* const sut = quietInstance();
    sut->close();
    EXPECT_EQ(effects::count("close"), 0U);
}

TEST_F(CanTxHandlerTest, CloseKeepsTheExtensionBoardInMind)
{
    fitExtensionBoard();
    CanTxHandler* const sut = quietInstance();
    sut->close();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(20);
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanTxHandler::send() FPGAC-Device is not open!\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTxHandlerTest, SendToTheClosedMainDeviceFails)
{
    fakedevices::refuse(MAIN, ENOENT);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(0);
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanTxHandler::send() FGPAB/M-Device is not open!\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(frame.time, 4711U);
    EXPECT_EQ(effects::count("open"), 1U) << "nothing is retried by itself";
}

TEST_F(CanTxHandlerTest, SendToTheClosedExtensionDeviceFails)
{
    fitExtensionBoard();
    fakedevices::refuse(EXTENSION, ENOENT);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(15);
    frame.time = 4711;
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanTxHandler::send() FPGAC-Device is not open!\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(frame.time, 4711U);
}

TEST_F(CanTxHandlerTest, ChannelAbove14GoesToTheMainDeviceWhileItsExtensionWasNeverTried)
{
    // The main device failed, so open() never learnt of the board: the frame is reported for the main device.
    fitExtensionBoard();
    fakedevices::refuse(MAIN, ENOENT);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(20);
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanTxHandler::send() FGPAB/M-Device is not open!\n");
}

TEST_F(CanTxHandlerTest, SendWritesTheWholeRecordWithTimeZero)
{
    const int bus = listenTo(MAIN, MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(3);
    EXPECT_EQ(sut->send(frame), 0);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(nextFrame(bus), testframes::bytesOnChannel(3));
    EXPECT_EQ(nextFrame(bus), std::vector<uint8_t>{});
    EXPECT_EQ(frame.time, 0U);
}

struct Route
{
    uint32_t deviceCode;
    uint8_t channel;
    bool toExtension;
};

class CanTxHandlerRouteTest : public CanTxHandlerTest, public testing::WithParamInterface<Route>
{
};

TEST_P(CanTxHandlerRouteTest, FrameTakesTheDeviceOfItsChannelWithItsNumberUnchanged)
{
    const Route route = GetParam();
    fakeboard::answer({.deviceCode = route.deviceCode});
    const int main = listenTo(MAIN, MAIN_FD);
    const int extension = listenTo(EXTENSION, EXTENSION_FD);
    CanTxHandler* const sut = quietInstance();
    CANExtTraceMessage frame = testframes::onChannel(route.channel);
    EXPECT_EQ(sut->send(frame), 0);
    const std::vector<uint8_t> sent = testframes::bytesOnChannel(route.channel);
    EXPECT_EQ(nextFrame(main), route.toExtension ? std::vector<uint8_t>{} : sent);
    EXPECT_EQ(nextFrame(extension), route.toExtension ? sent : std::vector<uint8_t>{});
}

std::string channelName(const testing::TestParamInfo<Route>& route)
{
    return "Channel" + std::to_string(route.param.channel);
}

INSTANTIATE_TEST_SUITE_P(WithoutExtensionBoard, CanTxHandlerRouteTest,
                         testing::Values(Route{0, 0, false}, Route{0, 14, false}, Route{0, 15, false},
                                         Route{0, 20, false}, Route{0, 255, false}),
                         channelName);
INSTANTIATE_TEST_SUITE_P(WithExtensionBoard, CanTxHandlerRouteTest,
                         testing::Values(Route{4, 0, false}, Route{4, 13, false}, Route{4, 14, false},
                                         Route{4, 15, true}, Route{4, 255, true}),
                         channelName);

TEST_F(CanTxHandlerTest, FailedWriteIsLoggedWithTheSystemsText)
{
    fakedevices::provideAs(MAIN, open("/dev/full", O_WRONLY), MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(0);
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(output.out(),
              "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=No space left on device\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTxHandlerTest, FailedWriteIsLoggedWithItsOwnErrorWhateverTheLogLockLeaves)
{
    fakedevices::provideAs(MAIN, open("/dev/full", O_WRONLY), MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    const SecondThread other; // only then is a line locked
    CANExtTraceMessage frame = testframes::onChannel(0);
    CapturedOutput output;
    loglock::leaveErrno(EPERM);
    EXPECT_EQ(sut->send(frame), -1);
    loglock::leaveErrno(0);
    EXPECT_EQ(output.out(),
              "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=No space left on device\n");
}

TEST_F(CanTxHandlerTest, FailedWriteOnTheExtensionDeviceLeavesTheMainDeviceSending)
{
    fitExtensionBoard();
    fakedevices::provideAs(EXTENSION, open("/dev/full", O_WRONLY), EXTENSION_FD);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage onExtension = testframes::onChannel(15);
    EXPECT_EQ(sut->send(onExtension), -1);
    EXPECT_EQ(effects::count("close"), 0U);
    CANExtTraceMessage onMain = testframes::onChannel(14);
    EXPECT_EQ(sut->send(onMain), 0);
    EXPECT_EQ(output.out(),
              "[ERROR] CanTxHandler::send() Can't write data, err=-1, errStr=No space left on device\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanTxHandlerTest, FailedWriteLeavesTheDeviceOpen)
{
    fakedevices::provideAs(MAIN, open("/dev/full", O_WRONLY), MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    CANExtTraceMessage frame = testframes::onChannel(0);
    EXPECT_EQ(sut->send(frame), -1);
    EXPECT_EQ(effects::count("close"), 0U);
    // What stands behind the number works again: so does the transmitter.
    ASSERT_EQ(dup2(open("/dev/null", O_WRONLY), MAIN_FD), MAIN_FD);
    EXPECT_EQ(sut->send(frame), 0);
}

TEST_F(CanTxHandlerTest, CloseAndOpenBringDeadDevicesBack)
{
    const int bus = listenTo(MAIN, MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    close(bus);
    CANExtTraceMessage frame = testframes::onChannel(0);
    {
        CapturedOutput output;
        EXPECT_EQ(sut->send(frame), -1);
    }
    const int newBus = listenTo(MAIN, 203);
    CapturedOutput output;
    sut->close();
    EXPECT_EQ(sut->open(), 0);
    EXPECT_EQ(sut->send(frame), 0);
    EXPECT_EQ(nextFrame(newBus), testframes::bytesOnChannel(0));
}

TEST_F(CanTxHandlerTest, SenderInTheDeviceKeepsOthersOutUntilItHasWritten)
{
    const int bus = listenTo(MAIN, MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    const size_t fillers = fulldevice::fill(MAIN_FD);
    std::promise<pid_t> senderStarted;
    std::future<int> sender = std::async(std::launch::async, [&] {
        senderStarted.set_value(gettid());
        CANExtTraceMessage frame = testframes::onChannel(2);
        return sut->send(frame);
    });
    EXPECT_TRUE(fulldevice::awaitSender(*sut, senderStarted.get_future().get()));

    std::promise<pid_t> closerStarted;
    std::future<void> closer = std::async(std::launch::async, [&] {
        closerStarted.set_value(gettid());
        sut->close();
    });
    EXPECT_TRUE(fallsAsleep(closerStarted.get_future().get()));
    EXPECT_EQ(effects::count("close 201"), 0U);

    for (size_t i = 0; i < fillers; ++i) {
        std::vector<uint8_t> frame(200);
        ASSERT_GT(recv(bus, frame.data(), frame.size(), 0), 0);
    }
    EXPECT_EQ(sender.get(), 0);
    closer.get();
    EXPECT_EQ(effects::count("close 201"), 1U);
    EXPECT_EQ(nextFrame(bus), testframes::bytesOnChannel(2));
}

TEST_F(CanTxHandlerTest, FramesOfSeveralSendersStayWholeAndInTheirOrder)
{
    int ends[2] = {-1, -1};
    ASSERT_EQ(pipe(ends), 0); // a byte stream: a frame written in pieces would show
    fakedevices::provideAs(MAIN, ends[1], MAIN_FD);
    CanTxHandler* const sut = quietInstance();
    constexpr uint8_t SENDERS = 4;
    constexpr unsigned FRAMES = 500;

    std::vector<std::thread> senders;
    for (uint8_t sender = 0; sender < SENDERS; ++sender) {
        senders.emplace_back([sut, sender] {
            for (unsigned i = 0; i < FRAMES; ++i) {
                CANExtTraceMessage frame = testframes::onChannel(sender);
                frame.canId = i;
                ASSERT_EQ(sut->send(frame), 0);
            }
        });
    }
    std::vector<unsigned> next(SENDERS, 0);
    std::vector<uint8_t> record(testframes::bytesOnChannel(0).size());
    for (unsigned i = 0; i < SENDERS * FRAMES; ++i) {
        size_t filled = 0;
        while (filled < record.size()) {
            const ssize_t size = read(ends[0], record.data() + filled, record.size() - filled);
            ASSERT_GT(size, 0);
            filled += static_cast<size_t>(size);
        }
        const uint8_t channel = record[14];
        ASSERT_LT(channel, SENDERS);
        ASSERT_EQ(unsigned{record[20]} << 8 | record[21], next[channel]++);
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
}

TEST_F(CanTxHandlerTest, OpenAndCloseMayMeetSenders)
{
    CanTxHandler* const sut = quietInstance();
    CapturedOutput output;
    std::atomic<bool> done{false};
    std::thread sender([&] {
        while (!done) {
            CANExtTraceMessage frame = testframes::onChannel(0);
            static_cast<void>(sut->send(frame));
        }
    });
    for (int i = 0; i < 200; ++i) {
        sut->close();
        // The number is free while the device is closed; only what open() gives back may be written to.
        fakedevices::provideNull(MAIN, MAIN_FD);
        EXPECT_EQ(sut->open(), 0);
    }
    done = true;
    sender.join();
}

TEST_F(CanTxHandlerTest, DebugLevelIsPublicAndZero)
{
    EXPECT_EQ(CanTxHandler::debugLevel, 0);
    static_assert(std::is_same_v<decltype(CanTxHandler::debugLevel), int>);
}

TEST_F(CanTxHandlerTest, MembersLieInTheirOrderAndThereIsNoVirtualOperation)
{
    static_assert(!std::is_polymorphic_v<CanTxHandler>);
    const CanTxHandler& sut = *quietInstance();
    EXPECT_EQ(offsetIn(sut, reveal(FpgabOpen{})), 0U);
    EXPECT_EQ(offsetIn(sut, reveal(FpgacOpen{})), 1U);
    EXPECT_EQ(offsetIn(sut, reveal(ExtBoard{})), 2U);
    EXPECT_EQ(offsetIn(sut, reveal(UnusedStream{})), 8U);
    EXPECT_EQ(offsetIn(sut, reveal(TransmitterLock{})), 8U + sizeof(std::ofstream));
    EXPECT_EQ(offsetIn(sut, reveal(FdFpgab{})), 8U + sizeof(std::ofstream) + sizeof(Mutex));
    EXPECT_EQ(offsetIn(sut, reveal(FdFpgac{})), 8U + sizeof(std::ofstream) + sizeof(Mutex) + 4U);
    EXPECT_EQ(offsetIn(sut, reveal(UseOSync{})), 8U + sizeof(std::ofstream) + sizeof(Mutex) + 8U);
}

} // namespace
