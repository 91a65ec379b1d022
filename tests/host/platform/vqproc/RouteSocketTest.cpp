#include "vqproc/RouteSocket.h"

#include <support/LinkedNamespaces.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <memory>
#include <system_error>
#include <thread>

#include <arpa/inet.h>
#include <net/if.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using vqhost::RouteSocket;

/// On a veth pair of its own.
class RouteSocketTest : public testing::Test
{
protected:
    void SetUp() override
    {
        network = std::make_unique<LinkedNamespaces>();
        if (!network->failure().empty()) {
            GTEST_SKIP() << network->failure();
        }
        sut = std::make_unique<RouteSocket>();
        index = if_nametoindex("vqa");
    }

    static bool isSteady(const vqhost::interfaceAddress_t& address)
    {
        return ntohl(address.address.s_addr) >> 16 == (10U << 8) + 78U;
    }
    static in_addr ip(const char* text) { return {inet_addr(text)}; }

    std::unique_ptr<LinkedNamespaces> network;
    std::unique_ptr<RouteSocket> sut;
    unsigned index = 0;
};

TEST_F(RouteSocketTest, RemovalLeavesTheSameAddressOfAnotherPrefixThatStandsBefore)
{
    ASSERT_EQ(network->ip("addr add 10.77.0.2/16 dev vqa"), "");
    ASSERT_EQ(sut->add(index, ip("10.77.0.2"), 24, "vqa:vq"), 0);
    EXPECT_EQ(sut->remove(index, ip("10.77.0.2"), 24, "vqa:vq"), 0);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/16 vqa"));
}

TEST_F(RouteSocketTest, RemovalOfAnAddressWithAnotherPrefixFindsNothing)
{
    ASSERT_EQ(sut->add(index, ip("10.77.0.2"), 16, "vqa:vq"), 0);
    EXPECT_EQ(sut->remove(index, ip("10.77.0.2"), 24, "vqa:vq"), EADDRNOTAVAIL);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/16 vqa:vq"));
}

TEST_F(RouteSocketTest, RemovalOfAnAddressWithAnotherLabelFindsNothing)
{
    ASSERT_EQ(sut->add(index, ip("10.77.0.2"), 24, "vqa"), 0);
    EXPECT_EQ(sut->remove(index, ip("10.77.0.2"), 24, "vqa:vq"), EADDRNOTAVAIL);
    EXPECT_THAT(network->addresses(), ElementsAre("10.77.0.2/24 vqa"));
}

TEST_F(RouteSocketTest, AddressThatIsThereIsNotAddedAgain)
{
    ASSERT_EQ(sut->add(index, ip("10.77.0.2"), 24, "vqa:vq"), 0);
    EXPECT_EQ(sut->add(index, ip("10.77.0.2"), 24, "vqa:vq"), EEXIST);
    EXPECT_EQ(sut->remove(index, ip("10.77.0.2"), 24, "vqa:vq"), 0);
    EXPECT_THAT(network->addresses(), IsEmpty());
}

TEST_F(RouteSocketTest, ListThatChangesWhileItIsReadIsReadAgain)
{
    // Enough for the kernel to need several packets, between which the list can change.
    constexpr unsigned STEADY = 2000;
    for (unsigned host = 0; host < STEADY; ++host) {
        ASSERT_EQ(sut->add(index, {htonl((10U << 24) + (78U << 16) + host)}, 32, "vqa:vq"), 0);
    }
    std::atomic<bool> over{false};
    std::atomic<unsigned> changes{0};
    std::thread administrator([&] {
        RouteSocket route;
        while (!over) {
            route.add(index, ip("10.77.0.2"), 32, "vqa");
            route.remove(index, ip("10.77.0.2"), 32, "vqa");
            ++changes;
        }
    });
    for (unsigned round = 0; round < 20 || changes < 20; ++round) {
        try {
            const std::vector<vqhost::interfaceAddress_t> listed = sut->addresses();
            EXPECT_EQ(std::count_if(listed.begin(), listed.end(), isSteady), STEADY);
        } catch (const std::system_error& error) {
            ADD_FAILURE() << error.what();
        }
    }
    over = true;
    administrator.join();
}

} // namespace
