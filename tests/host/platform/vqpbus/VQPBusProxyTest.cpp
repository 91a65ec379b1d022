#include <vqpbus/VQPBusProxy.h>

#include "FakeBus.h"
#include "RecordingBusCallback.h"

#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/SystemMessage.h>
#include <vqutil/VQException.h>

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>
#include <support/TemporaryDirectory.h>
#include <support/Waiting.h>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <future>
#include <memory>
#include <optional>

namespace {

const std::string CONNECTED = "status 0 0 connected to the process bus";
const std::string CONNECTED_AGAIN = "status 0 0 connected to the process bus again";
const std::string GONE = "status 2 104 the process bus is gone";

std::unique_ptr<MessageBase> command(const std::string& text)
{
    return std::make_unique<SystemMessage>(SystemMessage::MESSAGE_ID, 0, SystemMessage::COMMAND_REGISTER, text);
}

std::vector<uint8_t> recordOf(const std::string& text)
{
    std::vector<uint8_t> record;
    command(text)->createByteArray(record, true, false);
    return record;
}

BusEvent hello(const std::string& name)
{
    return {.hello = name, .source = {}, .destination = {}, .record = {}};
}

BusEvent message(const std::string& destination, const std::string& text)
{
    return {.hello = {}, .source = "Diagnostic", .destination = destination, .record = recordOf(text)};
}

class VQPBusProxyTest : public testing::Test
{
protected:
    VQPBusProxyTest()
    {
        setenv("VLOGGER", socketPath().c_str(), 1);
        unsetenv("VQPBUS_NAME");
    }

    std::string socketPath() const { return directory.path("socket"); }
    FakeBus& startBus() { return bus.emplace(socketPath()); }

    /// A callback that is connected and has been told so.
    void connect(RecordingBusCallback& callback)
    {
        EXPECT_TRUE(sut.setCallBack(callback));
        ASSERT_TRUE(callback.waitFor(CONNECTED));
    }

    /// While this object lives the process has no room for a thread.
    class NoRoomForThreads
    {
    public:
        NoRoomForThreads()
        {
            pthread_getattr_default_np(&before);
            pthread_attr_t endless;
            pthread_getattr_default_np(&endless);
            pthread_attr_setstacksize(&endless, size_t{1} << 47); // all the addresses that a process has
            EXPECT_EQ(pthread_setattr_default_np(&endless), 0);
            pthread_attr_destroy(&endless);
        }
        ~NoRoomForThreads()
        {
            pthread_setattr_default_np(&before);
            pthread_attr_destroy(&before);
        }
        NoRoomForThreads(const NoRoomForThreads&) = delete;
        NoRoomForThreads& operator=(const NoRoomForThreads&) = delete;

    private:
        pthread_attr_t before{};
    };

    /// Delivers a text and waits until the callback has it.
    void deliverAndAwait(RecordingBusCallback& callback, const std::string& text)
    {
        bus->deliver("TraceLogger", "Diagnostic", *command(text));
        ASSERT_TRUE(callback.waitFor("TraceLogger>Diagnostic command=19; text=" + text));
    }

    TemporaryDirectory directory;
    std::optional<FakeBus> bus;
    VQPBusProxy& sut = *VQPBusProxy::getInstance();
};

} // namespace

TEST_F(VQPBusProxyTest, ThereIsOneObject)
{
    EXPECT_EQ(VQPBusProxy::getInstance(), &sut);
}

TEST_F(VQPBusProxyTest, FirstSendConnectsUnderTheDefaultName)
{
    startBus();

    EXPECT_TRUE(sut.sendTo("TraceLogger", command("1 2 1 2024 diag"), false));

    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all(), (std::vector{hello("Diagnostic"), message("TraceLogger", "1 2 1 2024 diag")}));
}

TEST_F(VQPBusProxyTest, EnvironmentNamesTheProcess)
{
    setenv("VQPBUS_NAME", "Tester", 1);
    startBus();

    EXPECT_TRUE(sut.sendTo("TraceLogger", command("x"), false));

    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all()[0].hello, "Tester");
    EXPECT_EQ(bus->events.all()[1].source, "Tester");
}

