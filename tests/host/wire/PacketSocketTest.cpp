#include "WireBytes.h"

#include <wire/PacketSocket.h>

#include <gtest/gtest.h>
#include <support/ProcessResources.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

using namespace wirebytes;

namespace {

class PacketSocketTest : public testing::Test
{
protected:
    PacketSocketTest()
    {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        near.reset(ends[0]);
        far.reset(ends[1]);
    }

    /// Receives the packet that waits.
    Bytes receive(size_t roomBytes = 64)
    {
        Bytes buffer(roomBytes);
        EXPECT_EQ(wire::receivePacket(far.get(), buffer, received, MSG_DONTWAIT), 0);
        buffer.resize(received.sizeBytes);
        return buffer;
    }

    /// Sends a packet with several descriptors beside it, which sendPacket() never does.
    void sendWithDescriptors(const std::vector<int>& passed) const
    {
        uint8_t byte = 1;
        iovec part{.iov_base = &byte, .iov_len = 1};
        alignas(cmsghdr) std::array<char, CMSG_SPACE(8 * sizeof(int))> control{};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control.data();
        message.msg_controllen = CMSG_SPACE(passed.size() * sizeof(int));
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(passed.size() * sizeof(int));
        std::memcpy(CMSG_DATA(header), passed.data(), passed.size() * sizeof(int));
        ASSERT_EQ(sendmsg(near.get(), &message, 0), 1);
    }

    static ino_t inodeOf(int fd)
    {
        struct stat state
        {
        };
        EXPECT_EQ(fstat(fd, &state), 0);
        return state.st_ino;
    }

    wire::FileDescriptor near;
    wire::FileDescriptor far;
    wire::ReceivedPacket received;
};

} // namespace

TEST_F(PacketSocketTest, PacketsStayApart)
{
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{1, 2, 3}), 0);
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{4}), 0);

    EXPECT_EQ(receive(), (Bytes{1, 2, 3}));
    EXPECT_EQ(receive(), Bytes{4});
    EXPECT_FALSE(received.truncated);
    EXPECT_FALSE(received.descriptor);
}

TEST_F(PacketSocketTest, PacketThatFillsTheBufferIsWhole)
{
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes(16, 7)), 0);

    EXPECT_EQ(receive(16), Bytes(16, 7));
    EXPECT_FALSE(received.truncated);
}

TEST_F(PacketSocketTest, PacketLongerThanTheBufferIsTruncatedAndItsRestIsGone)
{
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes(17, 7)), 0);
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{8}), 0);

    EXPECT_EQ(receive(16), Bytes(16, 7));
    EXPECT_TRUE(received.truncated);
    EXPECT_EQ(receive(16), Bytes{8});
    EXPECT_FALSE(received.truncated);
}

TEST_F(PacketSocketTest, EndOfTheConnectionIsAnEmptyPacket)
{
    near.reset();

    EXPECT_EQ(receive(), Bytes());
    EXPECT_EQ(received.sizeBytes, 0U);
}

TEST_F(PacketSocketTest, NothingToReceiveIsEagain)
{
    Bytes buffer(4);

    EXPECT_EQ(wire::receivePacket(far.get(), buffer, received, MSG_DONTWAIT), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PacketSocketTest, SendingToAClosedConnectionFailsWithoutASignal)
{
    far.reset();

    EXPECT_EQ(wire::sendPacket(near.get(), Bytes{1}), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(PacketSocketTest, SendingWithoutRoomIsEagain)
{
    while (wire::sendPacket(near.get(), Bytes(1000), -1, MSG_DONTWAIT) == 0) {
    }

    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(PacketSocketTest, DescriptorTravelsBesideTheBytesAndIsCloseOnExec)
{
    const wire::FileDescriptor sent(open("/dev/null", O_RDONLY));
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{9}, sent.get()), 0);

    EXPECT_EQ(receive(), Bytes{9});

    ASSERT_TRUE(received.descriptor);
    EXPECT_NE(received.descriptor.get(), sent.get()) << "the sender keeps its own";
    EXPECT_EQ(inodeOf(received.descriptor.get()), inodeOf(sent.get()));
    EXPECT_EQ(fcntl(received.descriptor.get(), F_GETFD), FD_CLOEXEC);
}

TEST_F(PacketSocketTest, NextPacketWithoutADescriptorClosesTheLastOne)
{
    const wire::FileDescriptor sent(open("/dev/null", O_RDONLY));
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{1}, sent.get()), 0);
    ASSERT_EQ(wire::sendPacket(near.get(), Bytes{2}), 0);
    const size_t before = processresources::openDescriptors();

    receive();
    EXPECT_EQ(processresources::openDescriptors(), before + 1);
    receive();

    EXPECT_FALSE(received.descriptor);
    EXPECT_EQ(processresources::openDescriptors(), before);
}

TEST_F(PacketSocketTest, OfSeveralDescriptorsTheFirstIsKeptAndNoneIsLeaked)
{
    const wire::FileDescriptor first(open("/dev/null", O_RDONLY));
    const wire::FileDescriptor other(open("/dev/zero", O_RDONLY));
    const size_t before = processresources::openDescriptors();
    for (size_t count = 1; count <= 8; ++count) {
        std::vector<int> passed(count, other.get());
        passed[0] = first.get();
        sendWithDescriptors(passed);

        receive();

        ASSERT_TRUE(received.descriptor) << count;
        EXPECT_EQ(inodeOf(received.descriptor.get()), inodeOf(first.get())) << count;
        EXPECT_EQ(processresources::openDescriptors(), before + 1) << count;
        received = {};
    }
    EXPECT_EQ(processresources::openDescriptors(), before);
}
