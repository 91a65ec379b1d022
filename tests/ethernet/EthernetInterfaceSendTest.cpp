#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>
#include <support/FakeIpConfig.h>
#include <support/PrivateMember.h>
#include <support/ThreadState.h>

#include <vqtrace/CANTransportTraceMessage.h>

#include <string>
#include <thread>

#include <unistd.h>

REVEAL_MEMBER(SendSentCount, EthernetInterface, sentCount);

namespace {

using testing::ElementsAre;

constexpr size_t LARGEST_PAYLOAD_BYTES = 65535;

class EthernetInterfaceSendTest : public EthernetTest
{
protected:
    uint64_t sentCount() const { return (*sut).*reveal(SendSentCount{}); }

    const Bytes three = {0x01, 0x41, 0xFF};
};

TEST_F(EthernetInterfaceSendTest, StreamCarriesTheBytes)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(server.awaitBytes(3));
    EXPECT_EQ(server.received.all()[0], three);
    EXPECT_EQ(sentCount(), 1u);
    EXPECT_THAT(takeLines(), ElementsAre());
}

TEST_F(EthernetInterfaceSendTest, DatagramReachesTheServer)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_EQ(sut->send(nullptr, 0), 0);
    ASSERT_TRUE(server.received.waitForCount(2));
    EXPECT_THAT(server.received.all(), ElementsAre(three, Bytes{}));
    EXPECT_EQ(sentCount(), 2u);
}

TEST_F(EthernetInterfaceSendTest, LevelTwoShowsBytesAndCount)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    sut->logLevel = 2;
    const Bytes seventeen = {'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f', 0x7F};
    EXPECT_EQ(sut->send(seventeen.data(), seventeen.size()), 0);
    EXPECT_THAT(takeLines(),
                ElementsAre("[INFO] ETH::send:  30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66  0123456789abcdef",
                            "[INFO] ETH::send:  7f                                               .",
                            "[DEBUG] ETH[127.0.0.1:PORT]::send() sent bytes=17"));
}

TEST_F(EthernetInterfaceSendTest, LevelOneShowsNothing)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    sut->logLevel = 1;
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_THAT(takeLines(), ElementsAre());
}

TEST_F(EthernetInterfaceSendTest, LargestPayloadIsSentOverTcp)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    const Bytes largest(LARGEST_PAYLOAD_BYTES, 0x5A);
    EXPECT_EQ(sut->send(largest.data(), largest.size()), 0);
    EXPECT_TRUE(server.awaitBytes(LARGEST_PAYLOAD_BYTES));
}

TEST_F(EthernetInterfaceSendTest, OneByteTooMuchIsRefused)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    const Bytes tooMuch(LARGEST_PAYLOAD_BYTES + 1);
    EXPECT_EQ(sut->send(tooMuch.data(), tooMuch.size()), -2);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::send() Can't send more than 65535 bytes."));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1));
    EXPECT_EQ(sentCount(), 0u);
}

TEST_F(EthernetInterfaceSendTest, SizeIsCheckedAfterTheReconnect)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    takeLines();
    const Bytes tooMuch(LARGEST_PAYLOAD_BYTES + 1);
    EXPECT_EQ(sut->send(tooMuch.data(), tooMuch.size()), -2);
    const Lines said = takeLines();
    ASSERT_EQ(said.size(), 5u);
    EXPECT_EQ(said[0], "[WARNING] ETH[127.0.0.1:PORT]::send() Interface isn't connected, try to connect...");
    EXPECT_EQ(said[3], "{status 1}");
    EXPECT_EQ(said[4], "[ERROR] ETH[127.0.0.1:PORT]::send() Can't send more than 65535 bytes.");
}

