#include <vqproc/IPConfig.h>

#include <logger/VirtualLogger.h>
#include <support/CapturedOutput.h>
#include <support/ProcessResources.h>
#include <support/Sanitizer.h>
#include <support/TemporaryDirectory.h>
#include <wire/DefaultSocket.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include <sys/resource.h>

namespace {

/// What configureIP answered, and what it wrote to standard error.
struct Answer
{
    bool granted;
    std::string said;
    bool operator==(const Answer&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Answer& answer)
{
    return stream << answer.granted << " \"" << answer.said << '"';
}

class IPConfigTest : public testing::Test
{
protected:
    ~IPConfigTest() override { unsetenv("VQIPCONFIG"); }

    static void chooseMode(const char* mode) { setenv("VQIPCONFIG", mode, 1); }

    Answer configure(bool udp = true) const
    {
        CapturedOutput output;
        const bool granted = IPConfig::getInstance()->configureIP(config, udp);
        EXPECT_EQ(output.out(), "");
        return {granted, output.err()};
    }

    static ethernetConfig_t someConfig()
    {
        ethernetConfig_t record;
        record.interfaceName = "eth1";
        record.serverIp = "127.0.0.2";
        record.loggerIp = "127.0.0.1";
        record.subnet = "255.0.0.0";
        record.gatewayIp = "127.0.0.254";
        return record;
    }

    ethernetConfig_t config = someConfig();
    const Answer GRANTED = {true, ""};
};

TEST_F(IPConfigTest, IsOneObject)
{
    EXPECT_NE(IPConfig::getInstance(), nullptr);
    EXPECT_EQ(IPConfig::getInstance(), IPConfig::getInstance());
}

TEST_F(IPConfigTest, CheckIsTheDefaultAndGrantsAnAddressOfThisMachine)
{
    unsetenv("VQIPCONFIG");
    EXPECT_EQ(configure(true), GRANTED);
    EXPECT_EQ(configure(false), GRANTED);
    chooseMode("");
    EXPECT_EQ(configure(true), GRANTED);
    chooseMode("check");
    EXPECT_EQ(configure(true), GRANTED);
}

TEST_F(IPConfigTest, CheckRefusesAnAddressOfAnotherMachine)
{
    config.loggerIp = "192.0.2.1"; // reserved for documentation: on no machine
    const Answer refused = {false,
                            "[ERROR] IPConfig: refused 192.0.2.1 on eth1: Cannot assign requested address; put "
                            "it on an interface, or set VQIPCONFIG to apply or accept\n"};
    EXPECT_EQ(configure(true), refused);
    EXPECT_EQ(configure(false), refused);
}

TEST_F(IPConfigTest, CheckGrantsTheWildcardAddress)
{
    config.loggerIp = "0.0.0.0";
    EXPECT_EQ(configure(), GRANTED);
}

TEST_F(IPConfigTest, CheckWorksWithoutMaskAndGateway)
{
    config.subnet = "";
    config.gatewayIp = "";
    EXPECT_EQ(configure(), GRANTED);
}

TEST_F(IPConfigTest, TextThatIsNoAddressIsRefused)
{
    for (const char* const text : {"", "10.1", "logger"}) {
        config.loggerIp = text;
        EXPECT_EQ(configure(), (Answer{false, std::string("[ERROR] IPConfig: refused ") + text +
                                                  " on eth1: it is no dotted IPv4 address\n"}));
    }
}

TEST_F(IPConfigTest, AddressThatNoHostCanHaveIsRefused)
{
    for (const char* const text : {"224.0.0.1", "255.255.255.255", "0.0.0.1"}) {
        config.loggerIp = text;
        EXPECT_EQ(configure(), (Answer{false, std::string("[ERROR] IPConfig: refused ") + text +
                                                  " on eth1: it is no address of a host\n"}));
    }
}

TEST_F(IPConfigTest, WrongMaskIsRefused)
{
    config.subnet = "255.0.255.0";
    EXPECT_EQ(configure(),
              (Answer{false, "[ERROR] IPConfig: refused 127.0.0.1 on eth1: \"255.0.255.0\" is no subnet "
                             "mask\n"}));
}

TEST_F(IPConfigTest, WrongGatewayIsRefused)
{
    config.gatewayIp = "gateway";
    EXPECT_EQ(configure(),
              (Answer{false, "[ERROR] IPConfig: refused 127.0.0.1 on eth1: the gateway \"gateway\" is no "
                             "dotted IPv4 address\n"}));
}

TEST_F(IPConfigTest, AcceptGrantsEverything)
{
    chooseMode("accept");
    config.loggerIp = "192.0.2.1";
    EXPECT_EQ(configure(), GRANTED);
    config.loggerIp = "nonsense";
    EXPECT_EQ(configure(), GRANTED);
}

TEST_F(IPConfigTest, UnknownModeIsSaidAndTakenForCheck)
{
    chooseMode("aply");
    const std::string line =
        "[WARNING] IPConfig: VQIPCONFIG is \"aply\", which is none of check, apply and accept; "
        "taken for check\n";
    EXPECT_EQ(configure(), (Answer{true, line}));
    config.loggerIp = "nonsense";
    EXPECT_EQ(configure(), (Answer{false, line + "[ERROR] IPConfig: refused nonsense on eth1: it is no dotted IPv4 "
                                                 "address\n"}));
}

TEST_F(IPConfigTest, ApplyNeedsAMask)
{
    chooseMode("apply");
    config.subnet = "";
    EXPECT_EQ(configure(),
              (Answer{false, "[ERROR] IPConfig: refused 127.0.0.1 on eth1: \"\" is no subnet mask\n"}));
}

TEST_F(IPConfigTest, ApplyRefusesTheWildcardAddress)
{
    chooseMode("apply");
    config.loggerIp = "0.0.0.0";
    EXPECT_EQ(configure(),
              (Answer{false, "[ERROR] IPConfig: refused 0.0.0.0 on eth1: it is no address of a host\n"}));
}

TEST_F(IPConfigTest, ApplyRefusesAnUnknownInterface)
{
    chooseMode("apply");
    config.interfaceName = "nosuchinterface0";
    EXPECT_EQ(configure(), (Answer{false, "[ERROR] IPConfig: refused 127.0.0.1 on nosuchinterface0: there is no "
                                          "interface nosuchinterface0\n"}));
}

TEST_F(IPConfigTest, ApplyWithoutAFreeDescriptorRefusesWithTheReason)
{
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own";
    }
    chooseMode("apply");
    config.interfaceName = "lo";
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    CapturedOutput output;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const bool granted = IPConfig::getInstance()->configureIP(config, true);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_FALSE(granted);
    EXPECT_EQ(output.err(), "[ERROR] IPConfig: refused 127.0.0.1 on lo: netlink socket: Too many open files\n");
}

TEST_F(IPConfigTest, ApplyGrantsAnAddressThatTheInterfaceCarries)
{
    chooseMode("apply");
    config.interfaceName = "lo";
    EXPECT_EQ(configure(), GRANTED);
    // It was not added, so it stays.
    IPConfig::getInstance()->removeIP(config);
    chooseMode("check");
    EXPECT_EQ(configure(), GRANTED);
}

/// With a virtual logger that plays another host with the address 127.0.0.5.
class TakenAddressTest : public IPConfigTest
{
protected:
    TakenAddressTest()
    {
        setenv("VLOGGER", path.c_str(), 1);
        config.interfaceName = "lo";
    }

