#include <ethernet/EthernetTest.h>
#include <ethernet/LeavingCallbacks.h>
#include <support/FailingCalls.h>
#include <support/PrivateMember.h>

#include <thread>

REVEAL_MEMBER(ReceivingReceivedCount, EthernetInterface, receivedCount);
REVEAL_MEMBER(ReceivingRxThreadRunning, EthernetInterface, rxThreadRunning);

namespace {

using testing::Each;
using testing::ElementsAre;

constexpr size_t RECEPTIONS_UNTIL_END = 10;

const std::string LOST = "[WARNING] ETH[127.0.0.1:PORT]::threadCode() Lost connection - socket down!";
const std::string UDP_LOST = "[WARNING] ETH[127.0.0.2:PORT]::threadCode() Lost connection - socket down!";
const std::string IGNORED = "[WARNING] ETH[127.0.0.2:PORT]::threadCode() ignore UDP data from unexpected server";

class EthernetInterfaceReceiveTest : public EthernetTest
{
protected:
    EthernetInterfaceReceiveTest()
    {
        failing::skipPauses();
        sut->logLevel = 0;
    }

    /// Lets a reception come at level 1: the first figure of the bus load is all that shows.
    template <typename Server>
    void expectNothingShownAtLevelOne(Server& server)
    {
        sut->logLevel = 1;
        server.send(three);
        ASSERT_TRUE(callback.awaitStatus(5));
        EXPECT_THAT(takeLines(), ElementsAre("{status 5}"));
    }

    bool threadRuns() const { return (*sut).*reveal(ReceivingRxThreadRunning{}); }

    const Bytes three = {0x01, 0x41, 0xFF};
};

TEST_F(EthernetInterfaceReceiveTest, StreamBytesReachTheCallback)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.send(three);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(callback.received.all()[0], three);
    EXPECT_EQ((*sut).*reveal(ReceivingReceivedCount{}), 1u);
}

TEST_F(EthernetInterfaceReceiveTest, DatagramsReachTheCallbackOneByOne)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    server.send({2, 3});
    ASSERT_TRUE(callback.received.waitForCount(2));
    EXPECT_THAT(callback.received.all(), ElementsAre(Bytes{1}, Bytes{2, 3}));
}

TEST_F(EthernetInterfaceReceiveTest, LargestDatagramArrivesWhole)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    const Bytes largest(65507, 0x5A);
    server.send(largest);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(callback.received.all()[0], largest);
}

TEST_F(EthernetInterfaceReceiveTest, OneStreamReceptionGivesAtMost65535Bytes)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    Bytes sent(1'000'000);
    for (size_t index = 0; index < sent.size(); ++index) {
        sent[index] = static_cast<uint8_t>(index * 7);
    }
    server.send(sent);
    Bytes arrived;
    ASSERT_TRUE(callback.received.waitUntil([&](const std::vector<Bytes>& all) {
        size_t sum = 0;
        for (const Bytes& one : all) {
            sum += one.size();
        }
        return sum >= sent.size();
    }));
    for (const Bytes& one : callback.received.all()) {
        EXPECT_LE(one.size(), 65535u);
        arrived.insert(arrived.end(), one.begin(), one.end());
    }
    EXPECT_TRUE(arrived == sent);
}

TEST_F(EthernetInterfaceReceiveTest, LevelOneShowsNeitherBytesNorSourceNorWaits)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 1;
    server.send(three);
    ASSERT_TRUE(callback.awaitStatus(5));
    server.sendFromOtherPort(three);
    ASSERT_TRUE(await("[WARNING] ETH[127.0.0.2:PORT]::threadCode() ignore UDP data from unexpected server"));
    EXPECT_THAT(takeLines(),
                ElementsAre("{status 5}",
                            "[WARNING] ETH[127.0.0.2:PORT]::threadCode() ignore UDP data from unexpected server"));
}