TEST_F(EthernetInterfaceSendTest, DatagramBeyondWhatIpCarriesIsLost)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    const Bytes largest(LARGEST_PAYLOAD_BYTES);
    EXPECT_EQ(sut->send(largest.data(), largest.size()), -3);
    EXPECT_THAT(
        takeLines(),
        ElementsAre("[ERROR] ETH[127.0.0.2:PORT]::send() Data loss, _dataSize=65535; dataSize=-1", "{status 3}"));
    const Bytes fitting(65507, 1);
    EXPECT_EQ(sut->send(fitting.data(), fitting.size()), 0);
    EXPECT_TRUE(server.received.waitForCount(1));
}

TEST_F(EthernetInterfaceSendTest, UnreachableServerGivesMinusOne)
{
    const RefusingPort nobody;
    ASSERT_EQ(configure(tcp(nobody.port())), 0);
    takeLines();
    EXPECT_EQ(sut->send(three.data(), three.size()), -1);
    EXPECT_THAT(
        takeLines(),
        ElementsAre("[WARNING] ETH[127.0.0.1:PORT]::send() Interface isn't connected, try to connect...",
                    "[INFO] ETH[127.0.0.1:PORT]::connect() Try connect to server: interfaceName=eth1; "
                    "serverIp=127.0.0.1; loggerIp=127.0.0.1; subnet=255.0.0.0; gatewayIp=127.0.0.254; port=PORT; "
                    "useTcp=1",
                    "[DEBUG] ETH[127.0.0.1:PORT]::connect() serverAddr: 127.0.0.1:PORT",
                    "[ERROR] ETH[127.0.0.1:PORT]::connect() connect(): Connection refused",
                    "[DEBUG] ETH[127.0.0.1:PORT]::disconnect() Close socket.",
                    "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}"));
}

TEST_F(EthernetInterfaceSendTest, UnconfiguredInterfaceGivesMinusOne)
{
    EXPECT_EQ(sut->send(three.data(), three.size()), -1);
    EXPECT_THAT(takeLines(), ElementsAre("[WARNING] ETH[:0]::send() Interface isn't connected, try to connect...",
                                         "[ERROR] ETH[:0]::connect() Can't connect, interface isn't configured."));
}

TEST_F(EthernetInterfaceSendTest, ConflictedInterfaceGivesMinusOne)
{
    fakeIpConfig::grantAddresses(false);
    ASSERT_EQ(configure(tcp(5000)), -2);
    takeLines();
    EXPECT_EQ(sut->send(three.data(), three.size()), -1);
    EXPECT_THAT(takeLines(),
                ElementsAre("[WARNING] ETH[127.0.0.1:PORT]::send() Interface isn't connected, try to connect...",
                            "[ERROR] ETH[127.0.0.1:PORT]::connect() Can't connect, IP conflict."));
}

TEST_F(EthernetInterfaceSendTest, SendReconnectsToAServerThatCameBack)
{
    auto server = std::make_unique<ScriptedTcpServer>(Script::ECHO);
    const uint16_t serverPort = server->port();
    connectTo(tcp(serverPort));
    ASSERT_TRUE(sut->disconnect());
    server.reset();
    EXPECT_EQ(sut->send(three.data(), three.size()), -1);
    server = std::make_unique<ScriptedTcpServer>(Script::ECHO, serverPort);
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(callback.received.all()[0], three);
    EXPECT_THAT(callback.statuses.all(), testing::IsSupersetOf({1, 2, 2, 1}));
}

TEST_F(EthernetInterfaceSendTest, SocketThatCouldNotBeBoundStillSends)
{
    const ScriptedUdpServer server(Script::SINK);
    auto configuration = udp(server.port());
    configuration.loggerIp = "192.0.2.1";
    ASSERT_EQ(configure(configuration), 0);
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(server.received.waitForCount(1));
    EXPECT_EQ(server.received.all()[0], three);
}

