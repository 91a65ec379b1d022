#include <EthernetInterface.h>

#include <support/PrivateMember.h>
#include <support/TextOf.h>
#include <support/VirtualSlot.h>

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

REVEAL_MEMBER(Config, EthernetInterface, config);
REVEAL_MEMBER(Configured, EthernetInterface, configured);
REVEAL_MEMBER(IpConflict, EthernetInterface, ipConflict);
REVEAL_MEMBER(RxThreadRunning, EthernetInterface, rxThreadRunning);
REVEAL_MEMBER(SocketFd, EthernetInterface, socketFd);
REVEAL_MEMBER(ReadSet, EthernetInterface, readSet);
REVEAL_MEMBER(ServerAddr, EthernetInterface, serverAddr);
REVEAL_MEMBER(ReceiverAddr, EthernetInterface, receiverAddr);
REVEAL_MEMBER(SentCount, EthernetInterface, sentCount);
REVEAL_MEMBER(ReceivedCount, EthernetInterface, receivedCount);
REVEAL_MEMBER(BusLoadCount, EthernetInterface, busLoadCount);
REVEAL_MEMBER(BusLoadIntervalStart, EthernetInterface, busLoadIntervalStart);
REVEAL_MEMBER(LastBusLoad, EthernetInterface, lastBusLoad);
REVEAL_MEMBER(BusLoadMutex, EthernetInterface, busLoadMutex);

namespace {

using Configuration = EthernetInterface::Configuration;

TEST(EthernetInterfaceLayoutTest, MembersStandInTheirOrder)
{
    const EthernetInterface sut;
    const std::vector<size_t> offsets = {
        offsetIn(sut, reveal(Config{})),
        offsetIn(sut, reveal(Configured{})),
        offsetIn(sut, reveal(IpConflict{})),
        offsetIn(sut, reveal(RxThreadRunning{})),
        offsetIn(sut, reveal(SocketFd{})),
        offsetIn(sut, reveal(ReadSet{})),
        offsetIn(sut, reveal(ServerAddr{})),
        offsetIn(sut, reveal(ReceiverAddr{})),
        offsetIn(sut, &EthernetInterface::logLevel),
        offsetIn(sut, reveal(SentCount{})),
        offsetIn(sut, reveal(ReceivedCount{})),
        offsetIn(sut, reveal(BusLoadCount{})),
        offsetIn(sut, reveal(BusLoadIntervalStart{})),
        offsetIn(sut, reveal(LastBusLoad{})),
        offsetIn(sut, reveal(BusLoadMutex{})),
    };
    for (size_t index = 1; index < offsets.size(); ++index) {
        EXPECT_LT(offsets[index - 1], offsets[index]) << "member " << index;
    }
}

TEST(EthernetInterfaceLayoutTest, MembersStartAsStated)
{
    EthernetInterface sut;
    EXPECT_EQ(textOf(sut.*reveal(Config{})),
              "interfaceName=; serverIp=; loggerIp=; subnet=; gatewayIp=; port=0; useTcp=0");
    EXPECT_FALSE(sut.*reveal(Configured{}));
    EXPECT_FALSE(sut.*reveal(IpConflict{}));
    EXPECT_FALSE(sut.*reveal(RxThreadRunning{}));
    EXPECT_EQ(sut.*reveal(SocketFd{}), -1);
    for (int fd = 0; fd < static_cast<int>(FD_SETSIZE); ++fd) {
        ASSERT_FALSE(FD_ISSET(fd, &(sut.*reveal(ReadSet{})))) << fd;
    }
    EXPECT_EQ(sut.logLevel, 1u);
    EXPECT_EQ(sut.debugLevel, 0);
    EXPECT_EQ(sut.*reveal(SentCount{}), 0u);
    EXPECT_EQ(sut.*reveal(ReceivedCount{}), 0u);
    EXPECT_EQ(sut.*reveal(BusLoadCount{}), 0u);
    EXPECT_EQ(sut.*reveal(BusLoadIntervalStart{}), 0u);
    EXPECT_EQ(sut.getLastBusLoad(), 0u);
    EXPECT_TRUE(sut.callbacks.empty());
}

TEST(EthernetInterfaceLayoutTest, MembersHaveTheStatedTypes)
{
    static_assert(std::is_same_v<decltype(reveal(SocketFd{})), std::atomic<int> EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(ReadSet{})), fd_set EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(ServerAddr{})), sockaddr_in EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(ReceiverAddr{})), sockaddr_in EthernetInterface::*>);
    static_assert(
        std::is_same_v<decltype(&EthernetInterface::logLevel), std::atomic<uint32_t> EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(SentCount{})), std::atomic<uint64_t> EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(ReceivedCount{})), std::atomic<uint64_t> EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(LastBusLoad{})), uint64_t EthernetInterface::*>);
    static_assert(std::is_same_v<decltype(reveal(BusLoadMutex{})), Mutex EthernetInterface::*>);
    static_assert(sizeof(std::atomic<int>) == 4 && sizeof(std::atomic<bool>) == 1 && sizeof(sockaddr_in) == 16);
}