TEST_F(EthernetInterfaceReceiveTest, LevelThreeShowsBytesToo)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 3;
    server.send(three);
    ASSERT_TRUE(callback.awaitStatus(5));
    EXPECT_THAT(takeLines(),
                testing::IsSupersetOf({"[DEBUG] ETH[127.0.0.2:PORT]::threadCode() receiverAddr: 127.0.0.2:PORT",
                                       "[DEBUG] ETH[127.0.0.2:PORT]::threadCode() received bytes=3",
                                       "[INFO] ETH::recv:  01 41 ff  .A."}));
}

TEST_F(EthernetInterfaceReceiveTest, LevelTwoShowsStreamBytes)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    sut->logLevel = 2;
    server.send(three);
    ASSERT_TRUE(callback.received.waitForCount(1));
    // The first counted pass closes a bus-load interval.
    ASSERT_TRUE(callback.awaitStatus(5));
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[127.0.0.1:PORT]::threadCode() received bytes=3",
                                         "[INFO] ETH::recv:  01 41 ff  .A.", "{status 5}"));
}

TEST_F(EthernetInterfaceReceiveTest, LevelTwoShowsTheSourceOfADatagram)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 2;
    server.send(three);
    ASSERT_TRUE(callback.awaitStatus(5));
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() receiverAddr: 127.0.0.2:PORT",
                                         "[DEBUG] ETH[127.0.0.2:PORT]::threadCode() received bytes=3",
                                         "[INFO] ETH::recv:  01 41 ff  .A.", "{status 5}"));
}

TEST_F(EthernetInterfaceReceiveTest, LevelThreeShowsEachWaitWithoutTraffic)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 2;
    sut->logLevel = 3;
    EXPECT_TRUE(await("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() pselect() timeout.", 2));
    EXPECT_THAT(takeLines(), Each("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() pselect() timeout."));
}

TEST_F(EthernetInterfaceReceiveTest, WaitGoesOnWhileDisconnected)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    takeLines();
    sut->logLevel = 3;
    EXPECT_TRUE(await("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() pselect() timeout.", 2));
    EXPECT_TRUE(threadRuns());
}

TEST_F(EthernetInterfaceReceiveTest, DatagramFromAnotherPortIsIgnored)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.sendFromOtherPort(three);
    EXPECT_TRUE(await(IGNORED));
    server.send({7});
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_THAT(callback.received.all(), ElementsAre(Bytes{7}));
}

TEST_F(EthernetInterfaceReceiveTest, DatagramFromAnotherAddressIsIgnored)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.sendFromOtherAddress(three);
    EXPECT_TRUE(await(IGNORED));
    server.send({7});
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_THAT(callback.received.all(), ElementsAre(Bytes{7}));
}

TEST_F(EthernetInterfaceReceiveTest, LevelTwoShowsTheSourceOfAnIgnoredDatagram)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 2;
    server.sendFromOtherPort(three);
    ASSERT_TRUE(await(IGNORED));
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() receiverAddr: 127.0.0.2:" +
                                             std::to_string(server.otherPort()),
                                         IGNORED));
}

TEST_F(EthernetInterfaceReceiveTest, ServerAnsweringFromAnotherPortIsIgnored)
{
    const ScriptedUdpServer server(Script::WRONG_PORT);
    connectTo(udp(server.port()));
    ASSERT_EQ(sut->send(three.data(), three.size()), 0);
    EXPECT_TRUE(await(IGNORED));
    EXPECT_EQ(callback.received.count(), 0u);
}