    Answer configureIn(const char* mode, const char* address)
    {
        chooseMode(mode);
        config.loggerIp = address;
        return configure();
    }

    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/logger";
    const vlogger::VirtualLogger logger{{.socketPath = path, .takenAddresses = {"127.0.0.5"}}};
    const Answer TAKEN = {false,
                          "[ERROR] IPConfig: refused 127.0.0.5 on lo: the virtual logger's configuration names "
                          "it as taken by another host\n"};
};

TEST_F(TakenAddressTest, CheckRefusesATakenAddress)
{
    EXPECT_EQ(configureIn("check", "127.0.0.5"), TAKEN);
}

TEST_F(TakenAddressTest, ApplyRefusesATakenAddress)
{
    EXPECT_EQ(configureIn("apply", "127.0.0.5"), TAKEN);
}

TEST_F(TakenAddressTest, AcceptGrantsATakenAddress)
{
    EXPECT_EQ(configureIn("accept", "127.0.0.5"), GRANTED);
}

TEST_F(TakenAddressTest, AnyOtherAddressIsGranted)
{
    EXPECT_EQ(configureIn("check", "127.0.0.6"), GRANTED);
}

TEST_F(IPConfigTest, NoVirtualLoggerIsStartedForTheQuestion)
{
    setenv("VLOGGER", "embedded", 1);
    const size_t threads = processresources::threads();
    EXPECT_EQ(configure(), GRANTED);
    EXPECT_EQ(processresources::threads(), threads);
}

TEST_F(IPConfigTest, WithoutAVirtualLoggerNothingIsSaid)
{
    const TemporaryDirectory directory;
    unsetenv("VLOGGER");
    setenv("XDG_RUNTIME_DIR", directory.path().c_str(), 1);
    const size_t threads = processresources::threads();
    EXPECT_EQ(configure(), GRANTED);
    EXPECT_EQ(processresources::threads(), threads);
}

TEST_F(IPConfigTest, VirtualLoggerAtTheDefaultSocketIsAsked)
{
    const TemporaryDirectory directory;
    unsetenv("VLOGGER");
    setenv("XDG_RUNTIME_DIR", directory.path().c_str(), 1);
    const vlogger::VirtualLogger logger({.socketPath = wire::defaultSocketPath(), .takenAddresses = {"127.0.0.1"}});
    EXPECT_FALSE(configure().granted);
    config.loggerIp = "127.0.0.6";
    EXPECT_EQ(configure(), GRANTED);
}

TEST_F(IPConfigTest, VirtualLoggerThatCannotBeReachedRefusesNothing)
{
    const TemporaryDirectory directory;
    const std::string path = directory.path() + "/nobody";
    setenv("VLOGGER", path.c_str(), 1);
    EXPECT_EQ(configure(), (Answer{true, "[ERROR] virtual logger: cannot reach the one at " + path +
                                             ": No such file or directory; start it with 'vlogger serve --socket " +
                                             path + "', or unset VLOGGER to run on one inside the process\n"}));
}

TEST_F(IPConfigTest, RemovalOfWhatWasNeverAddedIsANoOp)
{
    CapturedOutput output;
    IPConfig::getInstance()->removeIP(config);
    IPConfig::getInstance()->removeIP({});
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

} // namespace
