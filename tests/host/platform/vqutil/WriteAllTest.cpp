#include <vqutil/writeAll.h>

#include "endpoint/Endpoint.h"
#include "vqio/TransmitDescriptors.h"

#include <logger/VirtualLogger.h>
#include <vqtrace/CANExtTraceMessage.h>
#include <wire/FileDescriptor.h>
#include <wire/Protocol.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

// Every system call of writeAll() passes here: counted, and replaced where a test says so.
namespace {

struct Calls
{
    int writes = 0;
    int sends = 0;
    int polls = 0;
    int receives = 0;
    int stats = 0;
    std::function<ssize_t(int call, int fd, const void* data, size_t size)> write;
    std::function<ssize_t(int call)> send;
};

Calls calls;

} // namespace

extern "C" {

ssize_t __real_write(int fd, const void* data, size_t size);
ssize_t __real_send(int fd, const void* data, size_t size, int flags);
int __real_poll(pollfd* fds, nfds_t count, int timeout);
ssize_t __real_recv(int fd, void* data, size_t size, int flags);
int __real_fstat(int fd, struct stat* status);

ssize_t __wrap_write(int fd, const void* data, size_t size)
{
    ++calls.writes;
    return calls.write ? calls.write(calls.writes, fd, data, size) : __real_write(fd, data, size);
}

ssize_t __wrap_send(int fd, const void* data, size_t size, int flags)
{
    ++calls.sends;
    const ssize_t result = calls.send ? calls.send(calls.sends) : 0;
    return result != 0 ? result : __real_send(fd, data, size, flags);
}

int __wrap_poll(pollfd* fds, nfds_t count, int timeout)
{
    ++calls.polls;
    return __real_poll(fds, count, timeout);
}

ssize_t __wrap_recv(int fd, void* data, size_t size, int flags)
{
    ++calls.receives;
    return __real_recv(fd, data, size, flags);
}

int __wrap_fstat(int fd, struct stat* status)
{
    ++calls.stats;
    return __real_fstat(fd, status);
}

} // extern "C"

namespace {

constexpr char MAIN[] = "/dev/vqlog-fpgab";

ssize_t failWith(int errorNumber)
{
    errno = errorNumber;
    return -1;
}

/// What a descriptor has to give, without waiting.
std::string receivedFrom(int fd)
{
    char buffer[4096];
    const ssize_t count = recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT);
    return count < 0 ? "nothing" : std::string(buffer, static_cast<size_t>(count));
}

struct Ends
{
    wire::FileDescriptor mine;
    wire::FileDescriptor theirs;
};

Ends pipeEnds()
{
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    return {wire::FileDescriptor(fds[1]), wire::FileDescriptor(fds[0])};
}

Ends socketEnds(int type)
{
    int fds[2];
    EXPECT_EQ(socketpair(AF_UNIX, type, 0, fds), 0);
    return {wire::FileDescriptor(fds[0]), wire::FileDescriptor(fds[1])};
}

/// A connection that writeAll() takes for a transmit device, with its other end in the test's hand.
Ends deviceEnds()
{
    Ends ends = socketEnds(SOCK_SEQPACKET);
    EXPECT_TRUE(vqhost::noteTransmitDescriptor(ends.mine.get()));
    return ends;
}

void sendPacket(int fd, const std::vector<uint8_t>& packet)
{
    ASSERT_EQ(__real_send(fd, packet.data(), packet.size(), 0), static_cast<ssize_t>(packet.size()));
}

class WriteAllTest : public testing::Test
{
protected:
    WriteAllTest() { calls = {}; }
    ~WriteAllTest() override { calls = {}; }

    static int writeText(int fd, const std::string& text) { return writeAll(fd, text.data(), text.size()); }

    static std::string readFrom(int fd)
    {
        char buffer[4096];
        const ssize_t count = read(fd, buffer, sizeof(buffer));
        return count < 0 ? "nothing" : std::string(buffer, static_cast<size_t>(count));
    }
};

} // namespace

