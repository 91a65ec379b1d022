#include <ethernet/EthernetTest.h>
#include <ethernet/LeavingCallbacks.h>
#include <support/PrivateMember.h>

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

REVEAL_MEMBER(ConnectedFd, EthernetInterface, socketFd);
REVEAL_MEMBER(ConnectedReadSet, EthernetInterface, readSet);
REVEAL_MEMBER(ConnectedServerAddr, EthernetInterface, serverAddr);
REVEAL_MEMBER(ConnectedSentCount, EthernetInterface, sentCount);
REVEAL_MEMBER(ConnectedReceivedCount, EthernetInterface, receivedCount);

namespace {

using testing::ElementsAre;

class EthernetInterfaceConnectTest : public EthernetTest
{
protected:
    int fd() const { return (*sut).*reveal(ConnectedFd{}); }
};

TEST_F(EthernetInterfaceConnectTest, SecondConnectIsANoOp)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    const int before = fd();
    EXPECT_TRUE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.1:PORT]::connect() Already connected."));
    EXPECT_EQ(fd(), before);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1));
}

TEST_F(EthernetInterfaceConnectTest, SecondDisconnectIsANoOp)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    EXPECT_TRUE(sut->disconnect());
    EXPECT_EQ(fd(), -1);
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[127.0.0.1:PORT]::disconnect() Close socket.",
                                         "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
    EXPECT_TRUE(sut->disconnect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected."));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2));
}

TEST_F(EthernetInterfaceConnectTest, DisconnectBeforeConfigureIsANoOp)
{
    EXPECT_TRUE(sut->disconnect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[:0]::disconnect() Already disconnected."));
}

TEST_F(EthernetInterfaceConnectTest, StreamSendsSmallWritesAtOnce)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    int noDelay = 0;
    socklen_t length = sizeof noDelay;
    ASSERT_EQ(getsockopt(fd(), IPPROTO_TCP, TCP_NODELAY, &noDelay, &length), 0);
    EXPECT_NE(noDelay, 0);
}

TEST_F(EthernetInterfaceConnectTest, ReadSetHoldsTheSocketAlone)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    const fd_set& readSet = (*sut).*reveal(ConnectedReadSet{});
    for (int candidate = 0; candidate < static_cast<int>(FD_SETSIZE); ++candidate) {
        EXPECT_EQ(FD_ISSET(candidate, &readSet) != 0, candidate == fd()) << candidate;
    }
    // A disconnect leaves it as it is.
    const int before = fd();
    sut->disconnect();
    EXPECT_TRUE(FD_ISSET(before, &readSet));
}

TEST_F(EthernetInterfaceConnectTest, ServerAddressIsInNetworkOrder)
{
    const RefusingPort nobody;
    configure(tcp(nobody.port()));
    const sockaddr_in& address = (*sut).*reveal(ConnectedServerAddr{});
    EXPECT_EQ(address.sin_family, AF_INET);
    EXPECT_EQ(address.sin_port, htons(nobody.port()));
    EXPECT_EQ(address.sin_addr.s_addr, htonl(0x7F000001));
}

TEST_F(EthernetInterfaceConnectTest, ServerTextThatIsNoAddressCannotBeConnectedTo)
{
    auto configuration = tcp(5000);
    configuration.serverIp = "server";
    EXPECT_EQ(configure(configuration), 0);
    // The conversion has no other answer to such a text.
    EXPECT_EQ(lines.count("[DEBUG] ETH[server:5000]::connect() serverAddr: 255.255.255.255:5000"), 1u);
    EXPECT_EQ(fd(), -1);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(2));
}

TEST_F(EthernetInterfaceConnectTest, DatagramsToAServerTextThatIsNoAddressAreLost)
{
    const ScriptedUdpServer server(Script::SINK); // only for its port number
    auto configuration = udp(server.port());
    configuration.serverIp = "server";
    EXPECT_EQ(configure(configuration), 1);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), -3);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 3));
}

TEST_F(EthernetInterfaceConnectTest, ForeignLoggerAddressCannotBeBoundButTheSocketStaysOpen)
{
    auto configuration = udp(5000);
    configuration.loggerIp = "192.0.2.1"; // reserved for documentation: on no machine
    EXPECT_EQ(configure(configuration), 0);
    const std::string text = "interfaceName=eth1; serverIp=127.0.0.2; loggerIp=192.0.2.1; subnet=255.0.0.0; "
                             "gatewayIp=127.0.0.254; port=PORT; useTcp=0";
    EXPECT_THAT(
        takeLines(),
        ElementsAre("[INFO] ETH[127.0.0.2:PORT]::configure() " + text, "{configureIP eth1 udp=1}",
                    "[INFO] ETH[127.0.0.2:PORT]::configure() Configuration successful, try to connect to server.",
                    "[INFO] ETH[127.0.0.2:PORT]::connect() Try connect to server: " + text,
                    "[DEBUG] ETH[127.0.0.2:PORT]::connect() serverAddr: 127.0.0.2:PORT",
                    "[DEBUG] ETH[127.0.0.2:PORT]::connect() socketAddr: 192.0.2.1:PORT",
                    "[ERROR] ETH[127.0.0.2:PORT]::connect() bind() failed: Cannot assign requested address",
                    "[WARNING] ETH[127.0.0.2:PORT]::configure() Connect failed. Try later at send() again."));
    EXPECT_GE(fd(), 0);
    EXPECT_TRUE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.2:PORT]::connect() Already connected."));
    EXPECT_EQ(callback.statuses.count(), 0u);
    EXPECT_TRUE(sut->disconnect());
}