TEST_F(VQPBusProxyTest, EmptyNameIsTheDefaultOne)
{
    setenv("VQPBUS_NAME", "", 1);
    startBus();

    EXPECT_TRUE(sut.sendTo("TraceLogger", command("x"), false));

    ASSERT_TRUE(bus->events.waitForCount(1));
    EXPECT_EQ(bus->events.all()[0], hello("Diagnostic"));
}

TEST_F(VQPBusProxyTest, NameThatIsTooLongGetsNoBus)
{
    setenv("VQPBUS_NAME", std::string(256, 'n').c_str(), 1);
    startBus();
    RecordingBusCallback callback;
    sut.setCallBack(callback);

    EXPECT_FALSE(sut.sendTo("TraceLogger", command("x"), false));
    EXPECT_TRUE(callback.waitFor("status 2 22 no process bus: Invalid argument"));
    EXPECT_EQ(bus->events.count(), 0U);

    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, WhatCannotBeSentIsRefused)
{
    startBus();

    EXPECT_FALSE(sut.sendTo("TraceLogger", nullptr, true));
    EXPECT_FALSE(sut.sendTo("", command("x"), true));
    EXPECT_FALSE(sut.sendTo(std::string(256, 'n'), command("x"), true));
    EXPECT_FALSE(sut.sendTo("TraceLogger", command(std::string(65535 - 15, 'x')), true));

    EXPECT_TRUE(sut.sendTo(std::string(255, 'n'), command("last"), false));
    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all()[1], message(std::string(255, 'n'), "last"));
}

TEST_F(VQPBusProxyTest, LongestMessageIsSentAndReceived)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);
    const std::string text(65535 - 16, 'x');

    EXPECT_TRUE(sut.sendTo("TraceLogger", command(text), false));
    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all()[1], message("TraceLogger", text));
    deliverAndAwait(callback, text);

    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, CallbackIsAddedOnce)
{
    startBus();
    RecordingBusCallback callback;

    EXPECT_TRUE(sut.setCallBack(callback));
    EXPECT_FALSE(sut.setCallBack(callback));

    sut.removeCallBack(callback);
    EXPECT_TRUE(sut.setCallBack(callback));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, UnknownCallbackMayBeRemoved)
{
    RecordingBusCallback callback;

    sut.removeCallBack(callback);
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, RemovingConnectsNothing)
{
    startBus();
    RecordingBusCallback callback;

    sut.removeCallBack(callback);
    sut.sendTo("TraceLogger", command("first"), false);

    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.count(), 2U);
}

TEST_F(VQPBusProxyTest, MessageReachesEveryCallbackWithItsNames)
{
    startBus();
    RecordingBusCallback first;
    RecordingBusCallback second;
    connect(first);
    sut.setCallBack(second);
    const unsigned char payload[] = {0x22, 0xF1};
    const CANExtTraceMessage frame(11, 5, 2, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 2, 0x7E8, payload);

    bus->deliver("TraceLogger", "Diagnostic", frame);

    const std::string line = "TraceLogger>Diagnostic channel=2; id=0x7e8; type=standard; length=2; data= 22 f1";
    EXPECT_TRUE(first.waitFor(line));
    EXPECT_TRUE(second.waitFor(line));
    sut.removeCallBack(first);
    sut.removeCallBack(second);
}

TEST_F(VQPBusProxyTest, MessagesArriveInOrder)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);
    for (int i = 0; i < 1000; ++i) {
        bus->deliver("a", "b", *command(std::to_string(i)));
    }

    ASSERT_TRUE(callback.lines.waitForCount(1001));
    const auto lines = callback.lines.all();
    for (size_t i = 0; i < 1000; ++i) {
        EXPECT_EQ(lines[i + 1], "a>b command=19; text=" + std::to_string(i));
    }
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, PacketsThatAreNotUnderstoodAreSkipped)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);

    bus->sendPacket({1, 2, 3});
    bus->sendPacket({'V', 'Q', 1, 0x20, 0, 0});
    deliverAndAwait(callback, "good");

    EXPECT_EQ(callback.lines.count(), 2U);
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, DroppedMessagesAreAWarning)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);

    bus->sendPacket(wire::encodeBusDropped(17));
    bus->sendPacket(wire::encodeBusDropped(0x1'0000'0000));

    EXPECT_TRUE(callback.waitFor("status 1 17 the process bus has dropped 17 messages for this process"));
    EXPECT_TRUE(callback.waitFor("status 1 2147483647 the process bus has dropped 4294967296 messages for this "
                                 "process"));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, WithoutABusSendingFailsAndTheCallbacksAreToldOnce)
{
    RecordingBusCallback callback;
    const CapturedOutput output;
    sut.setCallBack(callback);

    EXPECT_FALSE(sut.sendTo("TraceLogger", command("x"), false));

    ASSERT_TRUE(callback.lines.waitForCount(1));
    sut.removeCallBack(callback);
    EXPECT_EQ(callback.lines.all(),
              std::vector<std::string>{"status 2 6 no process bus: No such device or address"});
}

