#include <vqproc/IPConfig.h>

#include <support/CapturedOutput.h>
#include <support/LinkedNamespaces.h>
#include <support/LoopbackSocket.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <functional>

#include <sys/wait.h>
#include <unistd.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// The mode apply, on a veth pair to a second host.
class IPConfigNamespaceTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setenv("VQIPCONFIG", "apply", 1);
        network = std::make_unique<LinkedNamespaces>();
        if (!network->failure().empty()) {
            GTEST_SKIP() << network->failure();
        }
    }

    static ethernetConfig_t withAddress(const std::string& address)
    {
        ethernetConfig_t config;
        config.interfaceName = "vqa";
        config.serverIp = "10.77.0.9";
        config.loggerIp = address;
        config.subnet = "255.255.255.0";
        config.gatewayIp = "10.77.0.254";
        return config;
    }

    static bool configure(const std::string& address)
    {
        return IPConfig::getInstance()->configureIP(withAddress(address), true);
    }
    static void remove(const std::string& address) { IPConfig::getInstance()->removeIP(withAddress(address)); }

    /// A socket that has the address. The caller closes it.
    static int boundSocket(const char* address)
    {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_TRUE(loopback::tryToBind(fd, address, 0));
        return fd;
    }

    /// What configureIP writes to standard error when it refuses.
    static std::string refusal(const std::string& address)
    {
        CapturedOutput output;
        EXPECT_FALSE(configure(address));
        EXPECT_EQ(output.out(), "");
        return output.err();
    }

    /// A second object asks for an address of ours with an equal record, at a moment when this machine cannot bind it.
    void refuseEqualRecord(const std::string& address)
    {
        setenv("VQIPCONFIG", "check", 1);
        ASSERT_EQ(network->ip("addr del " + address + "/24 dev vqa"), "");
        refusal(address);
        ASSERT_EQ(network->ip("addr add " + address + "/24 dev vqa label vqa:vq"), "");
        setenv("VQIPCONFIG", "apply", 1);
    }

    /// Runs `code` in a child that shares our namespace.
    template <typename Code>
    static pid_t startChild(Code code)
    {
        std::fflush(nullptr);
        const pid_t child = fork();
        if (child == 0) {
            code();
            _exit(99);
        }
        return child;
    }

    static int statusOf(pid_t child)
    {
        int status = 0;
        waitpid(child, &status, 0);
        return status;
    }

    std::unique_ptr<LinkedNamespaces> network;
};

TEST_F(IPConfigNamespaceTest, AddressIsPutOnTheInterfaceAndTakenAway)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    EXPECT_THAT(network->ip("route show dev vqa"), testing::HasSubstr("10.77.0.0/24"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, AddressOfAnotherHostIsRefused)
{
    ASSERT_EQ(network->otherHostIp("addr add 10.77.0.9/24 dev vqb"), "");
    EXPECT_EQ(refusal("10.77.0.9"), "[ERROR] IPConfig: refused 10.77.0.9 on vqa: the host " +
                                        network->otherHostHardware() + " on the link uses it\n");
    EXPECT_THAT(network->addresses(), IsEmpty());
    EXPECT_TRUE(configure("10.77.0.2"));
}

TEST_F(IPConfigNamespaceTest, AddressThatTheInterfaceHadBeforeStays)
{
    ASSERT_EQ(network->ip("addr add 10.77.0.2/16 dev vqa"), "");
    CapturedOutput output;
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_EQ(output.err(),
              "[WARNING] IPConfig: 10.77.0.2 is on vqa already and keeps its mask of 16 bits; 24 were "
              "asked for\n");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/16 vqa"));
}

TEST_F(IPConfigNamespaceTest, AddressOnAnotherInterfaceOfThisMachineIsRefused)
{
    ASSERT_EQ(network->ip("addr add 10.77.0.2/32 dev lo"), "");
    EXPECT_EQ(refusal("10.77.0.2"), "[ERROR] IPConfig: refused 10.77.0.2 on vqa: this machine has it on lo\n");
}

TEST_F(IPConfigNamespaceTest, LaterAddressesOfTheSubnetSurviveTheRemoval)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ASSERT_EQ(network->ip("addr add 10.77.0.3/24 dev vqa"), "");
    ASSERT_EQ(network->ip("addr add 10.77.0.4/24 dev vqa label vqa:x"), "");
    ASSERT_EQ(network->ip("addr add 10.78.0.3/24 dev vqa"), "");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(),
                testing::UnorderedElementsAre("10.77.0.3/24 vqa", "10.77.0.4/24 vqa:x", "10.78.0.3/24 vqa"));
}

