#include "ProxyTest.h"

#include <vqtrace/CANExtTraceMessage.h>
#include <vqutil/VQException.h>

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>

#include <atomic>
#include <future>
#include <thread>

using namespace busproxy;

namespace {

using VQPBusProxyTest = ProxyTest;

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