TEST_F(VQPBusProxyTest, RegistrationMadeWithoutABusIsSentWhenThereIsOne)
{
    RecordingBusCallback callback;
    const CapturedOutput output;
    sut.setCallBack(callback);
    EXPECT_FALSE(sut.sendTo("TraceLogger", command("kept"), true));
    EXPECT_FALSE(sut.sendTo("TraceLogger", command("not kept"), false));

    startBus();

    ASSERT_TRUE(callback.waitFor(CONNECTED));
    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_TRUE(sut.sendTo("TraceLogger", command("last"), false));
    ASSERT_TRUE(bus->events.waitForCount(3));
    EXPECT_EQ(bus->events.all(),
              (std::vector{hello("Diagnostic"), message("TraceLogger", "kept"), message("TraceLogger", "last")}));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, RefusedHelloIsTriedAgain)
{
    startBus().refusal = EOPNOTSUPP;
    RecordingBusCallback callback;
    sut.setCallBack(callback);
    ASSERT_TRUE(callback.waitFor("status 2 95 no process bus: Operation not supported"));

    bus->refusal = 0;

    EXPECT_TRUE(callback.waitFor(CONNECTED));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, LostBusIsReportedAndJoinedAgainWithEveryRegistrationInOrder)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);
    sut.sendTo("TraceLogger", command("first"), true);
    sut.sendTo("TraceLogger", command("once"), false);
    sut.sendTo("Other", command("second"), true);
    ASSERT_TRUE(bus->events.waitForCount(4));
    bus->events.clear();

    bus->hangUp();

    ASSERT_TRUE(callback.waitFor(GONE));
    ASSERT_TRUE(callback.waitFor(CONNECTED_AGAIN));
    ASSERT_TRUE(bus->events.waitForCount(3));
    EXPECT_EQ(bus->events.all(),
              (std::vector{hello("Diagnostic"), message("TraceLogger", "first"), message("Other", "second")}));
    deliverAndAwait(callback, "after");
    EXPECT_EQ(callback.lines.all(), (std::vector<std::string>{CONNECTED, GONE, CONNECTED_AGAIN,
                                                              "TraceLogger>Diagnostic command=19; text=after"}));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, BusThatWasKilledAndStartedAgainIsJoinedAgain)
{
    startBus();
    RecordingBusCallback callback;
    const CapturedOutput output;
    connect(callback);
    sut.sendTo("TraceLogger", command("kept"), true);
    ASSERT_TRUE(bus->events.waitForCount(2));

    bus.reset();
    ASSERT_TRUE(callback.waitFor(GONE));
    EXPECT_FALSE(sut.sendTo("TraceLogger", command("lost"), false));
    startBus();

    ASSERT_TRUE(callback.waitFor(CONNECTED_AGAIN));
    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all(), (std::vector{hello("Diagnostic"), message("TraceLogger", "kept")}));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, SendOnALostConnectionJoinsAgainAtOnce)
{
    startBus();
    std::promise<void> entered;
    std::promise<void> mayLeave;
    RecordingBusCallback callback;
    callback.onMessage = [&] {
        entered.set_value();
        mayLeave.get_future().wait();
    };
    connect(callback);
    sut.sendTo("TraceLogger", command("kept"), true);
    bus->deliver("a", "b", *command("hold the bus thread"));
    entered.get_future().wait();
    ASSERT_TRUE(bus->events.waitForCount(2));
    bus->events.clear();
    bus->hangUp(); // the bus thread does not see it

    EXPECT_TRUE(sut.sendTo("TraceLogger", command("next"), false));

    ASSERT_TRUE(bus->events.waitForCount(3));
    EXPECT_EQ(bus->events.all(),
              (std::vector{hello("Diagnostic"), message("TraceLogger", "kept"), message("TraceLogger", "next")}));
    mayLeave.set_value();
    ASSERT_TRUE(callback.waitFor(CONNECTED_AGAIN));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, RegistrationThatIsSentTwiceIsKeptOnce)
{
    startBus();
    RecordingBusCallback callback;
    connect(callback);
    sut.sendTo("TraceLogger", command("same"), true);
    sut.sendTo("TraceLogger", command("same"), true);
    ASSERT_TRUE(bus->events.waitForCount(3));
    bus->events.clear();

    bus->hangUp();
    ASSERT_TRUE(callback.waitFor(CONNECTED_AGAIN));
    sut.sendTo("TraceLogger", command("last"), false);

    ASSERT_TRUE(bus->events.waitForCount(3));
    EXPECT_EQ(bus->events.all(),
              (std::vector{hello("Diagnostic"), message("TraceLogger", "same"), message("TraceLogger", "last")}));
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, RemovalWaitsForARunningCall)
{
    startBus();
    std::promise<void> entered;
    std::promise<void> mayLeave;
    std::atomic<bool> left{false};
    RecordingBusCallback callback;
    callback.onMessage = [&] {
        entered.set_value();
        mayLeave.get_future().wait();
        left = true;
    };
    connect(callback);
    bus->deliver("a", "b", *command("x"));
    entered.get_future().wait();

    std::promise<void> removing;
    std::thread remover([&] {
        removing.set_value();
        sut.removeCallBack(callback);
        EXPECT_TRUE(left);
    });
    removing.get_future().wait();
    mayLeave.set_value();
    remover.join();
}

