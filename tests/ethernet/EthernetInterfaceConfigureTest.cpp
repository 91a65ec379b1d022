#include <ethernet/EthernetTest.h>
#include <support/FakeIpConfig.h>
#include <support/PrivateMember.h>

REVEAL_MEMBER(ConfiguredFlag, EthernetInterface, configured);

namespace {

using testing::ElementsAre;

const std::string TCP_CONFIG = "interfaceName=eth1; serverIp=127.0.0.1; loggerIp=127.0.0.1; subnet=255.0.0.0; "
                               "gatewayIp=127.0.0.254; port=PORT; useTcp=1";
const std::string UDP_CONFIG = "interfaceName=eth1; serverIp=127.0.0.2; loggerIp=127.0.0.1; subnet=255.0.0.0; "
                               "gatewayIp=127.0.0.254; port=PORT; useTcp=0";

class EthernetInterfaceConfigureTest : public EthernetTest
{
protected:
    /// What configure() says until connect() opens a socket, and the request for the address, and then `rest`.
    Lines configuring(const EthernetInterface::Configuration& configuration, const Lines& rest) const
    {
        const std::string origin = "[INFO] ETH[" + configuration.serverIp + ":PORT]";
        const std::string& text = configuration.useTcp ? TCP_CONFIG : UDP_CONFIG;
        Lines said = {origin + "::configure() " + text,
                      std::string("{configureIP eth1 udp=") + (configuration.useTcp ? "0}" : "1}"),
                      origin + "::configure() Configuration successful, try to connect to server.",
                      origin + "::connect() Try connect to server: " + text};
        said.insert(said.end(), rest.begin(), rest.end());
        return said;
    }

    /// The platform refuses the address.
    void configureInConflict(uint16_t serverPort)
    {
        fakeIpConfig::grantAddresses(false);
        EXPECT_EQ(configure(tcp(serverPort)), -2);
    }
};

TEST_F(EthernetInterfaceConfigureTest, ConstructionSaysAndOpensNothing)
{
    EXPECT_THAT(takeLines(), ElementsAre());
    EXPECT_EQ(callback.statuses.count(), 0u);
}

TEST_F(EthernetInterfaceConfigureTest, TcpConfiguresAndConnects)
{
    const ScriptedTcpServer server(Script::SINK);
    EXPECT_EQ(configure(tcp(server.port())), 1);
    EXPECT_EQ(
        takeCallerLines(),
        configuring(tcp(server.port()), {"[DEBUG] ETH[127.0.0.1:PORT]::connect() serverAddr: 127.0.0.1:PORT",
                                         "[DEBUG] ETH[127.0.0.1:PORT]::connect() Start RX thread.", "{status 1}",
                                         "[INFO] ETH[127.0.0.1:PORT]::configure() Connect successful."}));
    EXPECT_TRUE(server.accepted.waitForCount(1));
}

TEST_F(EthernetInterfaceConfigureTest, UdpConfiguresAndBinds)
{
    const ScriptedUdpServer server(Script::SINK);
    EXPECT_EQ(configure(udp(server.port())), 1);
    EXPECT_EQ(
        takeCallerLines(),
        configuring(udp(server.port()), {"[DEBUG] ETH[127.0.0.2:PORT]::connect() serverAddr: 127.0.0.2:PORT",
                                         "[DEBUG] ETH[127.0.0.2:PORT]::connect() socketAddr: 127.0.0.1:PORT",
                                         "[DEBUG] ETH[127.0.0.2:PORT]::connect() Start RX thread.", "{status 1}",
                                         "[INFO] ETH[127.0.0.2:PORT]::configure() Connect successful."}));
}

TEST_F(EthernetInterfaceConfigureTest, LogLevelZeroLeavesOutTheSteps)
{
    const ScriptedUdpServer server(Script::SINK);
    sut->logLevel = 0;
    EXPECT_EQ(configure(udp(server.port())), 1);
    EXPECT_TRUE(sut->disconnect());
    // The start of the thread is told at every level.
    EXPECT_EQ(
        takeCallerLines(),
        configuring(udp(server.port()), {"[DEBUG] ETH[127.0.0.2:PORT]::connect() Start RX thread.", "{status 1}",
                                         "[INFO] ETH[127.0.0.2:PORT]::configure() Connect successful.",
                                         "[INFO] ETH[127.0.0.2:PORT]::disconnect() Disconnected.", "{status 2}"}));
}

TEST_F(EthernetInterfaceConfigureTest, RefusedConnectionLeavesConfiguredAndDisconnected)
{
    const RefusingPort nobody;
    EXPECT_EQ(configure(tcp(nobody.port())), 0);
    EXPECT_EQ(
        takeCallerLines(),
        configuring(tcp(nobody.port()),
                    {"[DEBUG] ETH[127.0.0.1:PORT]::connect() serverAddr: 127.0.0.1:PORT",
                     "[ERROR] ETH[127.0.0.1:PORT]::connect() connect(): Connection refused",
                     "[DEBUG] ETH[127.0.0.1:PORT]::disconnect() Close socket.",
                     "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}",
                     "[WARNING] ETH[127.0.0.1:PORT]::configure() Connect failed. Try later at send() again."}));
    EXPECT_TRUE(sut->disconnect());
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected."));
}

TEST_F(EthernetInterfaceConfigureTest, ConfigureWhileConnectedIsRefusedAndChangesNothing)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    EXPECT_EQ(sut->configure({"eth9", "10.9.9.9", "10.9.9.8", "255.0.0.0", "10.9.9.1", 9, false}), -1);
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::configure() Configuration failed, interface "
                                         "is already connected."));
    EXPECT_EQ(fakeIpConfig::configured().size(), 1u);
    ASSERT_TRUE(sut->disconnect());
    takeLines();
    EXPECT_TRUE(sut->connect());
    EXPECT_THAT(takeCallerLines(),
                ElementsAre("[INFO] ETH[127.0.0.1:PORT]::connect() Try connect to server: " + TCP_CONFIG,
                            "[DEBUG] ETH[127.0.0.1:PORT]::connect() serverAddr: 127.0.0.1:PORT", "{status 1}"));
}