TEST_F(WriteAllTest, WritesEverything)
{
    const Ends pipe = pipeEnds();

    EXPECT_EQ(writeText(pipe.mine.get(), "whole"), 0);

    EXPECT_EQ(readFrom(pipe.theirs.get()), "whole");
}

TEST_F(WriteAllTest, OrdinaryDescriptorCostsOneSystemCall)
{
    const Ends pipe = pipeEnds();

    writeText(pipe.mine.get(), "whole");

    EXPECT_EQ(calls.writes, 1);
    EXPECT_EQ(calls.sends + calls.polls + calls.receives + calls.stats, 0);
}

TEST_F(WriteAllTest, NothingToWriteTouchesNothing)
{
    EXPECT_EQ(writeAll(-1, nullptr, 0), 0);

    EXPECT_EQ(calls.writes, 0);
}

TEST_F(WriteAllTest, InterruptedWriteIsRepeated)
{
    const Ends pipe = pipeEnds();
    calls.write = [](int call, int fd, const void* data, size_t size) {
        return call < 3 ? failWith(EINTR) : __real_write(fd, data, size);
    };

    EXPECT_EQ(writeText(pipe.mine.get(), "whole"), 0);

    EXPECT_EQ(calls.writes, 3);
    EXPECT_EQ(readFrom(pipe.theirs.get()), "whole");
}

TEST_F(WriteAllTest, PartialWriteIsContinuedWhereItEnded)
{
    const Ends pipe = pipeEnds();
    calls.write = [](int, int fd, const void* data, size_t) { return __real_write(fd, data, 1); };

    EXPECT_EQ(writeText(pipe.mine.get(), "whole"), 0);

    EXPECT_EQ(calls.writes, 5);
    EXPECT_EQ(readFrom(pipe.theirs.get()), "whole");
}