TEST_F(VQPBusProxyTest, RemovedCallbackIsNotCalledAgain)
{
    startBus();
    RecordingBusCallback removed;
    RecordingBusCallback other;
    connect(removed);
    sut.setCallBack(other);
    deliverAndAwait(removed, "first");

    sut.removeCallBack(removed);
    const size_t before = removed.lines.count();
    deliverAndAwait(other, "second");

    EXPECT_EQ(removed.lines.count(), before);
    sut.removeCallBack(other);
}

TEST_F(VQPBusProxyTest, CallbackMayRemoveItselfAndOthersFromInsideACall)
{
    startBus();
    RecordingBusCallback last;
    auto first = std::make_unique<RecordingBusCallback>();
    auto second = std::make_unique<RecordingBusCallback>();
    std::promise<void> removed;
    const auto removeBoth = [&] {
        sut.removeCallBack(*first);
        sut.removeCallBack(*second);
        removed.set_value();
    };
    first->onMessage = removeBoth;
    second->onMessage = removeBoth;
    connect(*first);
    sut.setCallBack(*second);

    bus->deliver("a", "b", *command("x"));
    removed.get_future().wait();

    EXPECT_EQ(first->lines.count() + second->lines.count() > 0, true);
    sut.setCallBack(last);
    deliverAndAwait(last, "alive");
    sut.removeCallBack(last);
}

TEST_F(VQPBusProxyTest, CallbackMayAddAnotherAndSendFromInsideACall)
{
    startBus();
    RecordingBusCallback added;
    RecordingBusCallback callback;
    callback.onMessage = [&] {
        sut.setCallBack(added);
        sut.sendTo("Other", command("from inside"), false);
    };
    connect(callback);

    bus->deliver("a", "b", *command("x"));

    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all()[1], message("Other", "from inside"));
    deliverAndAwait(added, "both");
    sut.removeCallBack(callback); // first, since it adds the other one again
    sut.removeCallBack(added);
}

TEST_F(VQPBusProxyTest, ExceptionOutOfACallbackIsSaidAndTheBusGoesOn)
{
    startBus();
    RecordingBusCallback throwing;
    RecordingBusCallback other;
    throwing.onMessage = [] { throw BufferMismatchException("CANTraceMessageBase too long"); };
    connect(throwing);
    sut.setCallBack(other);
    CapturedOutput output;

    deliverAndAwait(throwing, "first");
    ASSERT_TRUE(other.waitFor("TraceLogger>Diagnostic command=19; text=first"));
    deliverAndAwait(throwing, "second");
    sut.removeCallBack(throwing);
    sut.removeCallBack(other);

    const std::string line = "[ERROR] process bus: exception out of a callback: CANTraceMessageBase too long\n";
    EXPECT_EQ(output.err(), line + line);
    EXPECT_EQ(output.out(), "");
}

