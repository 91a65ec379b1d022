#include <ethernet/EthernetTest.h>
#include <support/SocketCallSpy.h>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::StartsWith;

/// The arguments of the system calls, as the interface makes them.
class EthernetSystemCallsTest : public EthernetTest
{
protected:
    /// Configures and connects, and leaves only what the interface called.
    void connectAfresh(const EthernetInterface::Configuration& configuration)
    {
        socketcalls::made.clear();
        connectTo(configuration);
    }

    /// The calls so far that begin with a word, with "PORT" for the port.
    std::vector<std::string> calls(const std::string& first) const
    {
        std::vector<std::string> found;
        for (std::string call : socketcalls::made.all()) {
            if (call.rfind(first, 0) == 0) {
                if (const size_t place = call.find(":" + port); place != std::string::npos) {
                    call.replace(place + 1, port.size(), "PORT");
                }
                found.push_back(call);
            }
        }
        return found;
    }

    static bool awaitWait(const std::string& text)
    {
        return socketcalls::waits.waitUntil([&](const std::vector<std::string>& all) {
            return std::find(all.begin(), all.end(), text) != all.end();
        });
    }

    const Bytes three = {1, 2, 3};
};

TEST_F(EthernetSystemCallsTest, StreamIsOpenedConnectedAndSwitchedToSmallWrites)
{
    const ScriptedTcpServer server(Script::SINK);
    connectAfresh(tcp(server.port()));
    EXPECT_THAT(calls(""),
                ElementsAre("socket stream 0", "connect 127.0.0.1:PORT 16", "setsockopt TCP_NODELAY 1 4"));
}

TEST_F(EthernetSystemCallsTest, DatagramSocketIsOpenedAndBoundButNotConnected)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    EXPECT_THAT(calls(""), ElementsAre("socket datagram 0", "bind 127.0.0.1:PORT 16"));
}

TEST_F(EthernetSystemCallsTest, StreamSendIsOneCallWithoutFlags)
{
    const ScriptedTcpServer server(Script::SINK);
    connectAfresh(tcp(server.port()));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_THAT(calls("send"), ElementsAre("send 3 bytes, flags 0"));
}

TEST_F(EthernetSystemCallsTest, DatagramSendIsOneCallWithoutFlagsToTheServer)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_THAT(calls("send"), ElementsAre("sendto 3 bytes, flags 0, 127.0.0.2:PORT 16"));
}

TEST_F(EthernetSystemCallsTest, EmptySendIsACallToo)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    EXPECT_EQ(sut->send(nullptr, 0), 0);
    EXPECT_THAT(calls("send"), ElementsAre("sendto 0 bytes, flags 0, 127.0.0.2:PORT 16"));
    EXPECT_TRUE(server.received.waitForCount(1));
}

TEST_F(EthernetSystemCallsTest, PayloadThatIsTooLongIsNeverHandedOver)
{
    const ScriptedTcpServer server(Script::SINK);
    connectAfresh(tcp(server.port()));
    const Bytes tooLong(65536);
    EXPECT_EQ(sut->send(tooLong.data(), tooLong.size()), -2);
    EXPECT_THAT(calls("send"), ElementsAre());
}

TEST_F(EthernetSystemCallsTest, StreamReceptionTakesAtMostTheBuffer)
{
    ScriptedTcpServer server(Script::ECHO);
    connectAfresh(tcp(server.port()));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_THAT(calls("recv"), ElementsAre("recv 65535 bytes, flags 0"));
}

TEST_F(EthernetSystemCallsTest, DatagramReceptionAsksForTheSourceWithItsLengthSetAnew)
{
    const ScriptedUdpServer server(Script::ECHO);
    connectAfresh(udp(server.port()));
    for (size_t round = 1; round <= 2; ++round) {
        EXPECT_EQ(sut->send(three.data(), three.size()), 0);
        ASSERT_TRUE(callback.received.waitForCount(round));
    }
    EXPECT_THAT(calls("recv"), ElementsAre("recvfrom 65535 bytes, flags 0, source 16",
                                           "recvfrom 65535 bytes, flags 0, source 16"));
}

TEST_F(EthernetSystemCallsTest, WaitIsForTheSocketAlone)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    EXPECT_TRUE(awaitWait("pselect fd+1 {fd} 0 s 300000000 ns"));
    EXPECT_THAT(socketcalls::waits.all(), testing::Each("pselect fd+1 {fd} 0 s 300000000 ns"));
}

TEST_F(EthernetSystemCallsTest, WaitWhileDisconnectedHasNoDescriptor)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    EXPECT_TRUE(awaitWait("pselect 0 {} 0 s 300000000 ns"));
}

TEST_F(EthernetSystemCallsTest, ReconnectIsWaitedForByTheSameThread)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(awaitWait("pselect 0 {} 0 s 300000000 ns"));
    socketcalls::waits.clear();
    ASSERT_TRUE(sut->connect());
    EXPECT_TRUE(awaitWait("pselect fd+1 {fd} 0 s 300000000 ns"));
}

TEST_F(EthernetSystemCallsTest, SocketIsClosedOnce)
{
    const ScriptedUdpServer server(Script::SINK);
    connectAfresh(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->disconnect());
    destroy();
    EXPECT_THAT(calls("close"), ElementsAre("close"));
}

} // namespace