TEST_F(EthernetInterfaceReceiveTest, ServerThatClosesIsLostAfterTenEmptyReceptions)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    ASSERT_TRUE(await("[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    EXPECT_THAT(takeLines(), ElementsAre(LOST, "{status 5}", LOST, LOST, LOST, LOST, LOST, LOST, LOST, LOST, LOST,
                                         "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}",
                                         "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    EXPECT_FALSE(threadRuns());
    EXPECT_EQ(failing::pauses, RECEPTIONS_UNTIL_END);
    EXPECT_EQ(failing::pausedUs, RECEPTIONS_UNTIL_END * 1'000'000);
    EXPECT_TRUE(sut->disconnect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected."));
}

TEST_F(EthernetInterfaceReceiveTest, ServerThatClosesAtOnceIsLost)
{
    const ScriptedTcpServer server(Script::ACCEPT_CLOSE);
    ASSERT_EQ(configure(tcp(server.port())), 1);
    EXPECT_TRUE(await("[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    EXPECT_EQ(failing::pauses, RECEPTIONS_UNTIL_END);
}

TEST_F(EthernetInterfaceReceiveTest, LostServerIsFoundAgainByTheNextSend)
{
    ScriptedTcpServer server(Script::ECHO);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.closeClient();
    ASSERT_TRUE(await("[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_EQ(callback.received.all()[0], three);
    EXPECT_TRUE(threadRuns());
    EXPECT_EQ(lines.count("[INFO] ETH[127.0.0.1:" + port + "]::threadCode() Start RX thread."), 1u);
}

TEST_F(EthernetInterfaceReceiveTest, NineEmptyReceptionsDoNotEndTheThread)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    ASSERT_TRUE(await(UDP_LOST, 9));
    server.send({7});
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_TRUE(threadRuns());
    EXPECT_EQ(failing::pauses, 9u);
    EXPECT_THAT(callback.statuses.all(), testing::Not(testing::Contains(2)));
}

TEST_F(EthernetInterfaceReceiveTest, TenEmptyDatagramsEndTheThread)
{
    const ScriptedUdpServer server(Script::EMPTY_ANSWERS);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < RECEPTIONS_UNTIL_END; ++count) {
        ASSERT_EQ(sut->send(three.data(), three.size()), 0);
        ASSERT_TRUE(await(UDP_LOST, count + 1));
    }
    EXPECT_TRUE(await("[INFO] ETH[127.0.0.2:PORT]::threadCode() Exit RX thread."));
    EXPECT_TRUE(callback.awaitStatus(2));
    EXPECT_FALSE(threadRuns());
}

TEST_F(EthernetInterfaceReceiveTest, EmptyDatagramOfAnybodyCounts)
{
    // The length is looked at before the source.
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < RECEPTIONS_UNTIL_END; ++count) {
        server.sendFromOtherPort({});
    }
    EXPECT_TRUE(await("[INFO] ETH[127.0.0.2:PORT]::threadCode() Exit RX thread."));
}

TEST_F(EthernetInterfaceReceiveTest, DeliveredDatagramStartsTheCountAnew)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    server.send({7});
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    server.send({8});
    ASSERT_TRUE(callback.received.waitForCount(2));
    EXPECT_TRUE(await(UDP_LOST, 18));
    EXPECT_TRUE(threadRuns());
}

TEST_F(EthernetInterfaceReceiveTest, RejectedDatagramStartsTheCountAnew)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    // Sockets of one host deliver in the order of sending.
    server.sendFromOtherPort(three);
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    server.send({7});
    ASSERT_TRUE(callback.received.waitForCount(1));
    EXPECT_TRUE(await(UDP_LOST, 18));
    EXPECT_TRUE(await(IGNORED));
    EXPECT_TRUE(threadRuns());
}

TEST_F(EthernetInterfaceReceiveTest, NewConnectionDoesNotStartTheCountAnew)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    ASSERT_TRUE(await(UDP_LOST, 9));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->connect());
    server.send({});
    EXPECT_TRUE(await("[INFO] ETH[127.0.0.2:PORT]::threadCode() Exit RX thread."));
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1, 5, 2, 1, 2));
}

TEST_F(EthernetInterfaceReceiveTest, DisconnectIsNoLossOfTheServer)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(sut->disconnect());
        ASSERT_TRUE(sut->connect());
    }
    destroy();
    EXPECT_EQ(failing::pauses, 0u);
    EXPECT_THAT(takeLines(), testing::Not(testing::Contains(LOST)));
}

