#include <CanInterface.h>
#include <MsgRxHandler.h>

#include <can/FrameRecord.h>
#include <support/Effects.h>
#include <support/FakeDevices.h>
#include <support/FakeTrace.h>
#include <support/PselectSpy.h>
#include <support/RecordingReceiver.h>
#include <support/ThreadCalls.h>

#include <vqutil/VQException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <thread>

#include <unistd.h>

// What the dispatcher does while the process ends. Each case runs in a child, whose standard output is sent to the
// standard error that the test sees.

namespace {

using testing::EndsWith;
using testing::Eq;
using testing::ExitedWithCode;

constexpr const char* MAIN = "/dev/vqlog-fpgab";

class MsgRxHandlerExitTest : public testing::Test
{
protected:
    MsgRxHandlerExitTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void prepareChild()
    {
        std::fflush(stdout); // the test framework's own words belong to the old one
        dup2(STDERR_FILENO, STDOUT_FILENO);
        effects::show();
    }
};

[[noreturn]] void exitWithRunningThread()
{
    fakedevices::provideNull(MAIN, 201); // always ready, so the stop is quick
    static RecordingReceiver receiver;
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    MsgRxHandler::getInstance()->setOnline();
    receiver.states.waitForCount(1);
    std::exit(0);
}

/// Keeps the receive thread in its last report until somebody waits for the thread's end.
class ReceiverUntilJoined : public RecordingReceiver
{
public:
    void onStateChanged(handlerState_t state, const std::string& text) override
    {
        RecordingReceiver::onStateChanged(state, text);
        if (state == OFFLINE) {
            effects::note(threadcalls::waitForJoins(1) ? "joined while in a callback" : "not joined");
        }
    }
};

[[noreturn]] void exitAfterFailedStart()
{
    static ReceiverUntilJoined receiver;
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    MsgRxHandler::getInstance()->setOnline();
    receiver.states.waitForCount(2);
    std::exit(0);
}

std::atomic<unsigned> registrations{0};

[[noreturn]] void exitWhileOthersRegister()
{
    for (int i = 0; i < 2; ++i) {
        std::thread([] {
            static RecordingReceiver receiver;
            for (;;) {
                MsgRxHandler::getInstance()->registerCanMessage(0, registrations++, CAN_STANDARD, &receiver);
                MsgRxHandler::getInstance()->unregisterReceiver(&receiver);
            }
        }).detach();
    }
    while (registrations < 20) {
        std::this_thread::yield();
    }
    std::exit(0);
}

[[noreturn]] void exitWithLateInterface()
{
    // Constructed ahead of the dispatcher, so destroyed behind it.
    static CanInterface late;
    late.configure({0, 1, CAN_STANDARD, {}});
    std::exit(0);
}

[[noreturn]] void exitWithEarlyInterface()
{
    MsgRxHandler::getInstance();
    static CanInterface early;
    early.configure({0, 1, CAN_STANDARD, {}});
    std::exit(0);
}

/// Ends the process from inside a callback, which is not allowed, and must not hang all the same.
class ExitingReceiver : public MsgRxHandlerCb
{
public:
    void onStateChanged(handlerState_t /*state*/, const std::string& /*text*/) override { std::exit(0); }
    void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override {}
};

[[noreturn]] void exitFromCallback()
{
    fakedevices::provideNull(MAIN, 201);
    static ExitingReceiver receiver;
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    MsgRxHandler::getInstance()->setOnline();
    for (;;) {
        pause();
    }
}

/// Fails at the first state change, with the one exception that is caught for a frame.
class FailingReceiver : public MsgRxHandlerCb
{
public:
    void onStateChanged(handlerState_t /*state*/, const std::string& /*text*/) override
    {
        throw VQException("state not wanted");
    }
    void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override {}
};

/// Takes every state and fails at the first frame.
class FrameFailingReceiver : public RecordingReceiver
{
public:
    void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override
    {
        throw std::runtime_error("frame not wanted");
    }
};

[[noreturn]] void failInStateCallback()
{
    fakedevices::provideNull(MAIN, 201);
    static FailingReceiver receiver;
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    MsgRxHandler::getInstance()->setOnline();
    for (;;) {
        pause();
    }
}

[[noreturn]] void failInFrameCallback()
{
    static faketrace::Feed feed;
    fakedevices::provideAs(MAIN, feed.deviceEnd(), 201);
    static FrameFailingReceiver receiver;
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    MsgRxHandler::getInstance()->setOnline();
    receiver.states.waitForCount(1);
    MsgRxHandler::getInstance()->registerCanMessage(0, 1, CAN_STANDARD, &receiver);
    feed.arrives({FrameRecord{.idWord = 1}.bytes()});
    for (;;) {
        pause();
    }
}

TEST_F(MsgRxHandlerExitTest, ExceptionOutOfAStateCallbackEndsTheProcess)
{
    EXPECT_EXIT((prepareChild(), failInStateCallback()), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("fpgacOffset=0\n"));
}

TEST_F(MsgRxHandlerExitTest, ForeignExceptionOutOfAFrameCallbackEndsTheProcess)
{
    EXPECT_EXIT((prepareChild(), failInFrameCallback()), testing::KilledBySignal(SIGABRT),
                testing::HasSubstr("frame not wanted"));
}

TEST_F(MsgRxHandlerExitTest, ExitStopsTheThreadAndClosesTheDevices)
{
    EXPECT_EXIT((prepareChild(), exitWithRunningThread()), ExitedWithCode(0),
                EndsWith("[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"
                         "[INFO] MsgRxHandler::setOffline() STOP\n"
                         "[INFO] MsgRxHandler::threadCode() Exit thread, close devices\n"
                         "[INFO] MsgRxHandler::closeDevices() Close 1 devices.\n"
                         "{buffer 201 gone}\n"
                         "{close 201}\n"
                         "[DEBUG] MsgRxHandler::threadCode() Exit thread.\n"));
}

TEST_F(MsgRxHandlerExitTest, ExitJoinsTheThreadOfAFailedStart)
{
    EXPECT_EXIT((prepareChild(), exitAfterFailedStart()), ExitedWithCode(0),
                EndsWith("[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"
                         "{joined while in a callback}\n"));
}

TEST_F(MsgRxHandlerExitTest, ExitWhileOtherThreadsRegisterDoesNoHarm)
{
    EXPECT_EXIT((prepareChild(), exitWhileOthersRegister()), ExitedWithCode(0),
                testing::HasSubstr("[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"));
}

TEST_F(MsgRxHandlerExitTest, ExitWithoutDispatcherWritesNothing)
{
    EXPECT_EXIT((prepareChild(), std::exit(0)), ExitedWithCode(0), Eq(""));
}

TEST_F(MsgRxHandlerExitTest, StaticInterfaceDestroyedBeforeTheDispatcherUnregistersFromIt)
{
    EXPECT_EXIT((prepareChild(), exitWithEarlyInterface()), ExitedWithCode(0),
                Eq("[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0x1; type=standard\n"
                   "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                   "name=/dev/vqlog-fpgab, active=true\n"
                   "[DEBUG] MsgRxHandler::unregisterReceiver() \n"
                   "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                   "name=/dev/vqlog-fpgab, active=false\n"
                   "[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"));
}

TEST_F(MsgRxHandlerExitTest, StaticInterfaceDestroyedAfterTheDispatcherDoesNoHarm)
{
    EXPECT_EXIT((prepareChild(), exitWithLateInterface()), ExitedWithCode(0),
                Eq("[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0x1; type=standard\n"
                   "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                   "name=/dev/vqlog-fpgab, active=true\n"
                   "[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"
                   "[DEBUG] MsgRxHandler::unregisterReceiver() \n"));
}

TEST_F(MsgRxHandlerExitTest, ExitFromACallbackEndsTheProcess)
{
    EXPECT_EXIT((prepareChild(), exitFromCallback()), ExitedWithCode(0),
                EndsWith("[DEBUG] MsgRxHandler::~MsgRxHandler() Destructor.\n"
                         "[INFO] MsgRxHandler::setOffline() STOP\n"
                         "{buffer 201 gone}\n"));
}

} // namespace