TEST_F(IPConfigNamespaceTest, LastOfSeveralRecordsTakesTheAddressAway)
{
    ethernetConfig_t other = withAddress("10.77.0.2");
    other.serverIp = "10.77.0.8";
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(other, true));
    remove("10.77.0.2");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    IPConfig::getInstance()->removeIP(other);
    EXPECT_THAT(network->addresses(), IsEmpty());
    remove("10.77.0.2");
}

TEST_F(IPConfigNamespaceTest, EqualRecordsCountOnce)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.2"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, AddressOfASingleGrantGoesThoughASocketIsBoundToIt)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    const int fd = boundSocket("10.77.0.2");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
    close(fd);
}

TEST_F(IPConfigNamespaceTest, AddressGivenUpAsOftenAsItWasGrantedGoesThoughASocketIsBoundToIt)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.2"));
    const int fd = boundSocket("10.77.0.2");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
    close(fd);
}

TEST_F(IPConfigNamespaceTest, AddressThatASocketIsBoundToStaysUntilAnEqualRecordFindsNone)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.2"));
    const int fd = boundSocket("10.77.0.2");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    close(fd);
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, SocketOnAnotherAddressKeepsNothing)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.3"));
    const int fd = boundSocket("10.77.0.3");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.3/24 vqa:vq"));
    close(fd);
}

TEST_F(IPConfigNamespaceTest, AddressThatAllRecordsGaveUpGoesWithTheLastSocket)
{
    ethernetConfig_t other = withAddress("10.77.0.2");
    other.serverIp = "10.77.0.8";
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(configure("10.77.0.2")); // of a second object with the first record
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(other, true));
    const int fd = boundSocket("10.77.0.2");
    remove("10.77.0.2");
    IPConfig::getInstance()->removeIP(other);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    close(fd);
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, RecordThatIsGrantedAgainHoldsTheAddressAgain)
{
    ethernetConfig_t other = withAddress("10.77.0.2");
    other.serverIp = "10.77.0.8";
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(other, true));
    remove("10.77.0.2");
    EXPECT_TRUE(configure("10.77.0.2"));
    IPConfig::getInstance()->removeIP(other);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, ProcessExitTakesAnAddressAwayThatASocketIsBoundTo)
{
    const pid_t child = startChild([] {
        const bool isGranted = configure("10.77.0.2") && configure("10.77.0.2");
        boundSocket("10.77.0.2");
        remove("10.77.0.2");
        std::exit(isGranted ? 0 : 1);
    });
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, RecordThatWasNeverGrantedTakesNothingAway)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ethernetConfig_t other = withAddress("10.77.0.2");
    other.gatewayIp = "10.77.0.253";
    IPConfig::getInstance()->removeIP(other);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, RemovalAfterTheRefusalOfAnEqualRecordIsThatOfTheRefusedOne)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    refuseEqualRecord("10.77.0.2");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, RefusalIsForgottenWhenAnEqualRecordIsGrantedAgain)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    refuseEqualRecord("10.77.0.2");
    EXPECT_TRUE(configure("10.77.0.2"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, OtherMaskOfAnAddressThatWasAddedIsTold)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ethernetConfig_t wider = withAddress("10.77.0.2");
    wider.subnet = "255.255.0.0";
    CapturedOutput output;
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(wider, true));
    EXPECT_EQ(output.err(),
              "[WARNING] IPConfig: 10.77.0.2 is on vqa already and keeps its mask of 24 bits; 16 were "
              "asked for\n");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, AddressThatSomebodyElseRemovedIsNoError)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ASSERT_EQ(network->ip("addr del 10.77.0.2/24 dev vqa"), "");
    CapturedOutput output;
    remove("10.77.0.2");
    EXPECT_EQ(output.err(), "");
}

TEST_F(IPConfigNamespaceTest, AddressOfAnotherPrefixInPlaceOfOursStays)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ASSERT_EQ(network->ip("addr del 10.77.0.2/24 dev vqa"), "");
    ASSERT_EQ(network->ip("addr add 10.77.0.2/16 dev vqa label vqa:vq"), "");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/16 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, AddressWithoutOurLabelInPlaceOfOursStays)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    ASSERT_EQ(network->ip("addr del 10.77.0.2/24 dev vqa"), "");
    ASSERT_EQ(network->ip("addr add 10.77.0.2/24 dev vqa"), "");
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa"));
}

