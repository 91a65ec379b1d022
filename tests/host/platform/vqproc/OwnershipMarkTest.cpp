#include "vqproc/OwnershipMark.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

#include <arpa/inet.h>
#include <sys/resource.h>

namespace {

using vqhost::OwnershipMark;

constexpr unsigned INTERFACE = 4'000'000'000; // no real one has this index
const in_addr ADDRESS = {inet_addr("10.77.0.2")};

TEST(OwnershipMarkTest, FirstOneIsTheOwner)
{
    const OwnershipMark sut(INTERFACE, ADDRESS);
    EXPECT_TRUE(sut.isOwned());
    EXPECT_EQ(sut.error(), 0);
}

TEST(OwnershipMarkTest, SecondOneIsTold)
{
    const OwnershipMark owner(INTERFACE, ADDRESS);
    const OwnershipMark sut(INTERFACE, ADDRESS);
    EXPECT_FALSE(sut.isOwned());
    EXPECT_EQ(sut.error(), EADDRINUSE);
}

TEST(OwnershipMarkTest, EndOfTheOwnerFreesIt)
{
    {
        const OwnershipMark owner(INTERFACE, ADDRESS);
    }
    EXPECT_TRUE(OwnershipMark(INTERFACE, ADDRESS).isOwned());
}

TEST(OwnershipMarkTest, MovedMarkStaysOwned)
{
    OwnershipMark first(INTERFACE, ADDRESS);
    const OwnershipMark sut(std::move(first));
    EXPECT_TRUE(sut.isOwned());
    EXPECT_EQ(OwnershipMark(INTERFACE, ADDRESS).error(), EADDRINUSE);
}

TEST(OwnershipMarkTest, WithoutADescriptorTheReasonIsKept)
{
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const OwnershipMark sut(INTERFACE, ADDRESS);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_FALSE(sut.isOwned());
    EXPECT_EQ(sut.error(), EMFILE);
}

} // namespace
