#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>
#include <support/PrivateMember.h>
#include <support/ProcessResources.h>
#include <support/Waiting.h>

#include <vqutil/LogUtil.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

REVEAL_MEMBER(ThreadRxThreadRunning, EthernetInterface, rxThreadRunning);

namespace {

using testing::ElementsAre;

/// Calls a function of the test on the receive thread, once, at the status it waits for.
class Intervening : public InterfaceBaseCb
{
public:
    Intervening(int wantedStatus, std::function<void()> wantedAction)
        : status(wantedStatus), action(std::move(wantedAction))
    {
    }

    void onDataReceived(const uint8_t*, size_t) override {}

    void onInterfaceState(int raised) override
    {
        if (raised == status && std::this_thread::get_id() != application && left != 0) {
            --left;
            action();
            done.add(1);
        }
    }

    std::atomic<size_t> left{1};
    Recorder<int> done;

private:
    const int status;
    const std::function<void()> action;
    const std::thread::id application = std::this_thread::get_id();
};

/// Start, end and restart of the receive thread.
class EthernetInterfaceThreadTest : public EthernetTest
{
protected:
    EthernetInterfaceThreadTest()
    {
        failing::skipPauses();
        sut->logLevel = 0;
    }

    bool threadRuns() const { return (*sut).*reveal(ThreadRxThreadRunning{}); }

    void expectExchange()
    {
        const size_t before = callback.received.count();
        const Bytes bytes = {1, 2, 3};
        EXPECT_EQ(sut->send(bytes.data(), bytes.size()), 0);
        EXPECT_TRUE(callback.received.waitForCount(before + 1));
    }

    EthernetInterface* interface = nullptr;
    const std::string exitLine = "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread.";
    const std::string startLine = "[INFO] ETH[127.0.0.1:PORT]::threadCode() Start RX thread.";
};

TEST_F(EthernetInterfaceThreadTest, EndedThreadIsJoinedBeforeTheNextOneStarts)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    const size_t threads = processresources::threads();
    for (size_t round = 1; round <= 5; ++round) {
        ASSERT_TRUE(server.accepted.waitForCount(round));
        server.closeClient();
        ASSERT_TRUE(await(exitLine, round));
        ASSERT_TRUE(sut->connect());
        ASSERT_TRUE(await(startLine, round));
        EXPECT_LE(processresources::settledThreads(threads), threads);
    }
    expectExchange();
}

TEST_F(EthernetInterfaceThreadTest, ThreadThatLosesTheServerMayReconnectInItsLastCallback)
{
    ScriptedTcpServer server(Script::ECHO);
    std::promise<bool> connected;
    Intervening intervening(2, [&] { connected.set_value(sut->connect()); });
    sut->callbacks.insert(&intervening);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    EXPECT_TRUE(connected.get_future().get());
    ASSERT_TRUE(await(exitLine));
    EXPECT_TRUE(threadRuns());
    expectExchange();
    // The old handle was set aside; the next connect from here joins it.
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->connect());
    expectExchange();
    sut.reset();
}

TEST_F(EthernetInterfaceThreadTest, ThreadsThatAlwaysReconnectThemselvesDoNotPileUp)
{
    ScriptedTcpServer server(Script::ECHO);
    Intervening intervening(2, [&] { sut->connect(); });
    intervening.left = 20;
    sut->callbacks.insert(&intervening);
    connectTo(tcp(server.port()));
    const size_t threads = processresources::threads();
    for (size_t round = 1; round <= 20; ++round) {
        ASSERT_TRUE(server.accepted.waitForCount(round));
        server.closeClient();
        ASSERT_TRUE(intervening.done.waitForCount(round));
        ASSERT_TRUE(await(exitLine, round));
    }
    EXPECT_LE(processresources::settledThreads(threads + 1), threads + 1);
    expectExchange();
    sut.reset();
    EXPECT_LE(processresources::settledThreads(threads - 1), threads - 1);
}

TEST_F(EthernetInterfaceThreadTest, DestructorJoinsAThreadThatWasSetAside)
{
    ScriptedTcpServer server(Script::ECHO);
    Intervening intervening(2, [&] { sut->connect(); });
    sut->callbacks.insert(&intervening);
    const size_t threads = processresources::threads();
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    ASSERT_TRUE(intervening.done.waitForCount(1));
    sut.reset();
    EXPECT_EQ(lines.count("[INFO] ETH[127.0.0.1:" + port + "]::threadCode() Exit RX thread."), 2u);
    EXPECT_EQ(processresources::settledThreads(threads), threads);
}

