#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>
#include <support/PrivateMember.h>
#include <support/ProcessResources.h>

#include <cerrno>

#include <sys/resource.h>

REVEAL_MEMBER(FailureSocketFd, EthernetInterface, socketFd);
REVEAL_MEMBER(FailureRxThreadRunning, EthernetInterface, rxThreadRunning);

namespace {

using testing::ElementsAre;

/// Each system call fails once at each place: the line, the result, and the object works afterwards.
class EthernetInterfaceFailureTest : public EthernetTest
{
protected:
    EthernetInterfaceFailureTest() { failing::skipPauses(); }

    /// A configured interface that is not connected, and no line so far.
    void disconnectedFrom(const EthernetInterface::Configuration& configuration)
    {
        connectTo(configuration);
        ASSERT_TRUE(sut->disconnect());
        sut->logLevel = 0;
        takeLines();
    }

    /// How many descriptors are open while the server has no client.
    static size_t descriptorsBesides(const ScriptedTcpServer& server)
    {
        EXPECT_TRUE(server.closed.waitForCount(1));
        return processresources::openDescriptors();
    }

    int fd() const { return (*sut).*reveal(FailureSocketFd{}); }
    bool threadRuns() const { return (*sut).*reveal(FailureRxThreadRunning{}); }

    /// Bytes go to the server and back.
    void expectExchange()
    {
        const size_t before = callback.received.count();
        const Bytes bytes = {1, 2, 3};
        EXPECT_EQ(sut->send(bytes.data(), bytes.size()), 0);
        EXPECT_TRUE(callback.received.waitForCount(before + 1));
    }

    const std::string tryTcp =
        "[INFO] ETH[127.0.0.1:PORT]::connect() Try connect to server: interfaceName=eth1; serverIp=127.0.0.1; "
        "loggerIp=127.0.0.1; subnet=255.0.0.0; gatewayIp=127.0.0.254; port=PORT; useTcp=1";
    const std::string tryUdp =
        "[INFO] ETH[127.0.0.2:PORT]::connect() Try connect to server: interfaceName=eth1; serverIp=127.0.0.2; "
        "loggerIp=127.0.0.1; subnet=255.0.0.0; gatewayIp=127.0.0.254; port=PORT; useTcp=0";
};

TEST_F(EthernetInterfaceFailureTest, StreamSocketFails)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    failing::socketCall.fail(EACCES, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(),
                ElementsAre(tryTcp, "[ERROR] ETH[127.0.0.1:PORT]::connect() socket(): Permission denied"));
    EXPECT_EQ(fd(), -1);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, DatagramSocketFails)
{
    const ScriptedUdpServer server(Script::ECHO);
    disconnectedFrom(udp(server.port()));
    failing::socketCall.fail(ENOBUFS, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(),
                ElementsAre(tryUdp, "[ERROR] ETH[127.0.0.2:PORT]::connect() socket(): No buffer space available"));
    EXPECT_EQ(fd(), -1);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, DescriptorBeyondTheSelectLimitCountsAsAFailedSocket)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = FD_SETSIZE + 1;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    failing::lowestSocketNumber = FD_SETSIZE;
    ASSERT_TRUE(server.closed.waitForCount(1)); // its close counts, too
    const size_t closesBefore = failing::closeCall.calls;
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(),
                ElementsAre(tryTcp, "[ERROR] ETH[127.0.0.1:PORT]::connect() socket(): Too many open files"));
    EXPECT_EQ(failing::closeCall.calls, closesBefore + 1);
    EXPECT_EQ(fd(), -1);
    failing::lowestSocketNumber = FD_SETSIZE - 1;
    expectExchange();
    EXPECT_EQ(fd(), static_cast<int>(FD_SETSIZE) - 1);
}

