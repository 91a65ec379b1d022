#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>
#include <support/LoopbackSocket.h>
#include <support/TemporaryDirectory.h>

#include <bench/Bench.h>

#include <cstdlib>
#include <system_error>

#include <unistd.h>

namespace {

using testing::ElementsAre;

/// The interface and the server that a bench plays, over the host platform.
class EthernetAgainstPeerTest : public EthernetTest
{
protected:
    EthernetAgainstPeerTest() { failing::skipPauses(); }

    static uint16_t freePort(int type)
    {
        const int fd = loopback::checked(socket(AF_INET, type, 0), "socket");
        loopback::checked(loopback::tryToBind(fd, "127.0.0.1", 0) ? 0 : -1, "bind");
        const uint16_t chosen = loopback::portOf(fd);
        close(fd);
        return chosen;
    }

    /// Starts a bench with one server on a free port.
    uint16_t serve(config::Transport transport, config::Behaviour behaviour = config::Behaviour::ECHO)
    {
        const bool isTcp = transport == config::Transport::TCP;
        for (int attempt = 1;; ++attempt) {
            const uint16_t chosen = freePort(isTcp ? SOCK_STREAM : SOCK_DGRAM);
            configuration.peers = {{.name = "server",
                                    .transport = transport,
                                    .address = isTcp ? ScriptedTcpServer::IP : ScriptedUdpServer::IP,
                                    .port = chosen,
                                    .behaviour = behaviour}};
            try {
                start();
                return chosen;
            } catch (const std::system_error&) {
                if (attempt == 100) {
                    throw; // not only somebody else who had the port
                }
            }
        }
    }

    void start() { bench = std::make_unique<vlogger::Bench>(configuration, path); }

    void expectExchange()
    {
        const size_t before = callback.received.count();
        EXPECT_EQ(sut->send(three.data(), three.size()), 0);
        ASSERT_TRUE(callback.received.waitForCount(before + 1));
        EXPECT_EQ(callback.received.all().back(), three);
    }

    const Bytes three = {1, 2, 3};
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/bench";
    config::Configuration configuration;
    std::unique_ptr<vlogger::Bench> bench;
};

TEST_F(EthernetAgainstPeerTest, StreamIsEchoed)
{
    EXPECT_EQ(configure(tcp(serve(config::Transport::TCP))), 1);
    expectExchange();
}

TEST_F(EthernetAgainstPeerTest, DatagramIsEchoed)
{
    EXPECT_EQ(configure(udp(serve(config::Transport::UDP))), 1);
    expectExchange();
}

TEST_F(EthernetAgainstPeerTest, LargestPayloadOfAStreamIsEchoed)
{
    EXPECT_EQ(configure(tcp(serve(config::Transport::TCP))), 1);
    const Bytes largest(65535, 0x5A);
    EXPECT_EQ(sut->send(largest.data(), largest.size()), 0);
    EXPECT_TRUE(callback.received.waitUntil([&](const std::vector<Bytes>& all) {
        size_t sum = 0;
        for (const Bytes& bytes : all) {
            sum += bytes.size();
        }
        return sum == largest.size();
    }));
}

TEST_F(EthernetAgainstPeerTest, ServerOfABenchThatIsStartedAgainIsFoundByTheNextSend)
{
    EXPECT_EQ(configure(tcp(serve(config::Transport::TCP))), 1);
    expectExchange();
    bench.reset();
    ASSERT_TRUE(callback.awaitStatus(2));
    start();
    expectExchange();
    EXPECT_TRUE(callback.awaitStatus(1, 2));
}

TEST_F(EthernetAgainstPeerTest, SilentServerThatTalksAgainAnswersWhatItWasSent)
{
    configuration.faults.events = {{.kind = config::FaultKind::PEER_SILENT, .target = "server"},
                                   {.kind = config::FaultKind::PEER_TALKS, .target = "server", .atMs = 500}};
    EXPECT_EQ(configure(tcp(serve(config::Transport::TCP))), 1);
    expectExchange();
}

TEST_F(EthernetAgainstPeerTest, SinkTakesEverythingAndKeepsTheConnection)
{
    EXPECT_EQ(configure(tcp(serve(config::Transport::TCP, config::Behaviour::SINK))), 1);
    for (int round = 0; round < 100; ++round) {
        const Bytes much(65535);
        ASSERT_EQ(sut->send(much.data(), much.size()), 0);
    }
    EXPECT_THAT(callback.statuses.all(), ElementsAre(1));
}

TEST_F(EthernetAgainstPeerTest, AddressThatTheBenchNamesAsTakenIsAConflict)
{
    configuration.addresses.taken = {"127.0.0.1"};
    const uint16_t served = serve(config::Transport::UDP);
    setenv("VLOGGER", path.c_str(), 1);
    EXPECT_EQ(configure(udp(served)), -2);
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(), testing::IsSupersetOf(
                                 {"[ERROR] ETH[127.0.0.2:PORT]::configure() Configuration failed, IP conflict.",
                                  "[ERROR] ETH[127.0.0.2:PORT]::connect() Can't connect, IP conflict."}));
}

} // namespace
