#include <vqutil/SocketAddress.h>

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <support/TextOf.h>

namespace {

sockaddr_in addressOf(const char* dotted, uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, dotted, &address.sin_addr);
    return address;
}

} // namespace

TEST(SocketAddressTest, IsDottedAddressColonDecimalPort)
{
    EXPECT_EQ(textOf(addressOf("10.0.0.1", 5000)), "10.0.0.1:5000");
}

TEST(SocketAddressTest, LimitsOfAddressAndPort)
{
    EXPECT_EQ(textOf(addressOf("255.255.255.255", 65535)), "255.255.255.255:65535");
    EXPECT_EQ(textOf(addressOf("0.0.0.0", 0)), "0.0.0.0:0");
}

TEST(SocketAddressTest, OtherFamilyIsNamedByItsNumber)
{
    sockaddr_in address = addressOf("10.0.0.1", 5000);
    address.sin_family = AF_UNSPEC;

    EXPECT_EQ(textOf(address), "family 0");
}

TEST(SocketAddressTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(addressOf("10.0.0.1", 5000)), "10.0.0.1:5000 kept");
}