TEST_F(EthernetInterfaceSendTest, MessageIsSerialisedWithItsHeaderIntoItsOwnArray)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0, {1, 2, 3}, 0x123, CAN_STANDARD);
    message.byteArray = {9, 9, 9};
    Bytes expected;
    message.createByteArray(expected, true, false);
    EXPECT_EQ(sut->send(static_cast<MessageBase&>(message)), 0);
    EXPECT_EQ(message.byteArray, expected);
    ASSERT_TRUE(server.awaitBytes(expected.size()));
    EXPECT_EQ(server.received.all()[0], expected);
}

TEST_F(EthernetInterfaceSendTest, MessageTooLongGivesMinusTwo)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0, Bytes(LARGEST_PAYLOAD_BYTES), 0x123,
                                     CAN_STANDARD);
    EXPECT_EQ(sut->send(static_cast<MessageBase&>(message)), -2);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::send() Can't send more than 65535 bytes."));
}

TEST_F(EthernetInterfaceSendTest, SubclassOfTheByteFormServesMessagesToo)
{
    struct Prefixing : EthernetInterface
    {
        using EthernetInterface::send;
        int send(const uint8_t* data, size_t size) override
        {
            seen.assign(data, data + size);
            return 42;
        }
        Bytes seen;
    };
    Prefixing subclass;
    CANTransportTraceMessage message(CANTransportTraceMessage::MESSAGE_ID, 0, {1, 2, 3}, 0x123, CAN_STANDARD);
    EXPECT_EQ(subclass.send(static_cast<MessageBase&>(message)), 42);
    EXPECT_EQ(subclass.seen, message.byteArray);
    EXPECT_FALSE(subclass.seen.empty());
}

TEST_F(EthernetInterfaceSendTest, FailedStreamSendIsALossAndKeepsTheConnection)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    failing::sendCall.fail(ENOBUFS);
    EXPECT_EQ(sut->send(three.data(), three.size()), -3);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::send() Data loss, _dataSize=3; dataSize=-1",
                                         "{status 3}"));
    EXPECT_EQ(sentCount(), 0u);
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_TRUE(server.awaitBytes(3));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 3));
}

TEST_F(EthernetInterfaceSendTest, FailedDatagramSendIsALossAndKeepsTheConnection)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    failing::sendtoCall.fail(ENETUNREACH);
    EXPECT_EQ(sut->send(three.data(), three.size()), -3);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.2:PORT]::send() Data loss, _dataSize=3; dataSize=-1",
                                         "{status 3}"));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_TRUE(server.received.waitForCount(1));
}

TEST_F(EthernetInterfaceSendTest, PartialWriteIsALossAndNotRetried)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    const size_t before = failing::sendCall.calls;
    failing::shortSendBytes = 2;
    EXPECT_EQ(sut->send(three.data(), three.size()), -3);
    EXPECT_EQ(failing::sendCall.calls, before + 1);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::send() Data loss, _dataSize=3; dataSize=2",
                                         "{status 3}"));
    ASSERT_TRUE(server.awaitBytes(2));
    EXPECT_EQ(server.received.all()[0], (Bytes{0x01, 0x41}));
}

TEST_F(EthernetInterfaceSendTest, DisconnectEndsASendThatTheServerKeepsWaiting)
{
    const ScriptedTcpServer server(Script::STALL);
    connectTo(tcp(server.port()));
    std::atomic<size_t> finished{0};
    std::atomic<pid_t> senderId{0};
    int last = 0;
    std::thread sender([&] {
        senderId = gettid();
        const Bytes much(LARGEST_PAYLOAD_BYTES);
        while ((last = sut->send(much.data(), much.size())) == 0) {
            ++finished;
        }
    });
    // Asleep in the system's call, not beside it: the buffers of the connection are full, and stay so.
    EXPECT_TRUE(
        becomesTrue([&] { return failing::sendCall.calls > failing::sendCall.returned && isAsleep(senderId); }));
    EXPECT_TRUE(sut->disconnect());
    sender.join();
    EXPECT_EQ(last, -3);
    EXPECT_GT(finished, 0u);
}

} // namespace