TEST_F(EthernetInterfaceFailureTest, ConnectFails)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    const size_t descriptors = descriptorsBesides(server);
    failing::connectCall.fail(ETIMEDOUT, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(),
                ElementsAre(tryTcp, "[ERROR] ETH[127.0.0.1:PORT]::connect() connect(): Connection timed out",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
    EXPECT_EQ(fd(), -1);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, InterruptedConnectIsAFailedOne)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    failing::connectCall.fail(EINTR, true);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -1);
    EXPECT_THAT(takeLines(),
                ElementsAre("[WARNING] ETH[127.0.0.1:PORT]::send() Interface isn't connected, try to connect...",
                            tryTcp, "[ERROR] ETH[127.0.0.1:PORT]::connect() connect(): Interrupted system call",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, ConnectAndTheCloseBehindItFail)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    const size_t descriptors = descriptorsBesides(server);
    failing::connectCall.fail(ETIMEDOUT, true);
    failing::closeCall.fail(EIO, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(),
                ElementsAre(tryTcp, "[ERROR] ETH[127.0.0.1:PORT]::connect() connect(): Connection timed out",
                            "[ERROR] ETH[127.0.0.1:PORT]::disconnect() Close socket failed: Input/output error"));
    EXPECT_EQ(fd(), -1);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, SwitchingNagleOffFails)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    const size_t descriptors = descriptorsBesides(server);
    failing::setsockoptCall.fail(ENOPROTOOPT, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(
        takeLines(),
        ElementsAre(tryTcp,
                    "[ERROR] ETH[127.0.0.1:PORT]::connect() setsockopt() disable Nagle: Protocol not available",
                    "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
    EXPECT_EQ(fd(), -1);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, SwitchingNagleOffAndTheCloseBehindItFail)
{
    const ScriptedTcpServer server(Script::ECHO);
    disconnectedFrom(tcp(server.port()));
    const size_t descriptors = descriptorsBesides(server);
    failing::setsockoptCall.fail(ENOPROTOOPT, true);
    failing::closeCall.fail(EIO, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(
        takeLines(),
        ElementsAre(tryTcp,
                    "[ERROR] ETH[127.0.0.1:PORT]::connect() setsockopt() disable Nagle: Protocol not available",
                    "[ERROR] ETH[127.0.0.1:PORT]::disconnect() Close socket failed: Input/output error"));
    EXPECT_EQ(fd(), -1);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, BindFails)
{
    const ScriptedUdpServer server(Script::ECHO);
    disconnectedFrom(udp(server.port()));
    failing::bindCall.fail(EADDRINUSE, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(
        takeLines(),
        ElementsAre(tryUdp, "[ERROR] ETH[127.0.0.2:PORT]::connect() bind() failed: Address already in use"));
    EXPECT_GE(fd(), 0);
    EXPECT_TRUE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.2:PORT]::connect() Already connected."));
    EXPECT_TRUE(sut->disconnect());
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, CloseFails)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    failing::closeCall.fail(EIO, true);
    EXPECT_FALSE(sut->disconnect());
    EXPECT_THAT(takeLines(),
                ElementsAre("[DEBUG] ETH[127.0.0.2:PORT]::disconnect() Close socket.",
                            "[ERROR] ETH[127.0.0.2:PORT]::disconnect() Close socket failed: Input/output error"));
    EXPECT_EQ(fd(), -1);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1));
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, CloseInTheDestructorFails)
{
    const ScriptedUdpServer server(Script::SINK);
    sut->logLevel = 0;
    failing::pthreadCreateCall.fail(EAGAIN, true);
    ASSERT_EQ(configure(udp(server.port())), 1);
    takeLines();
    failing::closeCall.fail(EIO, true);
    destroy();
    EXPECT_THAT(takeLines(),
                ElementsAre("[ERROR] ETH[127.0.0.2:PORT]::disconnect() Close socket failed: Input/output error",
                            "{removeIP eth1}"));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1));
}

TEST_F(EthernetInterfaceFailureTest, CloseAtTheEndOfTheThreadFails)
{
    const ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    sut->logLevel = 0;
    failing::closeCall.fail(EIO);
    destroy();
    EXPECT_THAT(takeLines(),
                ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::disconnect() Close socket failed: Input/output error",
                            "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread.",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"));
}

TEST_F(EthernetInterfaceFailureTest, CloseAfterTheLossOfTheServerFails)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    sut->logLevel = 0;
    failing::stopAtPause(10);
    server.closeClient();
    failing::awaitStoppedPause();
    takeLines();
    failing::closeCall.fail(EIO);
    failing::endStoppedPause();
    const std::string exitLine = "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread.";
    ASSERT_TRUE(await(exitLine));
    EXPECT_THAT(
        takeLines(),
        ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::disconnect() Close socket failed: Input/output error", exitLine));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 5));
    EXPECT_EQ(fd(), -1);
    EXPECT_FALSE(threadRuns());
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, WaitFails)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    failing::pselectCall.fail(ENOMEM);
    EXPECT_TRUE(await("[ERROR] ETH[127.0.0.2:PORT]::threadCode() pselect() error: Cannot allocate memory"));
    expectExchange();
    EXPECT_EQ(failing::pauses, 0u);
}

