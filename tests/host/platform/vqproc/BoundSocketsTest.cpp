#include "vqproc/BoundSockets.h"

#include <support/LoopbackSocket.h>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using vqhost::isBoundInThisProcess;

const in_addr ADDRESS = {inet_addr("127.0.0.7")};

/// One socket, closed behind the test.
class BoundSocketsTest : public testing::Test
{
protected:
    ~BoundSocketsTest() override { close(fd); }

    void open(int type, const char* ip)
    {
        fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
        ASSERT_TRUE(loopback::tryToBind(fd, ip, 0));
    }

    int fd = -1;
};

TEST_F(BoundSocketsTest, WithoutASocketNothingIsBound)
{
    EXPECT_FALSE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, DatagramSocketBoundToTheAddressIsFound)
{
    open(SOCK_DGRAM, "127.0.0.7");
    EXPECT_TRUE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, StreamSocketBoundToTheAddressIsFound)
{
    open(SOCK_STREAM, "127.0.0.7");
    EXPECT_TRUE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, ClosedSocketIsNotFound)
{
    open(SOCK_DGRAM, "127.0.0.7");
    close(fd);
    fd = -1;
    EXPECT_FALSE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, SocketOnAnotherAddressIsNotFound)
{
    open(SOCK_DGRAM, "127.0.0.8");
    EXPECT_FALSE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, SocketOnEveryAddressIsNotFound)
{
    open(SOCK_DGRAM, "0.0.0.0");
    EXPECT_FALSE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, SocketOfAnotherKindIsNotFound)
{
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_FALSE(isBoundInThisProcess(ADDRESS));
}

TEST_F(BoundSocketsTest, SocketBehindManyDescriptorsIsFound)
{
    open(SOCK_DGRAM, "127.0.0.7");
    const int high = fcntl(fd, F_DUPFD_CLOEXEC, 900);
    ASSERT_GE(high, 900);
    close(fd);
    fd = high;
    EXPECT_TRUE(isBoundInThisProcess(ADDRESS));
}

} // namespace
