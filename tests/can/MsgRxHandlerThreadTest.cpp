#include <can/DispatcherTest.h>
#include <can/FrameRecord.h>
#include <support/FakeOffsets.h>
#include <support/FakeTrace.h>
#include <support/LogLock.h>
#include <support/PselectSpy.h>
#include <support/RecordingReceiver.h>
#include <support/ThreadCalls.h>
#include <support/Waiting.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <future>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include <pthread.h>
#include <unistd.h>

using namespace dispatchertest;

REVEAL_MEMBER(RunningFlag, MsgRxHandler, running);

namespace {

using State = RecordingReceiver::State;
using States = std::vector<State>;
constexpr auto ONLINE = MsgRxHandlerCb::ONLINE;
constexpr auto OFFLINE = MsgRxHandlerCb::OFFLINE;
constexpr auto ERROR = MsgRxHandlerCb::ERROR;

class MsgRxHandlerThreadTest : public DispatcherTest
{
protected:
    MsgRxHandlerThreadTest()
    {
        provideFeeds();
        output = std::make_unique<CapturedOutput>();
    }
    ~MsgRxHandlerThreadTest() override { sut().setOffline(); }

    /// Gives both devices a fresh feed, for a start or a restart.
    void provideFeeds()
    {
        mainFeed = std::make_unique<faketrace::Feed>();
        extensionFeed = std::make_unique<faketrace::Feed>();
        fakedevices::provideAs(MAIN, mainFeed->deviceEnd(), 201);
        fakedevices::provideAs(EXTENSION, extensionFeed->deviceEnd(), 202);
    }

    void listenOn(unsigned char channel) { sut().registerCanMessage(channel, 1, CAN_STANDARD, &receiver); }

    void goOnline()
    {
        const size_t before = receiver.states.count();
        sut().setOnline();
        ASSERT_TRUE(receiver.states.waitForCount(before + 1));
        ASSERT_EQ(receiver.states.all().back(), State(ONLINE, ""));
    }

    /// What a start writes and does on a board with the main device alone, as far as the offsets.
    static std::string startText()
    {
        return "[INFO] MsgRxHandler::setOnline() START\n"
               "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
               "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
               "{close -1}\n"
               "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
               "{open /dev/vqlog-fpgab O_RDONLY}\n"
               "{buffer 201 65536 log lock}\n"
               "[INFO] MsgRxHandler::openDevices() Open device, name=/dev/vqlog-fpgab, fd=201\n"
               "{offset fpgab}\n"
               "[INFO] MsgRxHandler::openDevices() #################### fpgabOffset=0\n"
               "[INFO] MsgRxHandler::openDevices() #################### fpgacOffset=0\n";
    }

    /// What the stop behind such a start writes and does.
    static std::string stopText()
    {
        return "[INFO] MsgRxHandler::setOffline() STOP\n"
               "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
               "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
               "{buffer 201 gone}\n"
               "{close 201}\n"
               "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n";
    }

    /// Forgets what was written so far.
    void restartCapture()
    {
        output.reset();
        output = std::make_unique<CapturedOutput>();
    }

    static std::vector<unsigned char> frameOn(uint8_t channel)
    {
        return FrameRecord{.channel = channel, .idWord = 1}.bytes();
    }

    /// The lines so far that a function wrote.
    std::string linesOf(const std::string& function)
    {
        std::string lines;
        std::string line;
        for (const char character : output->out()) {
            line += character;
            if (character == '\n') {
                lines += line.find("::" + function + "() ") == std::string::npos ? "" : line;
                line.clear();
            }
        }
        return lines;
    }