TEST_F(IPConfigNamespaceTest, AddressOfADeadProcessIsTakenOverWithItsPrefix)
{
    const pid_t child = startChild([] { _exit(configure("10.77.0.2") ? 0 : 1); });
    EXPECT_EQ(statusOf(child), 0);
    ethernetConfig_t wider = withAddress("10.77.0.2");
    wider.subnet = "255.255.0.0";
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(wider, true));
    IPConfig::getInstance()->removeIP(wider);
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, ModeAtRemovalDoesNotMatter)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    setenv("VQIPCONFIG", "accept", 1);
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, ProcessExitTakesAddressesAway)
{
    const pid_t child = startChild([] { std::exit(configure("10.77.0.2") && configure("10.77.0.3") ? 0 : 1); });
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, ForkedChildLeavesTheAddressesOfItsParent)
{
    EXPECT_TRUE(configure("10.77.0.2"));
    const pid_t child = startChild([] {
        remove("10.77.0.2");
        std::exit(0);
    });
    EXPECT_EQ(statusOf(child), 0);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, AddressOfADeadProcessIsTakenOver)
{
    const pid_t child = startChild([] { _exit(configure("10.77.0.2") ? 0 : 1); });
    EXPECT_EQ(statusOf(child), 0);
    ASSERT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
    remove("10.77.0.2");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(IPConfigNamespaceTest, AddressesOfADeadProcessAreCleanedUpByTheNextOne)
{
    const pid_t child = startChild([] {
        configure("10.77.0.2");
        configure("10.77.0.3");
        raise(SIGKILL);
    });
    EXPECT_TRUE(WIFSIGNALED(statusOf(child)));
    ASSERT_EQ(network->addresses().size(), 2u);
    ASSERT_EQ(network->ip("addr add 10.77.0.4/24 dev vqa"), "");
    EXPECT_TRUE(configure("10.77.0.5"));
    EXPECT_THAT(network->addresses(), testing::UnorderedElementsAre("10.77.0.4/24 vqa", "10.77.0.5/24 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, AddressOfALivingProcessIsSharedAndLeftToIt)
{
    int ready[2] = {-1, -1};
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = startChild([&] {
        const char done = configure("10.77.0.2") ? 'y' : 'n';
        if (write(ready[1], &done, 1) == 1) {
            pause();
        }
    });
    char answer = 'n';
    ASSERT_EQ(read(ready[0], &answer, 1), 1);
    ASSERT_EQ(answer, 'y');
    EXPECT_TRUE(configure("10.77.0.2"));
    remove("10.77.0.2");
    EXPECT_TRUE(configure("10.77.0.3"));
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq", "10.77.0.3/24 vqa:vq"));
    kill(child, SIGKILL);
    statusOf(child);
}

TEST_F(IPConfigNamespaceTest, LongInterfaceNameIsCutInTheLabel)
{
    ASSERT_EQ(network->ip("link add enx0011223344a type veth peer name other"), "");
    ASSERT_EQ(network->ip("link set enx0011223344a up"), "");
    ethernetConfig_t config = withAddress("10.79.0.2");
    config.interfaceName = "enx0011223344a";
    CapturedOutput output; // the other end is down, so nobody can be asked
    EXPECT_TRUE(IPConfig::getInstance()->configureIP(config, true));
    EXPECT_THAT(network->ip("-o -4 addr show dev enx0011223344a"), testing::HasSubstr(" enx001122334:vq\\"));
    IPConfig::getInstance()->removeIP(config);
    EXPECT_EQ(network->ip("-o -4 addr show dev enx0011223344a"), "");
}

TEST_F(IPConfigNamespaceTest, LinkThatIsDownIsNotAskedAndThatIsSaid)
{
    ASSERT_EQ(network->ip("link set vqa down"), "");
    CapturedOutput output;
    EXPECT_TRUE(configure("10.77.0.2"));
    EXPECT_EQ(output.err(), "[WARNING] IPConfig: the link of vqa was not asked whether 10.77.0.2 is in use: the "
                            "interface is down\n");
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa:vq"));
}

TEST_F(IPConfigNamespaceTest, WithoutThePrivilegeTheAddressIsRefused)
{
    ASSERT_EQ(seteuid(65534), 0);
    const std::string said = refusal("10.77.0.2");
    ASSERT_EQ(seteuid(0), 0);
    EXPECT_EQ(said, "[WARNING] IPConfig: the link of vqa was not asked whether 10.77.0.2 is in use: packet socket: "
                    "Operation not permitted\n"
                    "[ERROR] IPConfig: refused 10.77.0.2 on vqa: Operation not permitted (the mode apply needs the "
                    "capability CAP_NET_ADMIN)\n");
    EXPECT_THAT(network->addresses(), IsEmpty());
}

} // namespace