TEST_F(EthernetInterfaceConnectTest, LoggerTextThatIsNoAddressIsBoundAsTheBroadcastAddress)
{
    const ScriptedUdpServer server(Script::SINK); // only for its port number
    auto configuration = udp(server.port());
    configuration.loggerIp = "logger";
    // The conversion has no other answer to such a text, and the system lets a socket be bound to that.
    EXPECT_EQ(configure(configuration), 1);
    EXPECT_THAT(takeLines(),
                testing::Contains("[DEBUG] ETH[127.0.0.2:PORT]::connect() socketAddr: 255.255.255.255:PORT"));
}

TEST_F(EthernetInterfaceConnectTest, ReadSetHoldsTheNextSocketAlone)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    const int before = fd();
    ASSERT_TRUE(sut->disconnect());
    const int inItsPlace = dup(STDERR_FILENO);
    ASSERT_TRUE(sut->connect());
    EXPECT_NE(fd(), before);
    const fd_set& readSet = (*sut).*reveal(ConnectedReadSet{});
    EXPECT_FALSE(FD_ISSET(before, &readSet));
    EXPECT_TRUE(FD_ISSET(fd(), &readSet));
    close(inItsPlace);
}

TEST_F(EthernetInterfaceConnectTest, CountersStartAnewWithEachConnection)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    const Bytes bytes = {1, 2, 3};
    ASSERT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ((*sut).*reveal(ConnectedSentCount{}), 1u);
    EXPECT_EQ((*sut).*reveal(ConnectedReceivedCount{}), 1u);
    sut->disconnect();
    EXPECT_EQ((*sut).*reveal(ConnectedSentCount{}), 1u);
    ASSERT_TRUE(sut->connect());
    EXPECT_EQ((*sut).*reveal(ConnectedSentCount{}), 0u);
    EXPECT_EQ((*sut).*reveal(ConnectedReceivedCount{}), 0u);
}

TEST_F(EthernetInterfaceConnectTest, DisconnectTellsTheServerAtOnce)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    sut->disconnect();
    EXPECT_TRUE(server.closed.waitForCount(1));
}

TEST_F(EthernetInterfaceConnectTest, DatagramPortIsFreeAgainAfterDisconnect)
{
    ScriptedUdpServer server(Script::ECHO);
    connectTo(udp(server.port()));
    // The receive thread waits on the socket all the time; its port must not outlive the close for that.
    for (int round = 0; round < 50; ++round) {
        ASSERT_TRUE(sut->disconnect());
        ASSERT_TRUE(sut->connect()) << "round " << round;
    }
    const Bytes bytes = {7};
    ASSERT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(callback.received.waitForCount(1));
}

TEST_F(EthernetInterfaceConnectTest, RunningThreadServesTheNextSocket)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->connect());
    const Bytes bytes = {1, 2, 3};
    ASSERT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(lines.count("[INFO] ETH[127.0.0.1:" + port + "]::threadCode() Start RX thread."), 0u);
}

TEST_F(EthernetInterfaceConnectTest, TransportCanChangeBetweenConnections)
{
    ScriptedTcpServer stream(Script::ECHO);
    const ScriptedUdpServer datagrams(Script::ECHO);
    connectTo(tcp(stream.port()));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_EQ(configure(udp(datagrams.port())), 1);
    const Bytes bytes = {1, 2, 3};
    ASSERT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(callback.received.all()[0], bytes);
    ASSERT_TRUE(sut->disconnect());
    ASSERT_EQ(configure(tcp(stream.port())), 1);
    ASSERT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(callback.received.waitForCount(2));
}

TEST_F(EthernetInterfaceConnectTest, EveryCallbackHearsInAscendingOrder)
{
    const ScriptedTcpServer server(Script::SINK);
    struct Ordered : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t*, size_t) override {}
        void onInterfaceState(int) override { order->push_back(this); }
        std::vector<const InterfaceBaseCb*>* order = nullptr;
    };
    std::vector<const InterfaceBaseCb*> order;
    std::vector<Ordered> ordered(3);
    for (Ordered& one : ordered) {
        one.order = &order;
        sut->callbacks.insert(&one);
    }
    connectTo(tcp(server.port()));
    EXPECT_THAT(order, ElementsAre(&ordered[0], &ordered[1], &ordered[2]));
    destroy();
}

TEST_F(EthernetInterfaceConnectTest, CallbackMayRemoveItselfWhileItIsCalled)
{
    const ScriptedTcpServer server(Script::SINK);
    LeavingCallbacks leaving(*sut, 1);
    connectTo(tcp(server.port()));
    leaving.expectGone();
    sut->disconnect();
    leaving.expectGone();
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 2));
}

TEST_F(EthernetInterfaceConnectTest, WorksWithoutAnyCallback)
{
    ScriptedTcpServer server(Script::SINK);
    sut->callbacks.clear();
    ASSERT_EQ(configure(tcp(server.port())), 1);
    const Bytes bytes = {1};
    EXPECT_EQ(sut->send(bytes.data(), bytes.size()), 0);
    EXPECT_TRUE(server.awaitBytes(1));
}

} // namespace