    RecordingReceiver receiver;
    std::unique_ptr<faketrace::Feed> mainFeed;
    std::unique_ptr<faketrace::Feed> extensionFeed;
    std::unique_ptr<CapturedOutput> output;
};

TEST_F(MsgRxHandlerThreadTest, StartAndStopShowEveryStepInOrder)
{
    listenOn(0);
    effects::show();
    goOnline();
    sut().setOffline();
    EXPECT_EQ(receiver.states.all(), (States{{ONLINE, ""}, {OFFLINE, ""}}));
    EXPECT_EQ(output->out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0x1; type=standard\n"
                             "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                             "name=/dev/vqlog-fpgab, active=true\n" +
                                 startText() + stopText());
    EXPECT_EQ(output->err(), "");
}

/// Shows each state among the lines, with the running flag at that moment.
class ShowingReceiver : public RecordingReceiver
{
public:
    void onStateChanged(handlerState_t state, const std::string& text) override
    {
        std::ostringstream shown;
        shown << state << (MsgRxHandler::getInstance()->*reveal(RunningFlag{}) ? ", running" : ", not running");
        effects::note(shown.str());
        RecordingReceiver::onStateChanged(state, text);
    }
};

TEST_F(MsgRxHandlerThreadTest, OnlineIsReportedBehindTheOffsetsAndOfflineBehindTheLastLine)
{
    ShowingReceiver showing;
    sut().registerCanMessage(0, 1, CAN_STANDARD, &showing);
    restartCapture();
    effects::show();
    sut().setOnline();
    ASSERT_TRUE(showing.states.waitForCount(1));
    sut().setOffline();
    EXPECT_EQ(output->out(), startText() + "{ONLINE, running}\n" + stopText() + "{OFFLINE, not running}\n");
    sut().unregisterReceiver(&showing);
}

TEST_F(MsgRxHandlerThreadTest, ErrorIsReportedBehindTheFailedOpenWhileTheFlagIsStillSet)
{
    fakedevices::refuse(MAIN, ENOENT);
    ShowingReceiver showing;
    sut().registerCanMessage(0, 1, CAN_STANDARD, &showing);
    restartCapture();
    effects::show();
    sut().setOnline();
    ASSERT_TRUE(showing.states.waitForCount(2));
    EXPECT_EQ(output->out(), "[INFO] MsgRxHandler::setOnline() START\n"
                             "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "{close -1}\n"
                             "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                             "{open /dev/vqlog-fpgab O_RDONLY}\n"
                             "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgab\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "{close -1}\n"
                             "{ERROR, running}\n"
                             "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "{close -1}\n"
                             "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n"
                             "{OFFLINE, not running}\n");
    sut().unregisterReceiver(&showing);
}

TEST_F(MsgRxHandlerThreadTest, FailedStartClearsTheFlagBehindItsReportAndBeforeItClosesTheDevices)
{
    fakedevices::refuse(MAIN, ENOENT);
    ShowingReceiver showing;
    sut().registerCanMessage(0, 1, CAN_STANDARD, &showing);
    fakedevices::whenClosed([] { effects::note(sut().*reveal(RunningFlag{}) ? "running" : "not running"); });
    sut().setOnline();
    ASSERT_TRUE(showing.states.waitForCount(2));
    fakedevices::whenClosed({});
    EXPECT_EQ(effects::all(),
              (Effects{"close -1", "running", "open /dev/vqlog-fpgab O_RDONLY", "close -1", "running",
                       "ERROR, running", "close -1", "not running", "OFFLINE, not running"}));
    sut().unregisterReceiver(&showing);
}

TEST_F(MsgRxHandlerThreadTest, ThreadIsCreatedWithDefaultAttributes)
{
    listenOn(0);
    goOnline();
    EXPECT_EQ(threadcalls::creations(), 1U);
    EXPECT_FALSE(threadcalls::lastHadAttributes());
}

TEST_F(MsgRxHandlerThreadTest, WaitWatchesEveryDeviceFor300Milliseconds)
{
    fitExtensionBoard();
    listenOn(0);
    goOnline();
    ASSERT_TRUE(pselectspy::waitForTotal(1));
    const pselectspy::Call call = pselectspy::last();
    EXPECT_EQ(call.descriptors, 203);
    EXPECT_EQ(call.watched, (std::vector<int>{201, 202})) << "active or not";
    EXPECT_TRUE(call.readOnly);
    EXPECT_FALSE(call.withSignalMask);
    EXPECT_EQ(call.timeoutNs, 300'000'000);
}

TEST_F(MsgRxHandlerThreadTest, SecondSetOnlineDoesNothing)
{
    listenOn(0);
    goOnline();
    sut().setOnline();
    sut().setOffline();
    EXPECT_EQ(receiver.states.count(), 2U);
    EXPECT_EQ(linesOf("setOnline"), "[INFO] MsgRxHandler::setOnline() START\n");
}

TEST_F(MsgRxHandlerThreadTest, SetOfflineWithoutSetOnlineDoesNothing)
{
    sut().setOffline();
    EXPECT_EQ(output->out(), "");
    EXPECT_EQ(effects::all(), Effects{});
}

TEST_F(MsgRxHandlerThreadTest, SetOnlineAfterSetOfflineReopensTheDevices)
{
    listenOn(0);
    goOnline();
    sut().setOffline();
    provideFeeds();
    goOnline();
    EXPECT_EQ(effects::count("open /dev/vqlog-fpgab"), 2U);
    listenOn(0);
    mainFeed->arrives({frameOn(0)});
    EXPECT_TRUE(receiver.frames.waitForCount(1));
}

TEST_F(MsgRxHandlerThreadTest, ReceiverRegisteredBeforeSetOnlineHearsNothingUntilTheNextRegistration)
{
    listenOn(0);
    goOnline();
    mainFeed->arrives({frameOn(0)});
    ASSERT_TRUE(pselectspy::waitForMore(50));
    EXPECT_EQ(receiver.frames.count(), 0U);
    EXPECT_EQ(effects::count("read"), 0U);
    // Any receiver's registration on the device's channels will do.
    RecordingReceiver other;
    sut().registerCanMessage(13, 99, CAN_STANDARD, &other);
    EXPECT_TRUE(receiver.frames.waitForCount(1)) << "what waited in the device is not lost";
    sut().unregisterReceiver(&other);
}

TEST_F(MsgRxHandlerThreadTest, ReadyInactiveDeviceEndsEveryWaitAndIsNeverRead)
{
    listenOn(0);
    goOnline();
    mainFeed->arrives({frameOn(0)});
    // Fifty waits of 300 ms would take 15 s; these return at once, or the limit of the wait passes.
    EXPECT_TRUE(pselectspy::waitForMore(1000));
    EXPECT_EQ(effects::count("read"), 0U);
}

TEST_F(MsgRxHandlerThreadTest, EveryActiveDeviceIsReadInPathOrderWhicheverIsReady)
{
    fitExtensionBoard();
    listenOn(0);
    goOnline();
    listenOn(0);
    listenOn(14);
    extensionFeed->arrives({frameOn(14)});
    ASSERT_TRUE(receiver.frames.waitForCount(1));
    sut().setOffline();
    const Effects all = effects::all();
    const auto firstRead = std::find(all.begin(), all.end(), "read 201");
    ASSERT_NE(firstRead, all.end());
    EXPECT_EQ(*(firstRead + 1), "read 202");
}

TEST_F(MsgRxHandlerThreadTest, InactiveDeviceIsNotReadWhileAnotherIs)
{
    fitExtensionBoard();
    listenOn(0);
    goOnline();
    listenOn(14);
    mainFeed->arrives({frameOn(0)});
    extensionFeed->arrives({frameOn(14)});
    ASSERT_TRUE(receiver.frames.waitForCount(1));
    EXPECT_EQ(receiver.frames.all(), std::vector<RecordingReceiver::Frame>{frameOn(14)});
    EXPECT_EQ(effects::count("read 201"), 0U);
}

TEST_F(MsgRxHandlerThreadTest, ExtensionDeviceGetsItsOwnOffset)
{
    fitExtensionBoard();
    fakeoffsets::set("fpgab", 1000);
    fakeoffsets::set("fpgac", 5);
    listenOn(0);
    goOnline();
    listenOn(14);
    extensionFeed->arrives({FrameRecord{.time = 10, .channel = 14, .idWord = 1}.bytes()});
    ASSERT_TRUE(receiver.frames.waitForCount(1));
    EXPECT_EQ(receiver.frames.all().front(), (FrameRecord{.time = 15, .channel = 14, .idWord = 1}.bytes()));
}

TEST_F(MsgRxHandlerThreadTest, FailingReadSkipsTheDeviceAndLeavesItOpen)
{
    faketrace::failReads(true);
    fitExtensionBoard();
    listenOn(0);
    goOnline();
    listenOn(0);
    listenOn(14);
    extensionFeed->arrives({frameOn(14)});
    ASSERT_TRUE(receiver.frames.waitForCount(1));
    EXPECT_GT(effects::count("read 201"), 0U);
    EXPECT_EQ(effects::count("close 201"), 0U);
    mainFeed->arrives({frameOn(0)});
    EXPECT_TRUE(receiver.frames.waitForCount(2));
}

TEST_F(MsgRxHandlerThreadTest, FailingWaitIsLoggedAndTheThreadGoesOn)
{
    listenOn(0);
    pselectspy::failNext(EBADF);
    goOnline();
    listenOn(0);
    mainFeed->arrives({frameOn(0)});
    EXPECT_TRUE(receiver.frames.waitForCount(1));
    sut().setOffline();
    EXPECT_EQ(linesOf("threadCode"), "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
                                     "[ERROR] MsgRxHandler::threadCode() pselect: Bad file descriptor\n"
                                     "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                                     "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n");
    EXPECT_EQ(output->err(), "");
}

TEST_F(MsgRxHandlerThreadTest, FailingWaitIsLoggedWithItsOwnErrorWhateverTheLogLockLeaves)
{
    listenOn(0);
    pselectspy::failNext(EBADF);
    loglock::leaveErrno(EPERM);
    goOnline();
    ASSERT_TRUE(pselectspy::waitForTotal(2));
    loglock::leaveErrno(0);
    sut().setOffline();
    EXPECT_EQ(linesOf("threadCode"), "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
                                     "[ERROR] MsgRxHandler::threadCode() pselect: Bad file descriptor\n"
                                     "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                                     "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n");
}

TEST_F(MsgRxHandlerThreadTest, InterruptedWaitIsLoggedLikeAnyOther)
{
    listenOn(0);
    pselectspy::failNext(EINTR, 2);
    goOnline();
    ASSERT_TRUE(pselectspy::waitForTotal(3));
    sut().setOffline();
    EXPECT_EQ(linesOf("threadCode"), "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
                                     "[ERROR] MsgRxHandler::threadCode() pselect: Interrupted system call\n"
                                     "[ERROR] MsgRxHandler::threadCode() pselect: Interrupted system call\n"
                                     "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                                     "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n");
}

TEST_F(MsgRxHandlerThreadTest, WaitThatFailsForEverStillStops)
{
    listenOn(0);
    pselectspy::failNext(EBADF, std::numeric_limits<unsigned>::max());
    goOnline();
    ASSERT_TRUE(pselectspy::waitForTotal(3));
    sut().setOffline();
    EXPECT_EQ(receiver.states.all(), (States{{ONLINE, ""}, {OFFLINE, ""}}));
    EXPECT_EQ(descriptorOf(MAIN), -1);
}

TEST_F(MsgRxHandlerThreadTest, FailedStartReportsErrorThenOffline)
{
    fakedevices::refuse(MAIN, ENOENT);
    listenOn(0);
    sut().setOnline();
    ASSERT_TRUE(receiver.states.waitForCount(2));
    EXPECT_EQ(receiver.states.all(), (States{{ERROR, ""}, {OFFLINE, ""}}));
    EXPECT_EQ(pselectspy::calls(), 0U);
    EXPECT_EQ(output->out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0x1; type=standard\n"
                             "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                             "name=/dev/vqlog-fpgab, active=true\n"
                             "[INFO] MsgRxHandler::setOnline() START\n"
                             "[DEBUG] MsgRxHandler::threadCode() Start thread.\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "[INFO] MsgRxHandler::openDevices() Open device=/dev/vqlog-fpgab\n"
                             "[ERROR] MsgRxHandler::openDevices() Can't open device=/dev/vqlog-fpgab\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                             "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                             "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n");
}

TEST_F(MsgRxHandlerThreadTest, SecondDeviceMissingReportsErrorThenOffline)
{
    fitExtensionBoard();
    fakedevices::refuse(EXTENSION, ENOENT);
    listenOn(0);
    sut().setOnline();
    ASSERT_TRUE(receiver.states.waitForCount(2));
    EXPECT_EQ(receiver.states.all(), (States{{ERROR, ""}, {OFFLINE, ""}}));
    EXPECT_EQ(effects::count("close 201"), 1U);
}

TEST_F(MsgRxHandlerThreadTest, SetOfflineAfterAFailedStartDoesNothing)
{
    fakedevices::refuse(MAIN, ENOENT);
    listenOn(0);
    sut().setOnline();
    ASSERT_TRUE(receiver.states.waitForCount(2));
    sut().setOffline();
    EXPECT_EQ(linesOf("setOffline"), "");
}

TEST_F(MsgRxHandlerThreadTest, SetOnlineAfterAFailedStartStartsANewThread)
{
    fakedevices::refuse(MAIN, ENOENT);
    listenOn(0);
    for (size_t attempt = 1; attempt <= 5; ++attempt) {
        sut().setOnline();
        ASSERT_TRUE(receiver.states.waitForCount(2 * attempt));
    }
    provideFeeds();
    goOnline();
    EXPECT_EQ(receiver.states.count(), 11U);
}

/// Holds the receive thread in its last report.
class HoldingReceiver : public RecordingReceiver
{
public:
    void onStateChanged(handlerState_t state, const std::string& text) override
    {
        RecordingReceiver::onStateChanged(state, text);
        if (state == OFFLINE && !released) {
            released = true;
            letGo.get_future().wait();
        }
    }

    std::promise<void> letGo;
    std::atomic<bool> released{false};
};

TEST_F(MsgRxHandlerThreadTest, SetOnlineWaitsForTheThreadOfAFailedStart)
{
    HoldingReceiver holding;
    fakedevices::refuse(MAIN, ENOENT);
    sut().registerCanMessage(0, 1, CAN_STANDARD, &holding);
    sut().setOnline();
    ASSERT_TRUE(holding.states.waitForCount(2));
    provideFeeds();
    std::future<void> secondStart = std::async(std::launch::async, [] { sut().setOnline(); });
    // The old thread is still in its report, so the new one cannot have been started.
    ASSERT_TRUE(threadcalls::waitForJoins(1));
    EXPECT_EQ(threadcalls::creations(), 1U);
    EXPECT_EQ(holding.states.count(), 2U);
    holding.letGo.set_value();
    secondStart.get();
    ASSERT_TRUE(holding.states.waitForCount(3));
    EXPECT_EQ(holding.states.all().back(), State(ONLINE, ""));
    EXPECT_EQ(threadcalls::creations(), 2U);
    sut().unregisterReceiver(&holding);
}

TEST_F(MsgRxHandlerThreadTest, SetOfflineAfterAFailedStartDoesNotWaitForItsThread)
{
    HoldingReceiver holding;
    fakedevices::refuse(MAIN, ENOENT);
    sut().registerCanMessage(0, 1, CAN_STANDARD, &holding);
    sut().setOnline();
    ASSERT_TRUE(holding.states.waitForCount(2));
    std::future<void> stop = std::async(std::launch::async, [] { sut().setOffline(); });
    EXPECT_EQ(stop.wait_for(LIMIT), std::future_status::ready);
    EXPECT_EQ(threadcalls::joins(), 0U);
    holding.letGo.set_value();
    stop.get();
    sut().unregisterReceiver(&holding);
}

TEST_F(MsgRxHandlerThreadTest, RemainingReceiverHearsNothingUntilARegistrationOnTheChannel)
{
    RecordingReceiver remaining;
    listenOn(2);
    sut().registerCanMessage(2, 1, CAN_STANDARD, &remaining);
    goOnline();
    sut().registerCanMessage(2, 1, CAN_STANDARD, &remaining); // opening has silenced the channel
    mainFeed->arrives({frameOn(2)});
    ASSERT_TRUE(remaining.frames.waitForCount(1));

    sut().unregisterReceiver(&receiver);
    const size_t reads = effects::count("read 201");
    mainFeed->arrives({frameOn(2)});
    // The device is ready and inactive: the waits return at once and nobody reads.
    ASSERT_TRUE(pselectspy::waitForMore(5));
    EXPECT_EQ(effects::count("read 201"), reads);
    EXPECT_EQ(remaining.frames.count(), 1U);

    sut().registerCanMessage(2, 7, CAN_STANDARD, &receiver);
    EXPECT_TRUE(remaining.frames.waitForCount(2));
    sut().unregisterReceiver(&remaining);
}

TEST_F(MsgRxHandlerThreadTest, RegistrationWhileTheDevicesAreBeingOpenedDoesNotActivateThem)
{
    listenOn(0);
    fakedevices::whenOpened([this] {
        listenOn(0);
        EXPECT_TRUE(isActive(MAIN));
    });
    goOnline();
    fakedevices::whenOpened({});
    EXPECT_FALSE(isActive(MAIN));
}

TEST_F(MsgRxHandlerThreadTest, FailedStartNeverEntersTheLoopWhateverTheFlagSays)
{
    fakedevices::refuse(MAIN, ENOENT);
    listenOn(0);
    std::atomic<bool> done{false};
    sut().setOnline();
    std::thread meddler([&] {
        while (!done) {
            sut().*reveal(RunningFlag{}) = true;
        }
    });
    EXPECT_TRUE(receiver.states.waitForCount(2));
    done = true;
    meddler.join();
    EXPECT_EQ(pselectspy::calls(), 0U);
}

TEST_F(MsgRxHandlerThreadTest, RefusedThreadGoesUnnoticedUntilSetOffline)
{
    listenOn(0);
    threadcalls::refuse(true);
    sut().setOnline();
    threadcalls::refuse(false);
    sut().setOnline(); // the flag is set: nothing happens
    sut().setOffline();
    EXPECT_EQ(receiver.states.count(), 0U);
    goOnline();
    sut().setOffline();
    EXPECT_EQ(linesOf("setOnline"), "[INFO] MsgRxHandler::setOnline() START\n"
                                    "[INFO] MsgRxHandler::setOnline() START\n");
    EXPECT_EQ(linesOf("setOffline"), "[INFO] MsgRxHandler::setOffline() STOP\n"
                                     "[INFO] MsgRxHandler::setOffline() STOP\n");
}

TEST_F(MsgRxHandlerThreadTest, NothingIsCalledAndEverythingIsClosedAfterSetOffline)
{
    fitExtensionBoard();
    listenOn(0);
    goOnline();
    listenOn(0);
    mainFeed->arrives({frameOn(0)});
    ASSERT_TRUE(receiver.frames.waitForCount(1));
    sut().setOffline();
    EXPECT_EQ(descriptorOf(MAIN), -1);
    EXPECT_EQ(descriptorOf(EXTENSION), -1);
    EXPECT_FALSE(hasBuffer(MAIN));
    EXPECT_FALSE(isActive(MAIN));
    EXPECT_EQ(effects::count("close 201"), 1U);
    EXPECT_EQ(effects::count("close 202"), 1U);
    EXPECT_EQ(receiver.states.all().back(), State(OFFLINE, ""));
}

TEST_F(MsgRxHandlerThreadTest, StopDuringAFloodDoesNotWaitForItsEnd)
{
    listenOn(0);
    goOnline();
    listenOn(0);
    std::atomic<bool> done{false};
    std::thread device([&] {
        while (!done) {
            try {
                mainFeed->arrives({frameOn(0), frameOn(0), frameOn(0)});
            } catch (const std::runtime_error&) {
                return; // the dispatcher has closed its end
            }
        }
    });
    ASSERT_TRUE(receiver.frames.waitForCount(100));
    sut().setOffline();
    const size_t delivered = receiver.frames.count();
    done = true;
    device.join();
    EXPECT_EQ(receiver.states.all().back(), State(OFFLINE, ""));
    EXPECT_EQ(receiver.frames.count(), delivered);
}

size_t entriesOf(const char* directory)
{
    size_t entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++entries;
    }
    return entries;
}

TEST_F(MsgRxHandlerThreadTest, ManyStartsAndStopsLeaveNoThreadAndNoDescriptor)
{
    listenOn(0);
    goOnline();
    sut().setOffline();
    provideFeeds();
    const size_t threads = entriesOf("/proc/self/task");
    const size_t descriptors = entriesOf("/proc/self/fd");
    for (int round = 0; round < 100; ++round) {
        mainFeed->arrives({frameOn(0)}); // a ready device: a stop need not wait for the time-out
        goOnline();
        sut().setOffline();
        provideFeeds();
    }
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptors);
    EXPECT_EQ(receiver.states.count(), 202U);
}

TEST_F(MsgRxHandlerThreadTest, StartsAndStopsFromSeveralThreadsStayOrderly)
{
    listenOn(0);
    fakedevices::provideFresh(MAIN); // always ready: stops are quick
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([] {
            for (int round = 0; round < 30; ++round) {
                sut().setOnline();
                sut().setOffline();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    sut().setOffline();
    bool online = false;
    for (const State& state : receiver.states.all()) {
        EXPECT_EQ(state.first, online ? OFFLINE : ONLINE);
        online = !online;
    }
    EXPECT_FALSE(online);
}

} // namespace
