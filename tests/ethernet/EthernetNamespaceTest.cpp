#include <ethernet/EthernetTest.h>
#include <support/LinkedNamespaces.h>

#include <cstdlib>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The interface with the host's own address service, on a cable to a second host.
class EthernetNamespaceTest : public EthernetTest
{
protected:
    void SetUp() override
    {
        setenv("VQIPCONFIG", "apply", 1);
        if (!network.failure().empty()) {
            GTEST_SKIP() << network.failure();
        }
    }

    static EthernetInterface::Configuration withAddress(const std::string& loggerIp)
    {
        return {"vqa", "10.77.0.9", loggerIp, "255.255.255.0", "10.77.0.254", 5000, false};
    }

    LinkedNamespaces network;
};

TEST_F(EthernetNamespaceTest, ConfigurePutsTheAddressOnTheInterfaceAndDestructionTakesItAway)
{
    ASSERT_EQ(network.ip("addr add 10.77.0.3/24 dev vqa"), "");
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    EXPECT_THAT(network.addresses(), ElementsAre("10.77.0.3/24 vqa", "10.77.0.2/24 vqa:vq"));
    destroy();
    EXPECT_THAT(network.addresses(), ElementsAre("10.77.0.3/24 vqa"));
}

TEST_F(EthernetNamespaceTest, AddressOfTheOtherHostIsAConflict)
{
    ASSERT_EQ(network.otherHostIp("addr add 10.77.0.9/24 dev vqb"), "");
    EXPECT_EQ(configure(withAddress("10.77.0.9")), -2);
    EXPECT_THAT(network.addresses(), IsEmpty());
    EXPECT_FALSE(sut->connect());
    EXPECT_EQ(takeLines().back(), "[ERROR] ETH[10.77.0.9:PORT]::connect() Can't connect, IP conflict.");
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
}

TEST_F(EthernetNamespaceTest, AddressOfAnEarlierConfigurationStays)
{
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    ASSERT_TRUE(sut->disconnect());
    EXPECT_EQ(configure(withAddress("10.77.0.3")), 1);
    destroy();
    EXPECT_THAT(network.addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
}

TEST_F(EthernetNamespaceTest, AddressThatOneObjectConfiguredTwiceGoesWithIt)
{
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    ASSERT_TRUE(sut->disconnect());
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    destroy();
    EXPECT_THAT(network.addresses(), IsEmpty());
}

TEST_F(EthernetNamespaceTest, FirstDestroyedOfTwoWithEqualTextsLeavesTheAddressToTheOther)
{
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    {
        EthernetInterface::Configuration otherPort = withAddress("10.77.0.2");
        otherPort.port = 5001;
        EthernetInterface first;
        EXPECT_EQ(first.configure(otherPort), 1);
    }
    EXPECT_THAT(network.addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    const Bytes three = {1, 2, 3};
    EXPECT_EQ(sut->send(three.data(), three.size()), 0);
    destroy();
    EXPECT_THAT(network.addresses(), IsEmpty());
}

TEST_F(EthernetNamespaceTest, ObjectThatWasRefusedLeavesTheAddressToTheOneThatHasIt)
{
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 1);
    {
        EthernetInterface::Configuration refused = withAddress("10.77.0.2");
        refused.subnet = "255.0.255.0";
        EthernetInterface other;
        EXPECT_EQ(other.configure(refused), -2);
    }
    EXPECT_THAT(network.addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    destroy();
    EXPECT_THAT(network.addresses(), IsEmpty());
}

TEST_F(EthernetNamespaceTest, AddressThatIsNotOnTheMachineCannotBeBoundInModeAccept)
{
    setenv("VQIPCONFIG", "accept", 1);
    EXPECT_EQ(configure(withAddress("10.77.0.2")), 0);
    EXPECT_EQ(lines.count("[ERROR] ETH[10.77.0.9:5000]::connect() bind() failed: Cannot assign requested address"),
              1u);
    EXPECT_TRUE(sut->connect());
    EXPECT_EQ(takeLines().back(), "[INFO] ETH[10.77.0.9:PORT]::connect() Already connected.");
}

TEST_F(EthernetNamespaceTest, AddressThatIsNotOnTheMachineIsAConflictInModeCheck)
{
    setenv("VQIPCONFIG", "check", 1);
    EXPECT_EQ(configure(withAddress("10.77.0.2")), -2);
}

/// The interface with the host's own address service, without any privilege.
class EthernetAddressServiceTest : public EthernetTest
{
};

TEST_F(EthernetAddressServiceTest, ModeAcceptGrantsAnAddressThatCannotBeBound)
{
    setenv("VQIPCONFIG", "accept", 1);
    auto configuration = udp(5000);
    configuration.loggerIp = "192.0.2.1"; // reserved for documentation: on no machine
    EXPECT_EQ(configure(configuration), 0);
    EXPECT_EQ(lines.count("[ERROR] ETH[127.0.0.2:5000]::connect() bind() failed: Cannot assign requested address"),
              1u);
    EXPECT_TRUE(sut->connect());
    EXPECT_EQ(takeLines().back(), "[INFO] ETH[127.0.0.2:PORT]::connect() Already connected.");
}

} // namespace