TEST_F(WriteAllTest, FailureAfterAPartialWriteIsAFailure)
{
    const Ends pipe = pipeEnds();
    calls.write = [](int call, int fd, const void* data, size_t) {
        return call == 1 ? __real_write(fd, data, 2) : failWith(ENOSPC);
    };

    EXPECT_EQ(writeText(pipe.mine.get(), "whole"), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(WriteAllTest, DescriptorThatTakesNothingIsAnInputOutputError)
{
    calls.write = [](int, int, const void*, size_t) { return ssize_t{0}; };

    EXPECT_EQ(writeText(pipeEnds().mine.get(), "whole"), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(WriteAllTest, InvalidDescriptorFailsWithItsErrno)
{
    EXPECT_EQ(writeText(-1, "whole"), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(writeText(1 << 29, "whole"), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(WriteAllTest, FullNonBlockingDescriptorFailsInsteadOfWaiting)
{
    const Ends pipe = pipeEnds();
    fcntl(pipe.mine.get(), F_SETFL, O_NONBLOCK);
    const std::string much(1 << 20, 'x');

    EXPECT_EQ(writeText(pipe.mine.get(), much), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(WriteAllTest, FullNonBlockingDeviceFailsInsteadOfWaiting)
{
    const Ends device = deviceEnds();
    fcntl(device.mine.get(), F_SETFL, O_NONBLOCK);
    int result = 0;
    for (int i = 0; i < 100'000 && result == 0; ++i) {
        result = writeText(device.mine.get(), "frame");
    }

    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(WriteAllTest, EachWriteToADeviceIsOnePacket)
{
    const Ends device = deviceEnds();

    EXPECT_EQ(writeText(device.mine.get(), "first"), 0);
    EXPECT_EQ(writeText(device.mine.get(), "second"), 0);

    EXPECT_EQ(receivedFrom(device.theirs.get()), "first");
    EXPECT_EQ(receivedFrom(device.theirs.get()), "second");
}

TEST_F(WriteAllTest, DeviceWithoutFaultCostsTwoSystemCalls)
{
    const Ends device = deviceEnds();
    calls = {};

    writeText(device.mine.get(), "frame");

    EXPECT_EQ(calls.polls, 1);
    EXPECT_EQ(calls.sends, 1);
    EXPECT_EQ(calls.writes + calls.receives + calls.stats, 0);
}

TEST_F(WriteAllTest, WaitingFaultFailsTheWriteWithItsErrnoAndNothingIsSent)
{
    const Ends device = deviceEnds();
    sendPacket(device.theirs.get(), wire::encodeFault(EIO));

    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);

    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(receivedFrom(device.theirs.get()), "nothing");
}

TEST_F(WriteAllTest, EachFaultFailsOneWrite)
{
    const Ends device = deviceEnds();
    sendPacket(device.theirs.get(), wire::encodeFault(EIO));
    sendPacket(device.theirs.get(), wire::encodeFault(ENOSPC));

    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(writeText(device.mine.get(), "frame"), 0);
}

TEST_F(WriteAllTest, PacketsThatAreNoFaultsAreSkipped)
{
    const Ends device = deviceEnds();
    sendPacket(device.theirs.get(), {1, 2, 3});
    sendPacket(device.theirs.get(), wire::encodeReply({.errorNumber = 5, .body = {}}));

    EXPECT_EQ(writeText(device.mine.get(), "frame"), 0);
    EXPECT_EQ(receivedFrom(device.theirs.get()), "frame");
}

TEST_F(WriteAllTest, DeviceThatIsGoneFailsWithoutASignal)
{
    Ends device = deviceEnds();
    device.theirs.reset();

    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(WriteAllTest, DeviceThatGoesWhileItIsWrittenFailsWithoutASignal)
{
    const Ends device = deviceEnds();
    for (const int errorNumber : {EPIPE, ECONNRESET, ENOTCONN}) {
        calls.sends = 0;
        calls.send = [errorNumber](int) { return failWith(errorNumber); };

        EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
        EXPECT_EQ(errno, ENODEV);
    }
}

TEST_F(WriteAllTest, InterruptedSendIsRepeated)
{
    const Ends device = deviceEnds();
    calls.send = [](int call) { return call < 3 ? failWith(EINTR) : 0; };

    EXPECT_EQ(writeText(device.mine.get(), "frame"), 0);

    EXPECT_EQ(calls.sends, 3);
    EXPECT_EQ(receivedFrom(device.theirs.get()), "frame");
}

TEST_F(WriteAllTest, OtherFailureOfSendKeepsItsErrno)
{
    const Ends device = deviceEnds();
    calls.send = [](int) { return failWith(ENOBUFS); };

    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
    EXPECT_EQ(errno, ENOBUFS);
}

TEST_F(WriteAllTest, NumberThatNowStandsForAPipeIsWrittenAsAPipe)
{
    Ends device = deviceEnds();
    const Ends pipe = pipeEnds();
    dup2(pipe.mine.get(), device.mine.get());
    calls = {};

    EXPECT_EQ(writeText(device.mine.get(), "text"), 0);
    EXPECT_EQ(readFrom(pipe.theirs.get()), "text");
    EXPECT_FALSE(vqhost::mayBeTransmitDevice(device.mine.get()));
}

TEST_F(WriteAllTest, NumberThatNowStandsForAnotherSocketLosesNoneOfItsData)
{
    Ends device = deviceEnds();
    const Ends other = socketEnds(SOCK_SEQPACKET);
    dup2(other.mine.get(), device.mine.get());
    sendPacket(other.theirs.get(), wire::encodeFault(EIO));

    EXPECT_EQ(writeText(device.mine.get(), "text"), 0);

    EXPECT_EQ(receivedFrom(other.theirs.get()), "text");
    EXPECT_NE(receivedFrom(device.mine.get()), "nothing");
    EXPECT_FALSE(vqhost::mayBeTransmitDevice(device.mine.get()));
}

TEST_F(WriteAllTest, NumberThatNowStandsForAnotherSocketGetsItsOwnErrorAndSignal)
{
    static volatile std::sig_atomic_t signals = 0;
    std::signal(SIGPIPE, [](int) { signals = signals + 1; });
    Ends device = deviceEnds();
    Ends other = socketEnds(SOCK_STREAM);
    dup2(other.mine.get(), device.mine.get());
    other.theirs.reset();

    EXPECT_EQ(writeText(device.mine.get(), "text"), -1);

    EXPECT_EQ(errno, EPIPE);
    EXPECT_EQ(signals, 1);
}

TEST_F(WriteAllTest, ClosedNumberIsABadDescriptor)
{
    Ends device = deviceEnds();
    const int number = device.mine.get();
    device.mine.reset();

    EXPECT_EQ(writeText(number, "text"), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(WriteAllTest, NumberThatIsADeviceAgainIsOneAgain)
{
    Ends device = deviceEnds();
    const int number = device.mine.get();
    const Ends pipe = pipeEnds();
    dup2(pipe.mine.get(), number);
    writeText(number, "text");
    const Ends next = socketEnds(SOCK_SEQPACKET);
    dup2(next.mine.get(), number);
    ASSERT_TRUE(vqhost::noteTransmitDescriptor(number));
    sendPacket(next.theirs.get(), wire::encodeFault(EIO));

    EXPECT_EQ(writeText(number, "frame"), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(WriteAllTest, DuplicateOfADeviceIsWrittenAndLeavesTheFaultToTheOriginal)
{
    const Ends device = deviceEnds();
    const wire::FileDescriptor duplicate(dup(device.mine.get()));
    sendPacket(device.theirs.get(), wire::encodeFault(EIO));

    EXPECT_EQ(writeText(duplicate.get(), "frame"), 0);
    EXPECT_EQ(receivedFrom(device.theirs.get()), "frame");
    EXPECT_EQ(writeText(device.mine.get(), "frame"), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(WriteAllTest, HighDescriptorIsKnownToo)
{
    const Ends low = socketEnds(SOCK_SEQPACKET);
    const wire::FileDescriptor high(fcntl(low.mine.get(), F_DUPFD_CLOEXEC, 2000));
    if (!high) {
        GTEST_SKIP() << "this user may not have so many descriptors";
    }
    ASSERT_TRUE(vqhost::noteTransmitDescriptor(high.get()));
    sendPacket(low.theirs.get(), wire::encodeFault(EIO));

    EXPECT_EQ(writeText(high.get(), "frame"), -1);
    EXPECT_EQ(errno, EIO);
}

TEST_F(WriteAllTest, OnlySocketsAreNoted)
{
    const Ends pipe = pipeEnds();

    EXPECT_FALSE(vqhost::noteTransmitDescriptor(pipe.mine.get()));
    EXPECT_FALSE(vqhost::noteTransmitDescriptor(-1));
    EXPECT_FALSE(vqhost::mayBeTransmitDevice(pipe.mine.get()));
}

TEST_F(WriteAllTest, FaultOfTheVirtualLoggerArrives)
{
    const wire::FileDescriptor device(open(MAIN, O_WRONLY));
    ASSERT_TRUE(device);
    const CANExtTraceMessage message(11, 0, 0, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 0, 1, nullptr);
    std::vector<uint8_t> record;
    message.createByteArray(record, true, false);
    vlogger::VirtualLogger& logger = *vqhost::Endpoint::instance().embedded();

    logger.failWrites(MAIN, EIO, 2);

    EXPECT_EQ(writeAll(device.get(), record.data(), record.size()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(writeAll(device.get(), record.data(), record.size()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(writeAll(device.get(), record.data(), record.size()), 0);

    logger.vanish(MAIN);

    EXPECT_EQ(writeAll(device.get(), record.data(), record.size()), -1);
    EXPECT_EQ(errno, ENODEV);
}
