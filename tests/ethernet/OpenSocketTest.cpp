#include <ethernet/OpenSocket.h>

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using ethernet::OpenSocket;

class OpenSocketTest : public testing::Test
{
protected:
    OpenSocketTest()
    {
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        sut = std::make_shared<OpenSocket>(ends[0], true, sockaddr_in{}, false);
    }
    ~OpenSocketTest() override
    {
        close(ends[0]);
        close(ends[1]);
    }

    int ends[2] = {-1, -1};
    std::shared_ptr<OpenSocket> sut;
};

TEST_F(OpenSocketTest, LetsUsersInUntilItIsWithdrawn)
{
    EXPECT_TRUE(static_cast<bool>(OpenSocket::Use(sut.get())));
    EXPECT_FALSE(sut->isWithdrawn());
    sut->withdraw();
    EXPECT_TRUE(sut->isWithdrawn());
    EXPECT_FALSE(static_cast<bool>(OpenSocket::Use(sut.get())));
}

TEST_F(OpenSocketTest, UseOfNoSocketIsNone)
{
    EXPECT_FALSE(static_cast<bool>(OpenSocket::Use(nullptr)));
}

TEST_F(OpenSocketTest, WithdrawalWithoutUsersLeavesTheConnectionToTheClose)
{
    sut->withdraw();
    // The peer sees no end of the stream before the descriptor is closed.
    char byte = 0;
    EXPECT_EQ(recv(ends[1], &byte, 1, MSG_DONTWAIT), -1);
}

TEST_F(OpenSocketTest, WithdrawalWakesAWaitingUserAndWaitsForIt)
{
    std::promise<void> inside;
    std::atomic<bool> left{false};
    std::thread user([&] {
        OpenSocket::Use use(sut.get());
        inside.set_value();
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(sut->fd, &readable);
        EXPECT_EQ(pselect(sut->fd + 1, &readable, nullptr, nullptr, nullptr, nullptr), 1);
        left = true;
    });
    inside.get_future().wait();
    sut->withdraw();
    EXPECT_TRUE(left);
    user.join();
}

TEST_F(OpenSocketTest, ManyUsersAndOneWithdrawalNeverOverlap)
{
    for (int round = 0; round < 200; ++round) {
        const auto socket = std::make_shared<OpenSocket>(ends[0], true, sockaddr_in{}, false);
        std::atomic<bool> closed{false};
        std::atomic<int> violations{0};
        const auto use = [&] {
            for (;;) {
                const OpenSocket::Use guarded(socket.get());
                if (!guarded) {
                    return;
                }
                violations += closed ? 1 : 0;
            }
        };
        std::thread one(use);
        std::thread two(use);
        socket->withdraw();
        closed = true;
        one.join();
        two.join();
        ASSERT_EQ(violations, 0);
    }
}

} // namespace