TEST_F(EthernetInterfaceReceiveTest, ReceiveErrorDoesNotStartTheCountAnew)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    for (size_t count = 0; count < 9; ++count) {
        server.send({});
    }
    ASSERT_TRUE(await(UDP_LOST, 9));
    failing::recvfromCall.fail(EIO);
    server.send({}); // stays in the socket when the call fails, and is the tenth afterwards
    EXPECT_TRUE(await("[ERROR] ETH[127.0.0.2:PORT]::threadCode() receive error: Input/output error"));
    EXPECT_TRUE(await("[INFO] ETH[127.0.0.2:PORT]::threadCode() Exit RX thread."));
}

TEST_F(EthernetInterfaceReceiveTest, ResetIsAReceiveErrorAndThenALoss)
{
    ScriptedTcpServer server(Script::RESET);
    connectTo(tcp(server.port()));
    ASSERT_EQ(sut->send(three.data(), three.size()), 0);
    ASSERT_TRUE(await("[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread."));
    const Lines said = takeLines();
    ASSERT_EQ(said.size(), 15u);
    EXPECT_EQ(said[0], "[ERROR] ETH[127.0.0.1:PORT]::threadCode() receive error: Connection reset by peer");
    EXPECT_EQ(said[1], "{status 5}");
    EXPECT_EQ(std::count(said.begin(), said.end(), LOST), 10);
}

TEST_F(EthernetInterfaceReceiveTest, CallbackMaySendAndDisconnect)
{
    struct Answering : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t* data, size_t size) override
        {
            if (data[0] == 1) {
                result = interface->send(data, size);
            } else {
                interface->disconnect();
            }
        }
        void onInterfaceState(int) override {}
        EthernetInterface* interface = nullptr;
        std::atomic<int> result{-99};
    } answering;
    ScriptedTcpServer server(Script::SINK);
    answering.interface = sut.get();
    sut->callbacks.insert(&answering);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    server.send({1, 2});
    ASSERT_TRUE(server.awaitBytes(2));
    EXPECT_EQ(server.received.all()[0], (Bytes{1, 2}));
    server.send({2});
    EXPECT_TRUE(callback.awaitStatus(2));
    EXPECT_EQ(answering.result, 0);
    EXPECT_TRUE(threadRuns());
    sut.reset();
}

TEST_F(EthernetInterfaceReceiveTest, CallbackMayRemoveItselfDuringAReception)
{
    const ScriptedUdpServer server(Script::SINK);
    LeavingCallbacks leaving(*sut, LeavingCallbacks::RECEPTION);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5));
    leaving.expectGone();
    server.send({2});
    ASSERT_TRUE(callback.received.waitForCount(2));
    EXPECT_THAT(callback.received.all(), ElementsAre(Bytes{1}, Bytes{2}));
    leaving.expectGone();
}

TEST_F(EthernetInterfaceReceiveTest, CallbackMayRemoveItselfAtANewBusLoad)
{
    const ScriptedUdpServer server(Script::SINK);
    LeavingCallbacks leaving(*sut, 5);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5));
    server.send({2});
    ASSERT_TRUE(callback.received.waitForCount(2));
    leaving.expectGone();
}

TEST_F(EthernetInterfaceReceiveTest, LevelOneShowsNothingOfAStreamReception)
{
    ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(server.accepted.waitForCount(1));
    expectNothingShownAtLevelOne(server);
}

TEST_F(EthernetInterfaceReceiveTest, LevelOneShowsNothingOfADatagram)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    expectNothingShownAtLevelOne(server);
}

TEST_F(EthernetInterfaceReceiveTest, LevelTwoShowsNoWaitWithoutTraffic)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    sut->logLevel = 2;
    // A third wait begins only after two have ended.
    const size_t begun = failing::pselectCall.calls;
    while (failing::pselectCall.calls < begun + 3) {
        std::this_thread::yield();
    }
    EXPECT_THAT(takeLines(), ElementsAre());
}

TEST_F(EthernetInterfaceReceiveTest, ThreadWithoutASocketEndsAtOnce)
{
    sut->threadCode();
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[:0]::threadCode() Interface isn't connected! Exit thread."));
    EXPECT_FALSE(threadRuns());
}

} // namespace