TEST_F(EthernetInterfaceConfigureTest, AddressConflictBlocksConnectUntilConfigured)
{
    const ScriptedTcpServer server(Script::SINK);
    configureInConflict(server.port());
    EXPECT_THAT(takeLines(),
                ElementsAre("[INFO] ETH[127.0.0.1:PORT]::configure() " + TCP_CONFIG, "{configureIP eth1 udp=0}",
                            "[ERROR] ETH[127.0.0.1:PORT]::configure() Configuration failed, IP conflict."));
    EXPECT_FALSE(sut->connect());
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::connect() Can't connect, IP conflict.",
                                         "[ERROR] ETH[127.0.0.1:PORT]::connect() Can't connect, IP conflict."));
    fakeIpConfig::grantAddresses(true);
    EXPECT_EQ(configure(tcp(server.port())), 1);
}

TEST_F(EthernetInterfaceConfigureTest, ConflictAfterASuccessfulConfigurationBlocksConnect)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    ASSERT_TRUE(sut->disconnect());
    EXPECT_TRUE(*sut.*reveal(ConfiguredFlag{}));
    configureInConflict(server.port());
    EXPECT_FALSE(*sut.*reveal(ConfiguredFlag{}));
    takeLines();
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[127.0.0.1:PORT]::connect() Can't connect, IP conflict."));
}

TEST_F(EthernetInterfaceConfigureTest, ConnectBeforeConfigureFails)
{
    EXPECT_FALSE(sut->connect());
    EXPECT_THAT(takeLines(), ElementsAre("[ERROR] ETH[:0]::connect() Can't connect, interface isn't configured."));
    EXPECT_EQ(callback.statuses.count(), 0u);
}

