#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>

#include <ethernet/BrokenPipeGuard.h>

#include <cerrno>
#include <csignal>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using ethernet::BrokenPipeGuard;

volatile std::sig_atomic_t handled = 0;

bool isPending(int signalNumber)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, signalNumber) == 1;
}

bool isBlocked(int signalNumber)
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signalNumber) == 1;
}

void block(int signalNumber)
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, signalNumber);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

/// A stream whose other end is closed.
class BrokenStream
{
public:
    BrokenStream()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        fd = ends[0];
        close(ends[1]);
    }
    ~BrokenStream() { close(fd); }
    BrokenStream(const BrokenStream&) = delete;
    BrokenStream& operator=(const BrokenStream&) = delete;

    /// Writes under a guard.
    void write(bool guarded) const
    {
        BrokenPipeGuard guard(guarded);
        const char byte = 0;
        EXPECT_EQ(::send(fd, &byte, 1, 0), -1);
        EXPECT_EQ(errno, EPIPE);
        guard.writeBrokePipe();
    }

private:
    int fd = -1;
};

TEST(BrokenPipeGuardTest, TakesTheSignalAndRestoresTheMaskAndErrno)
{
    const BrokenStream stream;
    stream.write(true);
    EXPECT_EQ(errno, EPIPE);
    EXPECT_FALSE(isBlocked(SIGPIPE));
    EXPECT_FALSE(isPending(SIGPIPE));
}

TEST(BrokenPipeGuardTest, LeavesASignalThatWaitedBefore)
{
    block(SIGPIPE);
    pthread_kill(pthread_self(), SIGPIPE);
    const BrokenStream stream;
    stream.write(true);
    EXPECT_TRUE(isBlocked(SIGPIPE));
    EXPECT_TRUE(isPending(SIGPIPE));
}

TEST(BrokenPipeGuardTest, TakesTheSignalOfAThreadThatBlocksIt)
{
    block(SIGPIPE);
    const BrokenStream stream;
    stream.write(true);
    EXPECT_TRUE(isBlocked(SIGPIPE));
    EXPECT_FALSE(isPending(SIGPIPE));
}

TEST(BrokenPipeGuardTest, InactiveGuardLeavesTheSignalToItsHandler)
{
    std::signal(SIGPIPE, [](int) { handled = handled + 1; });
    const BrokenStream stream;
    stream.write(false);
    EXPECT_EQ(handled, 1);
}

TEST(BrokenPipeGuardTest, OnlyTheDefaultActionIsFatal)
{
    EXPECT_TRUE(ethernet::brokenPipeIsFatal());
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_FALSE(ethernet::brokenPipeIsFatal());
    std::signal(SIGPIPE, [](int) {});
    EXPECT_FALSE(ethernet::brokenPipeIsFatal());
    struct sigaction action = {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t*, void*) {};
    sigaction(SIGPIPE, &action, nullptr);
    EXPECT_FALSE(ethernet::brokenPipeIsFatal());
    std::signal(SIGPIPE, SIG_DFL);
    EXPECT_TRUE(ethernet::brokenPipeIsFatal());
}

class BrokenPipeTest : public EthernetTest
{
protected:
    BrokenPipeTest() { failing::skipPauses(); }

    /// Sends until the closed connection shows: the first write after the server's reset still succeeds.
    int sendIntoClosedConnection()
    {
        const Bytes bytes = {1};
        int result = 0;
        while (result == 0) {
            result = sut->send(bytes.data(), bytes.size());
        }
        return result;
    }

    /// A connection whose server has gone, with the receive thread kept in its first pause, so that it stays open.
    void loseServer(ScriptedTcpServer& server)
    {
        connectTo(tcp(server.port()));
        loseConnection(server, 1);
    }

    /// The same for the connection with this number, which is there already.
    void loseConnection(ScriptedTcpServer& server, size_t number)
    {
        failing::stopAtPause(1);
        ASSERT_TRUE(server.accepted.waitForCount(number));
        server.closeClient();
        failing::awaitStoppedPause();
        takeLines();
    }
    ~BrokenPipeTest() override { failing::endStoppedPause(); }
};

TEST_F(BrokenPipeTest, SendToAClosedServerIsALossAndNotTheEndOfTheProcess)
{
    ScriptedTcpServer server(Script::SINK);
    loseServer(server);
    EXPECT_EQ(sendIntoClosedConnection(), -3);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
    EXPECT_TRUE(callback.awaitStatus(3, 2));
    EXPECT_EQ(takeLines().back(), "{status 3}");
    EXPECT_FALSE(isPending(SIGPIPE));
    EXPECT_FALSE(isBlocked(SIGPIPE));
}

TEST_F(BrokenPipeTest, ApplicationThatHandlesTheSignalSeesIt)
{
    std::signal(SIGPIPE, [](int) { handled = handled + 1; });
    ScriptedTcpServer server(Script::SINK);
    loseServer(server);
    EXPECT_EQ(sendIntoClosedConnection(), -3);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
    EXPECT_GE(handled, 1);
}

TEST_F(BrokenPipeTest, ApplicationThatIgnoresTheSignalIsLeftAlone)
{
    std::signal(SIGPIPE, SIG_IGN);
    ScriptedTcpServer server(Script::SINK);
    loseServer(server);
    EXPECT_EQ(sendIntoClosedConnection(), -3);
    struct sigaction action = {};
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST_F(BrokenPipeTest, ActionIsNotedAnewAtEachConnect)
{
    std::signal(SIGPIPE, SIG_IGN);
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    std::signal(SIGPIPE, SIG_DFL);
    ASSERT_TRUE(sut->connect());
    loseConnection(server, 2);
    EXPECT_EQ(sendIntoClosedConnection(), -3);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
}

TEST_F(BrokenPipeTest, HandlerInstalledBetweenConnectionsSeesTheSignal)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    const int handledBefore = handled;
    std::signal(SIGPIPE, [](int) { handled = handled + 1; });
    ASSERT_TRUE(sut->connect());
    loseConnection(server, 2);
    EXPECT_EQ(sendIntoClosedConnection(), -3);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
    EXPECT_GT(handled, handledBefore);
}

} // namespace