TEST_F(EthernetInterfaceThreadTest, ConnectWaitsForTheLastCallbackAndFindsWhatItConnected)
{
    ScriptedTcpServer server(Script::ECHO);
    std::promise<void> inCallback;
    std::promise<void> mayGoOn;
    Intervening intervening(2, [&] {
        inCallback.set_value();
        mayGoOn.get_future().wait();
        sut->connect();
    });
    sut->callbacks.insert(&intervening);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    inCallback.get_future().wait();
    auto application = std::async(std::launch::async, [&] { return sut->connect(); });
    // The join cannot return before the callback does.
    EXPECT_TRUE(failing::joins.waitForCount(1));
    EXPECT_EQ(application.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    const size_t threads = processresources::threads();
    mayGoOn.set_value();
    EXPECT_TRUE(application.get());
    EXPECT_EQ(lines.count("[INFO] ETH[127.0.0.1:" + port + "]::connect() Already connected."), 1u);
    expectExchange();
    EXPECT_EQ(server.accepted.count(), 2u);
    // In place of the ended thread and of the application's one there is the new receive thread.
    EXPECT_EQ(processresources::settledThreads(threads - 1), threads - 1);
    sut.reset();
}

TEST_F(EthernetInterfaceThreadTest, ThreadThatStartsAfterTheDisconnectEndsAndTheNextConnectStartsAnother)
{
    const ScriptedTcpServer server(Script::ECHO);
    failing::holdNextThread();
    ASSERT_EQ(configure(tcp(server.port())), 1);
    ASSERT_TRUE(sut->disconnect());
    takeLines();
    failing::releaseHeldThread();
    const std::string notConnected =
        "[ERROR] ETH[127.0.0.1:PORT]::threadCode() Interface isn't connected! Exit thread.";
    ASSERT_TRUE(await(notConnected));
    EXPECT_FALSE(threadRuns());
    EXPECT_THAT(takeLines(), ElementsAre(notConnected));
    ASSERT_TRUE(sut->connect());
    ASSERT_TRUE(await(startLine));
    expectExchange();
}

TEST_F(EthernetInterfaceThreadTest, NewSocketOutlivesTheEndOfTheThreadThatLostTheOldOne)
{
    // The application reconnects while the thread is in the pause after the tenth empty reception: the thread must
    // not take the new socket for the one that it lost.
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    failing::stopAtPause(10);
    server.closeClient();
    failing::awaitStoppedPause();
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->connect());
    failing::endStoppedPause();
    expectExchange();
    EXPECT_TRUE(threadRuns());
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 5, 2, 1));
}

TEST_F(EthernetInterfaceThreadTest, DisconnectDuringTheTenthPauseEndsTheThreadWithoutAnotherStatus)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    failing::stopAtPause(10);
    server.closeClient();
    failing::awaitStoppedPause();
    ASSERT_TRUE(sut->disconnect());
    takeLines();
    failing::endStoppedPause();
    ASSERT_TRUE(await(exitLine));
    EXPECT_THAT(takeLines(),
                ElementsAre("[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", exitLine));
    EXPECT_FALSE(threadRuns());
    ASSERT_TRUE(sut->connect());
    expectExchange();
}

TEST_F(EthernetInterfaceThreadTest, ConcurrentConnectsGiveOneConnectionAndOneThread)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    const size_t threads = processresources::threads();
    const size_t descriptors = processresources::openDescriptors();
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(sut->disconnect());
        auto other = std::async(std::launch::async, [&] { return sut->connect(); });
        EXPECT_TRUE(sut->connect());
        EXPECT_TRUE(other.get());
    }
    expectExchange();
    EXPECT_LE(processresources::settledThreads(threads), threads);
    // Beside the interface's socket only the server's ends of the connections that the last rounds closed.
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(server.closed.waitForCount(server.accepted.count()));
    EXPECT_LT(processresources::settledDescriptors(descriptors - 1), descriptors);
}

TEST_F(EthernetInterfaceThreadTest, ConcurrentDisconnectsCloseOnce)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    for (size_t round = 1; round <= 20; ++round) {
        auto other = std::async(std::launch::async, [&] { return sut->disconnect(); });
        EXPECT_TRUE(sut->disconnect());
        EXPECT_TRUE(other.get());
        EXPECT_EQ(callback.statuses.waitUntil([&](const std::vector<int>& all) {
            return std::count(all.begin(), all.end(), 2) == static_cast<std::ptrdiff_t>(round);
        }),
                  true);
        ASSERT_TRUE(sut->connect());
    }
    expectExchange();
}