TEST(EthernetInterfaceLayoutTest, VirtualOperationsStandInTheirSlots)
{
    int (EthernetInterface::*sendBytes)(const uint8_t*, size_t) = &EthernetInterface::send;
    int (EthernetInterface::*sendMessage)(MessageBase&) = &EthernetInterface::send;
    EXPECT_EQ(slotOf(sendBytes), 2u);
    EXPECT_EQ(slotOf(sendMessage), 3u);
    EXPECT_EQ(slotOf(&EthernetInterface::threadCode), 4u);
}

TEST(EthernetInterfaceLayoutTest, BasesAreAsStated)
{
    static_assert(std::is_convertible_v<EthernetInterface*, InterfaceBase<MessageBase>*>);
    static_assert(std::is_base_of_v<Thread, EthernetInterface>);
    static_assert(!std::is_convertible_v<EthernetInterface*, Thread*>, "the Thread base is private");
    static_assert(!std::is_copy_constructible_v<EthernetInterface>);
}

TEST(ConfigurationTest, FieldsStandInTheirOrder)
{
    EXPECT_EQ(offsetof(Configuration, interfaceName), 0 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, serverIp), 1 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, loggerIp), 2 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, subnet), 3 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, gatewayIp), 4 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, port), 5 * sizeof(std::string));
    EXPECT_EQ(offsetof(Configuration, useTcp), 5 * sizeof(std::string) + 2);
}

TEST(ConfigurationTest, PrintsAllFields)
{
    const Configuration sut = {"eth1", "10.0.0.1", "10.0.0.2", "255.255.255.0", "10.0.0.254", 5000, true};
    EXPECT_EQ(textOf(sut), "interfaceName=eth1; serverIp=10.0.0.1; loggerIp=10.0.0.2; subnet=255.255.255.0; "
                           "gatewayIp=10.0.0.254; port=5000; useTcp=1");
}

TEST(ConfigurationTest, PrintsDatagramsAsZero)
{
    const Configuration sut = {"", "", "", "", "", 65535, false};
    EXPECT_EQ(textOf(sut), "interfaceName=; serverIp=; loggerIp=; subnet=; gatewayIp=; port=65535; useTcp=0");
}

TEST(ConfigurationTest, PortStaysDecimalAndUseTcpFollowsTheStream)
{
    const Configuration sut = {"eth1", "", "", "", "", 5000, true};
    std::ostringstream stream;
    stream << std::hex << std::showbase << std::boolalpha << sut;
    EXPECT_EQ(stream.str(),
              "interfaceName=eth1; serverIp=; loggerIp=; subnet=; gatewayIp=; port=5000; useTcp=true");
}

} // namespace