TEST_F(VQPBusProxyTest, UnknownExceptionOutOfAStatusReportIsSaidToo)
{
    startBus();
    RecordingBusCallback callback;
    callback.onStatus = [] { throw 17; };
    CapturedOutput output;

    connect(callback);
    deliverAndAwait(callback, "alive");
    sut.removeCallBack(callback);

    EXPECT_EQ(output.err(), "[ERROR] process bus: exception out of a callback: unknown\n");
}

TEST_F(VQPBusProxyTest, SendersAddersAndRemoversMayComeFromManyThreads)
{
    startBus();
    RecordingBusCallback steady;
    connect(steady);
    std::atomic<bool> stop{false};
    std::vector<std::thread> users;
    for (int i = 0; i < 4; ++i) {
        users.emplace_back([&] {
            while (!stop) {
                RecordingBusCallback passing;
                sut.setCallBack(passing);
                sut.sendTo("Other", command("x"), false);
                sut.removeCallBack(passing);
            }
        });
    }
    for (int i = 0; i < 300; ++i) {
        bus->deliver("a", "b", *command(std::to_string(i)));
    }
    ASSERT_TRUE(steady.lines.waitForCount(301));
    stop = true;
    for (std::thread& user : users) {
        user.join();
    }

    EXPECT_EQ(steady.lines.count(), 301U);
    sut.removeCallBack(steady);
}

TEST_F(VQPBusProxyTest, WithoutRoomForTheBusThreadMessagesAreSentAndThatIsSaidOnce)
{
    startBus();
    RecordingBusCallback callback;
    CapturedOutput output;
    {
        const NoRoomForThreads noRoom;
        EXPECT_TRUE(sut.setCallBack(callback));
        EXPECT_TRUE(sut.sendTo("TraceLogger", command("sent"), false));
    }
    ASSERT_TRUE(bus->events.waitForCount(2));
    EXPECT_EQ(bus->events.all()[1], message("TraceLogger", "sent"));
    EXPECT_EQ(callback.lines.count(), 0U);
    EXPECT_EQ(output.err(),
              "[ERROR] process bus: cannot start its thread: Resource temporarily unavailable; nothing "
              "is received until a later call succeeds\n");
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, BusThreadThatDidNotStartIsStartedByTheNextCall)
{
    startBus();
    RecordingBusCallback callback;
    CapturedOutput output;
    {
        const NoRoomForThreads noRoom;
        EXPECT_TRUE(sut.setCallBack(callback));
    }

    EXPECT_TRUE(sut.sendTo("TraceLogger", command("next"), false));

    ASSERT_TRUE(callback.waitFor(CONNECTED));
    deliverAndAwait(callback, "received");
    sut.removeCallBack(callback);
}

TEST_F(VQPBusProxyTest, ForkedChildHasNoPlaceOnTheBusAndEndsAtOnce)
{
    startBus();
    std::promise<void> entered;
    std::promise<void> mayLeave;
    // Removed by its destructor, as an interface with static storage is.
    struct StaticCallback : RecordingBusCallback
    {
        ~StaticCallback() override { VQPBusProxy::getInstance()->removeCallBack(*this); }
    };
    static StaticCallback callback;
    callback.onMessage = [&] {
        entered.set_value();
        mayLeave.get_future().wait();
    };
    connect(callback);
    bus->deliver("a", "b", *command("hold the bus thread"));
    entered.get_future().wait();

    const pid_t child = fork();
    if (child == 0) {
        RecordingBusCallback other;
        const bool isAdded = VQPBusProxy::getInstance()->setCallBack(other);
        const bool isSent = VQPBusProxy::getInstance()->sendTo("TraceLogger", command("x"), true);
        std::exit(isAdded || isSent ? 1 : 0);
    }
    int status = -1;
    EXPECT_TRUE(becomesTrue([&] { return waitpid(child, &status, WNOHANG) == child; }));
    if (status == -1) {
        kill(child, SIGKILL);
        waitpid(child, &status, 0);
    }
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);

    mayLeave.set_value();
    EXPECT_TRUE(sut.sendTo("TraceLogger", command("the parent goes on"), false));
    sut.removeCallBack(callback);
}
