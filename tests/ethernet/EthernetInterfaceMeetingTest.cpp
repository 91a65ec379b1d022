#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>
#include <support/LogLock.h>
#include <support/PrivateMember.h>
#include <support/ThreadState.h>
#include <support/Waiting.h>

#include <vqutil/LogUtil.h>

#include <future>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

REVEAL_MEMBER(MeetingFd, EthernetInterface, socketFd);

namespace {

using testing::AnyOf;
using testing::ElementsAre;

/// A call in a thread of its own, which is known.
template <typename Result>
struct call_t
{
    std::future<Result> result;
    pid_t thread;
};

template <typename Function>
auto inOtherThread(Function function)
{
    std::promise<pid_t> started;
    std::future<pid_t> thread = started.get_future();
    auto result = std::async(std::launch::async, [function, started = std::move(started)]() mutable {
        started.set_value(gettid());
        return function();
    });
    return call_t<decltype(function())>{std::move(result), thread.get()};
}

/// Two threads that meet at one place: one is held in a system call or at a line while the other comes.
class EthernetInterfaceMeetingTest : public EthernetTest
{
protected:
    EthernetInterfaceMeetingTest()
    {
        failing::skipPauses();
        sut->logLevel = 0;
    }

    int fd() const { return (*sut).*reveal(MeetingFd{}); }

    int sendThree() { return sut->send(three.data(), three.size()); }

    void expectExchange()
    {
        EXPECT_EQ(sendThree(), 0);
        EXPECT_TRUE(callback.received.waitForCount(1));
    }

    size_t alreadyConnected() const
    {
        return lines.count("[INFO] ETH[" + serverIp + ":" + port + "]::connect() Already connected.");
    }

    const Bytes three = {1, 2, 3};
};

TEST_F(EthernetInterfaceMeetingTest, ConnectWaitsUntilTheSocketBeforeIsClosed)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    auto closer = inOtherThread([this] {
        failing::closeCall.holdNext(true);
        return sut->disconnect();
    });
    ASSERT_TRUE(failing::closeCall.awaitHeld());
    const size_t sockets = failing::socketCall.calls;
    auto connector = inOtherThread([this] { return sut->connect(); });
    EXPECT_TRUE(fallsAsleep(connector.thread));
    EXPECT_EQ(failing::socketCall.calls, sockets) << "the port is not free yet";
    failing::closeCall.release();
    EXPECT_TRUE(closer.result.get());
    EXPECT_TRUE(connector.result.get());
    EXPECT_EQ(alreadyConnected(), 0u);
    expectExchange();
}

TEST_F(EthernetInterfaceMeetingTest, DatagramConnectWaitsForAnotherThatIsBinding)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    auto first = inOtherThread([this] {
        failing::bindCall.holdNext(true);
        return sut->connect();
    });
    ASSERT_TRUE(failing::bindCall.awaitHeld());
    const size_t sockets = failing::socketCall.calls;
    auto second = inOtherThread([this] { return sut->connect(); });
    EXPECT_TRUE(fallsAsleep(second.thread));
    failing::bindCall.release();
    EXPECT_TRUE(first.result.get());
    EXPECT_TRUE(second.result.get());
    EXPECT_EQ(failing::socketCall.calls, sockets);
    EXPECT_EQ(alreadyConnected(), 1u);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2, 1));
    expectExchange();
}

TEST_F(EthernetInterfaceMeetingTest, StreamConnectThatTheServerKeepsWaitingHoldsNobodyUpAndGivesWay)
{
    const ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    auto slow = inOtherThread([this] {
        failing::connectCall.holdNext(true);
        return sut->connect();
    });
    ASSERT_TRUE(failing::connectCall.awaitHeld());
    EXPECT_TRUE(sut->connect());
    const int connected = fd();
    EXPECT_EQ(alreadyConnected(), 0u);
    failing::connectCall.release();
    EXPECT_TRUE(slow.result.get());
    EXPECT_EQ(alreadyConnected(), 1u);
    EXPECT_EQ(fd(), connected);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2, 1));
    expectExchange();
}

TEST_F(EthernetInterfaceMeetingTest, CloseWaitsForADatagramThatIsBeingSent)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    auto sender = inOtherThread([this] {
        failing::sendtoCall.holdNext(true);
        return sendThree();
    });
    ASSERT_TRUE(failing::sendtoCall.awaitHeld());
    const size_t closed = failing::closeCall.calls;
    auto closer = inOtherThread([this] { return sut->disconnect(); });
    ASSERT_TRUE(becomesTrue([this] { return fd() == -1; }));
    EXPECT_TRUE(fallsAsleep(closer.thread));
    EXPECT_EQ(failing::closeCall.calls, closed) << "the number would stand for another file";
    failing::sendtoCall.release();
    EXPECT_THAT(sender.result.get(), AnyOf(0, -3)) << "the system decides if it sends after a shutdown";
    EXPECT_TRUE(closer.result.get());
    EXPECT_EQ(failing::closeCall.calls, closed + 1);
}

TEST_F(EthernetInterfaceMeetingTest, DatagramWhoseSocketIsTakenBeforeItsCallIsALoss)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 2;
    call_t<int> sender;
    call_t<bool> closer;
    {
        // The sender has found the interface connected when it comes to show the bytes.
        const MutexLock lock(LogUtil::logMutex);
        const size_t requests = loglock::requests();
        sender = inOtherThread([this] { return sendThree(); });
        ASSERT_TRUE(becomesTrue([requests] { return loglock::requests() > requests; }));
        closer = inOtherThread([this] { return sut->disconnect(); });
        ASSERT_TRUE(becomesTrue([this] { return fd() == -1; }));
    }
    EXPECT_EQ(sender.result.get(), -3);
    EXPECT_TRUE(closer.result.get());
    EXPECT_EQ(failing::sendtoCall.calls, 0u);
    EXPECT_TRUE(await("[ERROR] ETH[127.0.0.2:PORT]::send() Data loss, _dataSize=3; dataSize=-1"));
    EXPECT_TRUE(callback.awaitStatus(3));
}

TEST_F(EthernetInterfaceMeetingTest, EndOfAStreamThatADisconnectMakesIsNoLossOfTheServer)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    failing::recvCall.holdNext();
    server.send(three);
    ASSERT_TRUE(failing::recvCall.awaitHeld());
    // With what has woken it gone, the reception meets nothing but the end.
    Bytes gone(three.size());
    ASSERT_EQ(recv(fd(), gone.data(), gone.size(), 0), static_cast<ssize_t>(gone.size()));
    auto closer = inOtherThread([this] { return sut->disconnect(); });
    ASSERT_TRUE(server.closed.waitForCount(1));
    const size_t waits = failing::pselectCall.calls;
    failing::recvCall.release();
    EXPECT_TRUE(closer.result.get());
    ASSERT_TRUE(becomesTrue([waits] { return failing::pselectCall.calls > waits; }));
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
    EXPECT_EQ(failing::pauses, 0u);
}

} // namespace
