#include "vqproc/Ipv4Text.h"

#include <gtest/gtest.h>

namespace {

TEST(Ipv4TextTest, DottedAddressIsRead)
{
    const auto address = vqhost::parseIpv4("10.0.0.255");
    ASSERT_TRUE(address);
    EXPECT_EQ(address->s_addr, htonl(0x0A0000FF));
    EXPECT_EQ(vqhost::ipv4Text(*address), "10.0.0.255");
}

TEST(Ipv4TextTest, AnythingElseIsRefused)
{
    for (const std::string text : {"", "10", "10.1", "10.0.0", "10.0.0.256", "10.0.0.1 ", " 10.0.0.1", "10.0.0.1.2",
                                   "10.0.0.x", "0x0a.0.0.1", "::1", "localhost"}) {
        EXPECT_FALSE(vqhost::parseIpv4(text)) << '"' << text << '"';
    }
    EXPECT_FALSE(vqhost::parseIpv4(std::string("10.0.0.1\0x", 10)));
}

TEST(Ipv4TextTest, MaskGivesItsLength)
{
    EXPECT_EQ(vqhost::parsePrefixLength("0.0.0.0"), 0);
    EXPECT_EQ(vqhost::parsePrefixLength("255.0.0.0"), 8);
    EXPECT_EQ(vqhost::parsePrefixLength("255.255.255.0"), 24);
    EXPECT_EQ(vqhost::parsePrefixLength("255.255.255.254"), 31);
    EXPECT_EQ(vqhost::parsePrefixLength("255.255.255.255"), 32);
}

TEST(Ipv4TextTest, MaskWithGapsIsRefused)
{
    for (const char* const text : {"255.0.255.0", "0.0.0.1", "254.255.255.0", "24", ""}) {
        EXPECT_FALSE(vqhost::parsePrefixLength(text)) << text;
    }
}

TEST(Ipv4TextTest, HostAddressesLeaveOutWildcardMulticastAndBroadcast)
{
    for (const char* const text : {"1.0.0.0", "10.0.0.1", "127.0.0.1", "223.255.255.255"}) {
        EXPECT_TRUE(vqhost::isHostAddress(*vqhost::parseIpv4(text))) << text;
    }
    for (const char* const text : {"0.0.0.0", "0.255.255.255", "224.0.0.1", "240.0.0.1", "255.255.255.255"}) {
        EXPECT_FALSE(vqhost::isHostAddress(*vqhost::parseIpv4(text))) << text;
    }
}

} // namespace
