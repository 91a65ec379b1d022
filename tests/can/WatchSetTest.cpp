#include <can/WatchSet.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<int> membersOf(const WatchSet& set)
{
    const fd_set copy = set.copy();
    std::vector<int> members;
    for (int fd = 0; fd < FD_SETSIZE; ++fd) {
        if (FD_ISSET(fd, &copy)) {
            members.push_back(fd);
        }
    }
    return members;
}

TEST(WatchSetTest, NewSetIsEmpty)
{
    const WatchSet sut;
    EXPECT_EQ(membersOf(sut), std::vector<int>{});
    EXPECT_EQ(sut.end(), 0);
}

TEST(WatchSetTest, ClosedDescriptorsStayOut)
{
    WatchSet sut;
    sut.add(-1);
    sut.add(-1);
    EXPECT_EQ(membersOf(sut), std::vector<int>{});
    EXPECT_EQ(sut.end(), 0);
}

TEST(WatchSetTest, ClosedDescriptorBetweenOthersStaysOut)
{
    WatchSet sut;
    sut.add(7);
    sut.add(-1);
    sut.add(5);
    EXPECT_EQ(membersOf(sut), (std::vector<int>{5, 7}));
    EXPECT_EQ(sut.end(), 8);
}

TEST(WatchSetTest, FirstAndLastPossibleDescriptorsAreMembers)
{
    WatchSet sut;
    sut.add(0);
    sut.add(FD_SETSIZE - 1);
    EXPECT_EQ(membersOf(sut), (std::vector<int>{0, FD_SETSIZE - 1}));
    EXPECT_EQ(sut.end(), FD_SETSIZE);
}

} // namespace