TEST_F(EthernetInterfaceFailureTest, StreamReceptionFails)
{
    const ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    failing::recvCall.fail(EIO);
    expectExchange(); // what the failed call left is received by the next one
    EXPECT_EQ(lines.count("[ERROR] ETH[127.0.0.1:" + port + "]::threadCode() receive error: Input/output error"),
              1u);
    EXPECT_EQ(failing::pauses, 0u);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, DatagramReceptionFails)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    failing::recvfromCall.fail(EIO);
    expectExchange();
    EXPECT_EQ(lines.count("[ERROR] ETH[127.0.0.2:" + port + "]::threadCode() receive error: Input/output error"),
              1u);
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, InterruptedSendIsALoss)
{
    const ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    failing::sendCall.fail(EINTR);
    const Bytes bytes = {1, 2, 3};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::send() Data loss, _dataSize=3; dataSize=-1",
                                         "{status 3}"));
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, ThreadThatCannotBeCreatedIsStartedByTheNextConnect)
{
    const ScriptedUdpServer server(Script::ECHO);
    sut->logLevel = 0;
    failing::pthreadCreateCall.fail(EAGAIN, true);
    EXPECT_EQ(configure(udp(server.port())), 1);
    const Lines said = takeLines();
    ASSERT_EQ(said.size(), 7u);
    EXPECT_EQ(said[4], "[DEBUG] ETH[127.0.0.2:PORT]::connect() Start RX thread.");
    EXPECT_EQ(said[5], "{status 1}");
    EXPECT_FALSE(threadRuns());
    EXPECT_TRUE(sut->connect());
    EXPECT_FALSE(threadRuns()) << "the interface is connected, so nothing is started";
    EXPECT_TRUE(sut->disconnect());
    EXPECT_TRUE(sut->connect());
    EXPECT_TRUE(threadRuns());
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, ThreadThatASendCannotCreateIsStartedByTheNextConnect)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    ASSERT_TRUE(await("[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    failing::pthreadCreateCall.fail(EAGAIN, true);
    const Bytes bytes = {1, 2, 3};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    EXPECT_FALSE(threadRuns());
    ASSERT_TRUE(server.awaitBytes(3));
    EXPECT_TRUE(sut->disconnect());
    expectExchange();
    EXPECT_TRUE(threadRuns());
}

TEST_F(EthernetInterfaceFailureTest, BindFailsWhileTheThreadRuns)
{
    const ScriptedUdpServer server(Script::ECHO);
    disconnectedFrom(udp(server.port()));
    failing::bindCall.fail(EADDRINUSE, true);
    EXPECT_FALSE(sut->connect());
    EXPECT_TRUE(threadRuns());
    EXPECT_GE(fd(), 0);
    const Bytes bytes = {1, 2, 3};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    ASSERT_TRUE(server.received.waitForCount(1));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2));
    EXPECT_TRUE(sut->disconnect());
    expectExchange();
}

TEST_F(EthernetInterfaceFailureTest, InterfaceWithoutItsThreadCanBeDestroyed)
{
    const ScriptedUdpServer server(Script::ECHO);
    failing::pthreadCreateCall.fail(EAGAIN, true);
    EXPECT_EQ(configure(udp(server.port())), 1);
    takeLines();
    destroy();
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[127.0.0.2:PORT]::~EthernetInterface() join",
                                         "[DEBUG] ETH[127.0.0.2:PORT]::disconnect() Close socket.",
                                         "[INFO] ETH[127.0.0.2:PORT]::disconnect() Disconnected.", "{status 2}",
                                         "{removeIP eth1}"));
}

} // namespace
