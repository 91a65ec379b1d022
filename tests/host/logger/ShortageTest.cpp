#include <logger/SimulatedClock.h>
#include <logger/VirtualLogger.h>
#include <support/CapturedOutput.h>
#include <support/LoggerClient.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

using loggerclient::ask;
using loggerclient::frame;
using wire::Kind;

namespace {

/// A system call that fails when it is told to.
struct FailingCall
{
    std::atomic<int> errorNumber = 0;
    std::atomic<int> failuresLeft = 0;
    std::atomic<int> calls = 0;

    void failNext(int count, int reason)
    {
        calls = 0;
        errorNumber = reason;
        failuresLeft = count;
    }

    /// @return true if this call is to fail; errno is set then
    bool fails()
    {
        ++calls;
        if (failuresLeft == 0) {
            return false;
        }
        --failuresLeft;
        errno = errorNumber;
        return true;
    }
};

FailingCall acceptCall;
FailingCall socketpairCall;
FailingCall epollCall;

constexpr int FOR_EVER = std::numeric_limits<int>::max();

const std::string SHORTAGE_LINE = "[ERROR] VirtualLogger: clients are refused: Too many open files; close what is "
                                  "not needed or raise the limit of open files\n";

} // namespace

extern "C" int __real_accept4(int fd, sockaddr* address, socklen_t* size, int flags);
extern "C" int __wrap_accept4(int fd, sockaddr* address, socklen_t* size, int flags);
extern "C" int __real_socketpair(int domain, int type, int protocol, int* ends);
extern "C" int __wrap_socketpair(int domain, int type, int protocol, int* ends);
extern "C" int __real_epoll_create1(int flags);
extern "C" int __wrap_epoll_create1(int flags);

extern "C" int __wrap_accept4(int fd, sockaddr* address, socklen_t* size, int flags)
{
    return acceptCall.fails() ? -1 : __real_accept4(fd, address, size, flags);
}

extern "C" int __wrap_socketpair(int domain, int type, int protocol, int* ends)
{
    return socketpairCall.fails() ? -1 : __real_socketpair(domain, type, protocol, ends);
}

extern "C" int __wrap_epoll_create1(int flags)
{
    return epollCall.fails() ? -1 : __real_epoll_create1(flags);
}

namespace {

class ShortageTest : public testing::Test
{
protected:
    bool serves() const
    {
        const wire::FileDescriptor connection = loggerclient::connectTo(path);
        return ask(connection.get(), Kind::BOARD).errorNumber == 0;
    }

    TemporaryDirectory directory;
    const std::string path = directory.path("socket");
    const std::shared_ptr<vlogger::SimulatedClock> clock = std::make_shared<vlogger::SimulatedClock>();
    std::unique_ptr<vlogger::VirtualLogger> sut =
        std::make_unique<vlogger::VirtualLogger>(vlogger::Options{.socketPath = path, .clock = clock});
};

TEST_F(ShortageTest, AClientForWhomNoDescriptorIsLeftIsRefusedAndTheOthersGoOn)
{
    loggerclient::Reader to(sut->connect(), vlogger::board::MAIN_DEVICE);
    loggerclient::Writer from(sut->connect(), vlogger::board::MAIN_DEVICE);
    CapturedOutput output;
    for (int i = 0; i < 2; ++i) {
        acceptCall.failNext(1, EMFILE); // it works once the spare descriptor is given up
        const wire::FileDescriptor client = loggerclient::connectTo(path);
        EXPECT_EQ(ask(client.get(), Kind::BOARD).errorNumber, EMFILE);
        EXPECT_TRUE(loggerclient::reachesEnd(client.get()));
    }
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_TRUE(to.next());
    EXPECT_TRUE(serves());
    EXPECT_EQ(sut->statistics().connectionsRefused, 2U);
    EXPECT_EQ(output.err(), SHORTAGE_LINE) << "said once";
}

TEST_F(ShortageTest, AReaderForWhomNoDescriptorIsLeftIsRefused)
{
    const wire::FileDescriptor client(sut->connect());
    CapturedOutput output;
    socketpairCall.failNext(1, EMFILE);
    EXPECT_EQ(ask(client.get(), Kind::OPEN_READ, vlogger::board::MAIN_DEVICE).errorNumber, EMFILE);
    EXPECT_TRUE(loggerclient::reachesEnd(client.get()));
    loggerclient::Reader to(sut->connect(), vlogger::board::MAIN_DEVICE);
    EXPECT_EQ(to.error(), 0);
    EXPECT_EQ(output.err(),
              "[ERROR] VirtualLogger: a reader of /dev/vqlog-fpgab is refused: Too many open files\n");
}

TEST_F(ShortageTest, ConnectSaysThatNoDescriptorIsLeft)
{
    socketpairCall.failNext(1, EMFILE);
    try {
        sut->connect();
        FAIL() << "connected without a descriptor";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EMFILE);
    }
}

TEST_F(ShortageTest, ALoggerForWhichNoDescriptorIsLeftDoesNotStart)
{
    epollCall.failNext(1, EMFILE);
    try {
        vlogger::VirtualLogger other({});
        FAIL() << "started without a descriptor";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EMFILE);
    }
}

TEST_F(ShortageTest, AListenerThatCannotAcceptPausesInsteadOfSpinning)
{
    CapturedOutput output;
    acceptCall.failNext(FOR_EVER, ENFILE);
    const wire::FileDescriptor client = loggerclient::connectTo(path);
    while (acceptCall.calls < 2) { // at once, and with the spare descriptor given up
        sut->statistics();
    }
    for (int i = 0; i < 100; ++i) {
        sut->statistics(); // each is a round of the loop
    }
    EXPECT_EQ(acceptCall.calls, 2);
    clock->advance(std::chrono::milliseconds(100));
    while (acceptCall.calls < 4) {
        sut->statistics();
    }
    acceptCall.failNext(0, 0);
    clock->advance(std::chrono::milliseconds(100));
    EXPECT_EQ(ask(client.get(), Kind::BOARD).errorNumber, 0) << "it is served in the end";
    EXPECT_EQ(output.err(), "[ERROR] VirtualLogger: clients are refused: Too many open files in system; close what "
                            "is not needed or raise the limit of open files\n");
}

TEST_F(ShortageTest, AShortageThatComesAgainIsSaidAgain)
{
    CapturedOutput output;
    for (int i = 0; i < 2; ++i) {
        acceptCall.failNext(1, EMFILE);
        const wire::FileDescriptor client = loggerclient::connectTo(path);
        EXPECT_EQ(ask(client.get(), Kind::BOARD).errorNumber, EMFILE);
        EXPECT_TRUE(serves());
    }
    EXPECT_EQ(output.err(), SHORTAGE_LINE + SHORTAGE_LINE);
}

TEST_F(ShortageTest, AClientThatGivesUpWhileItWaitsIsNoShortage)
{
    CapturedOutput output;
    acceptCall.failNext(1, ECONNABORTED);
    const wire::FileDescriptor client = loggerclient::connectTo(path);
    EXPECT_EQ(ask(client.get(), Kind::BOARD).errorNumber, 0);
    EXPECT_EQ(output.err(), "");
}

} // namespace