TEST_F(EthernetInterfaceThreadTest, ConcurrentDatagramConnectsDisconnectsAndSendsNeverMeetABusyPort)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    const size_t threads = processresources::threads();
    const size_t descriptors = processresources::openDescriptors();
    const auto changes = [&] {
        for (int round = 0; round < 200; ++round) {
            sut->disconnect();
            EXPECT_TRUE(sut->connect());
        }
    };
    auto one = std::async(std::launch::async, changes);
    auto two = std::async(std::launch::async, changes);
    const Bytes bytes = {1};
    for (int round = 0; round < 200; ++round) {
        // 0, or -3 when the socket was closed between the look at it and the call; a connect never fails.
        EXPECT_NE(sut->send(bytes.data(), bytes.size()), -1);
    }
    one.get();
    two.get();
    // Both ends of the exchange still stand on their port.
    expectExchange();
    EXPECT_EQ(processresources::settledThreads(threads), threads);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
}

TEST_F(EthernetInterfaceThreadTest, DestructionOfADisconnectedObjectStopsItsThread)
{
    std::thread([] {}).join(); // with the first thread a sanitizer starts one of its own, which stays
    const size_t threads = processresources::threads();
    connectTo(udp(ScriptedUdpServer(Script::SINK).port()));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(threadRuns());
    takeLines();
    destroy();
    EXPECT_EQ(takeLines(),
              (Lines{"[INFO] ETH[127.0.0.2:PORT]::disconnect() Already disconnected.",
                     "[INFO] ETH[127.0.0.2:PORT]::threadCode() Exit RX thread.",
                     "[INFO] ETH[127.0.0.2:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"}));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2));
    EXPECT_LE(processresources::settledThreads(threads), threads);
}

TEST_F(EthernetInterfaceThreadTest, CallbackDuringDestructionCannotReconnect)
{
    ScriptedTcpServer server(Script::ECHO);
    interface = sut.get();
    int result = 0;
    Intervening intervening(2, [&] {
        const Bytes bytes = {1};
        result = interface->send(bytes.data(), bytes.size());
    });
    sut->callbacks.insert(&intervening);
    const size_t descriptors = processresources::openDescriptors();
    connectTo(tcp(server.port()));
    destroy();
    EXPECT_EQ(result, -1);
    EXPECT_EQ(takeLines(),
              (Lines{"[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}",
                     "[WARNING] ETH[127.0.0.1:PORT]::send() Interface isn't connected, try to connect...",
                     "[ERROR] ETH[127.0.0.1:PORT]::connect() Can't connect, interface isn't configured.",
                     "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread.",
                     "[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"}));
    ASSERT_TRUE(server.closed.waitForCount(1));
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
}

TEST_F(EthernetInterfaceThreadTest, CallbackThatIsConnectingWhenTheDestructionBeginsStartsNoThread)
{
    ScriptedTcpServer server(Script::SINK);
    interface = sut.get();
    bool connected = false;
    Intervening intervening(5, [&] {
        interface->disconnect();
        failing::socketCall.holdNext(true);
        connected = interface->connect();
    });
    sut->callbacks.insert(&intervening);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.send({1});
    ASSERT_TRUE(failing::socketCall.awaitHeld());
    takeLines();
    auto destruction = std::async(std::launch::async, [this] { destroy(); });
    ASSERT_TRUE(failing::joins.waitForCount(1));
    failing::socketCall.release();
    destruction.get();
    EXPECT_TRUE(connected);
    EXPECT_EQ(takeLines(),
              (Lines{"{status 1}", "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}", exitLine,
                     "[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"}));
}

TEST_F(EthernetInterfaceThreadTest, DestructionThatBeginsRightBeforeANewThreadPreventsIt)
{
    ScriptedTcpServer server(Script::SINK);
    interface = sut.get();
    bool connected = false;
    Intervening intervening(2, [&] {
        failing::setsockoptCall.holdNext(true);
        connected = interface->connect();
    });
    sut->callbacks.insert(&intervening);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    const size_t creations = failing::pthreadCreateCall.calls;
    server.closeClient();
    ASSERT_TRUE(failing::setsockoptCall.awaitHeld());
    std::future<void> destruction;
    {
        // The callback's next line is the one that announces the thread; it waits there.
        const MutexLock lock(LogUtil::logMutex);
        failing::setsockoptCall.release();
        ASSERT_TRUE(becomesTrue([this] { return threadRuns(); }));
        destruction = std::async(std::launch::async, [this] { destroy(); });
        ASSERT_TRUE(failing::joins.waitForCount(1));
    }
    destruction.get();
    EXPECT_TRUE(connected);
    EXPECT_EQ(failing::pthreadCreateCall.calls, creations);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 5, 2, 1, 2));
    ASSERT_TRUE(server.closed.waitForCount(1));
}

} // namespace