TEST_F(EthernetInterfaceConfigureTest, RecordCarriesTheFiveTextsAndNothingElse)
{
    const RefusingPort nobody;
    configure(tcp(nobody.port()));
    destroy();
    const auto configured = fakeIpConfig::configured();
    const auto removed = fakeIpConfig::removed();
    ASSERT_EQ(configured.size(), 1u);
    ASSERT_EQ(removed.size(), 1u);
    EXPECT_FALSE(configured[0].udp);
    for (const ethernetConfig_t& record : {configured[0].config, removed[0]}) {
        EXPECT_EQ(record.interfaceName, "eth1");
        EXPECT_EQ(record.serverIp, "127.0.0.1");
        EXPECT_EQ(record.loggerIp, "127.0.0.1");
        EXPECT_EQ(record.subnet, "255.0.0.0");
        EXPECT_EQ(record.gatewayIp, "127.0.0.254");
        EXPECT_EQ(record.port, 0);
        EXPECT_EQ(record.reserved2 + record.reserved5, "");
        EXPECT_EQ(record.reserved0 + record.reserved3 + record.reserved6 + record.reserved10 + record.reserved12,
                  0);
        EXPECT_EQ(record.reserved1 + record.reserved4 + record.reserved7 + record.reserved9 + record.reserved11,
                  0u);
        EXPECT_EQ(record.reserved8, 0u);
    }
}

TEST_F(EthernetInterfaceConfigureTest, DatagramsAskForTheAddressWithTrue)
{
    const ScriptedUdpServer server(Script::SINK);
    configure(udp(server.port()));
    ASSERT_EQ(fakeIpConfig::configured().size(), 1u);
    EXPECT_TRUE(fakeIpConfig::configured()[0].udp);
}

TEST_F(EthernetInterfaceConfigureTest, NewConfigurationDoesNotGiveBackTheOldAddress)
{
    const RefusingPort nobody;
    configure(tcp(nobody.port()));
    configure(tcp(nobody.port()));
    EXPECT_EQ(fakeIpConfig::configured().size(), 2u);
    EXPECT_EQ(fakeIpConfig::removed().size(), 0u);
    destroy();
    EXPECT_EQ(fakeIpConfig::removed().size(), 1u);
}

TEST_F(EthernetInterfaceConfigureTest, DestroyingAnUnconfiguredObjectGivesBackEmptyTexts)
{
    destroy();
    EXPECT_THAT(takeLines(), ElementsAre("[DEBUG] ETH[:0]::~EthernetInterface() join",
                                         "[INFO] ETH[:0]::disconnect() Already disconnected.", "{removeIP }"));
    ASSERT_EQ(fakeIpConfig::removed().size(), 1u);
    EXPECT_EQ(fakeIpConfig::removed()[0].loggerIp, "");
}

TEST_F(EthernetInterfaceConfigureTest, DestroyingAtLogLevelZeroLeavesOutTheJoin)
{
    sut->logLevel = 0;
    destroy();
    EXPECT_THAT(takeLines(), ElementsAre("[INFO] ETH[:0]::disconnect() Already disconnected.", "{removeIP }"));
}

TEST_F(EthernetInterfaceConfigureTest, DestroyingAConflictedObjectGivesBackItsAddress)
{
    configureInConflict(5000);
    takeLines();
    destroy();
    EXPECT_THAT(takeLines(),
                ElementsAre("[DEBUG] ETH[127.0.0.1:PORT]::~EthernetInterface() join",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"));
}

TEST_F(EthernetInterfaceConfigureTest, DestroyingAConnectedObjectStopsTheThreadThenGivesBackTheAddress)
{
    const ScriptedTcpServer server(Script::SINK);
    connectTo(tcp(server.port()));
    destroy();
    Lines said = takeLines();
    // The thread may see its end before the destructor says that it waits.
    const auto join = std::find(said.begin(), said.end(), "[DEBUG] ETH[127.0.0.1:PORT]::~EthernetInterface() join");
    ASSERT_NE(join, said.end());
    said.erase(join);
    // The ending thread closes the socket, so the destructor finds it closed.
    EXPECT_THAT(said,
                ElementsAre("[DEBUG] ETH[127.0.0.1:PORT]::disconnect() Close socket.",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Disconnected.", "{status 2}",
                            "[INFO] ETH[127.0.0.1:PORT]::threadCode() Exit RX thread.",
                            "[INFO] ETH[127.0.0.1:PORT]::disconnect() Already disconnected.", "{removeIP eth1}"));
}

} // namespace
