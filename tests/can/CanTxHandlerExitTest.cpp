#include <CanTxHandler.h>

#include <can/FullDevice.h>
#include <can/TestFrames.h>
#include <support/Effects.h>
#include <support/FakeBoard.h>
#include <support/FakeDevices.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

// What the transmitter does while the process ends. Each case runs in a child, whose standard output is sent to the
// standard error that the test sees.

namespace {

using testing::Eq;
using testing::ExitedWithCode;
using testing::StartsWith;

constexpr const char* MAIN = "/dev/vqlog-fpgab";
constexpr const char* EXTENSION = "/dev/vqlog-fpgac";

class CanTxHandlerExitTest : public testing::Test
{
protected:
    CanTxHandlerExitTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void prepareChild()
    {
        std::fflush(stdout); // the test framework's own words belong to the old one
        dup2(STDERR_FILENO, STDOUT_FILENO);
        fakedevices::provideNull(MAIN, 201);
        fakedevices::provideNull(EXTENSION, 202);
        effects::show();
    }
};

/// Sends one frame when it is destroyed.
struct SendsAtExit
{
    ~SendsAtExit()
    {
        fakedevices::provideNull(MAIN, 201); // the number was closed with the transmitter
        CANExtTraceMessage frame = testframes::onChannel(0);
        effects::note("sent with result " + std::to_string(CanTxHandler::getInstance(true)->send(frame)));
    }
};

[[noreturn]] void exitWithTransmitter()
{
    fakeboard::answer({.deviceCode = 4});
    CanTxHandler::getInstance(true);
    std::exit(0);
}

[[noreturn]] void exitWithLateSender()
{
    static const SendsAtExit late;
    CanTxHandler::getInstance(false);
    std::exit(0);
}

[[noreturn]] void exitWithSenderInTheDevice()
{
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        std::abort();
    }
    fakedevices::provideAs(MAIN, ends[1], 201);
    CanTxHandler* const sut = CanTxHandler::getInstance(true);
    fulldevice::fill(201);
    std::promise<pid_t> started;
    std::thread([sut, &started] {
        started.set_value(gettid());
        CANExtTraceMessage frame = testframes::onChannel(0);
        static_cast<void>(sut->send(frame));
    }).detach();
    if (!fulldevice::awaitSender(*sut, started.get_future().get())) {
        std::abort();
    }
    std::exit(0);
}

/// Sends one frame, when it is destroyed, with a transmitter that it knows from before.
struct SendsWithOldPointerAtExit
{
    CanTxHandler* transmitter = nullptr;

    ~SendsWithOldPointerAtExit()
    {
        CANExtTraceMessage frame = testframes::onChannel(0);
        effects::note("sent with result " + std::to_string(transmitter->send(frame)));
    }
};

[[noreturn]] void exitWithOldPointer()
{
    // Constructed ahead of the transmitter, so destroyed behind it.
    static SendsWithOldPointerAtExit late;
    late.transmitter = CanTxHandler::getInstance(true);
    std::exit(0);
}

std::atomic<unsigned> framesSent{0};

/// Keeps the process until a busy sender has sent some more.
struct WaitsForSender
{
    ~WaitsForSender()
    {
        const unsigned before = framesSent;
        while (framesSent < before + 100) {
            std::this_thread::yield();
        }
    }
};

[[noreturn]] void exitWithBusySender()
{
    static const WaitsForSender last;
    CanTxHandler* const sut = CanTxHandler::getInstance(true);
    std::thread([sut] {
        for (;;) {
            CANExtTraceMessage frame = testframes::onChannel(0);
            static_cast<void>(sut->send(frame));
            ++framesSent;
        }
    }).detach();
    while (framesSent == 0) {
        std::this_thread::yield();
    }
    std::exit(0);
}

TEST_F(CanTxHandlerExitTest, ExitClosesTheDevices)
{
    EXPECT_EXIT((prepareChild(), exitWithTransmitter()), ExitedWithCode(0),
                Eq("[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                   "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"
                   "[DEBUG] CanTxHandler::open() ext board 4 detected, open device=/dev/vqlog-fpgac\n"
                   "{open /dev/vqlog-fpgac O_WRONLY|O_SYNC}\n"
                   "{close 201}\n"
                   "{close 202}\n"));
}

TEST_F(CanTxHandlerExitTest, ExitWithoutTransmitterTouchesNoDevice)
{
    EXPECT_EXIT((prepareChild(), std::exit(0)), ExitedWithCode(0), Eq(""));
}

TEST_F(CanTxHandlerExitTest, StaticObjectDestroyedAfterTheTransmitterGetsANewOne)
{
    EXPECT_EXIT((prepareChild(), exitWithLateSender()), ExitedWithCode(0),
                Eq("[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? false\n"
                   "{open /dev/vqlog-fpgab O_WRONLY}\n"
                   "{close 201}\n"
                   "[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                   "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"
                   "{sent with result 0}\n"));
}

TEST_F(CanTxHandlerExitTest, SenderBlockedInTheDeviceDoesNotKeepTheProcess)
{
    EXPECT_EXIT((prepareChild(), exitWithSenderInTheDevice()), ExitedWithCode(0),
                Eq("[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                   "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"));
}

TEST_F(CanTxHandlerExitTest, PointerKeptBeyondTheTransmittersEndAnswersMinusOne)
{
    EXPECT_EXIT((prepareChild(), exitWithOldPointer()), ExitedWithCode(0),
                Eq("[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                   "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"
                   "{close 201}\n"
                   "[ERROR] CanTxHandler::send() FGPAB/M-Device is not open!\n"
                   "{sent with result -1}\n"));
}

// Whether a busy sender still gets its frames out depends on who has the lock at exit; it must not crash.
TEST_F(CanTxHandlerExitTest, ThreadThatSendsDuringExitMeetsNoFreedTransmitter)
{
    EXPECT_EXIT((prepareChild(), exitWithBusySender()), ExitedWithCode(0),
                StartsWith("[DEBUG] CanTxHandler::open() open device=/dev/vqlog-fpgab with O_SYNC flag? true\n"
                           "{open /dev/vqlog-fpgab O_WRONLY|O_SYNC}\n"));
}

} // namespace
