#include <logger/VirtualLogger.h>
#include <support/CapturedOutput.h>
#include <support/LoggerClient.h>
#include <support/ProcessResources.h>
#include <support/TemporaryDirectory.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <atomic>
#include <barrier>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

using loggerclient::ask;
using loggerclient::connectTo;
using loggerclient::frame;
using wire::Kind;

namespace fs = std::filesystem;

namespace {

class SocketTest : public testing::Test
{
protected:
    static std::unique_ptr<vlogger::VirtualLogger> listenAt(const std::string& where)
    {
        return std::make_unique<vlogger::VirtualLogger>(vlogger::Options{.socketPath = where});
    }

    /// Starts a virtual logger that must not start.
    /// @return the error number that it failed with; 0 if it started
    static int refusalAt(const std::string& where)
    {
        try {
            listenAt(where);
        } catch (const std::system_error& error) {
            return error.code().value();
        }
        return 0;
    }

    static bool serves(const std::string& where)
    {
        const wire::FileDescriptor connection = connectTo(where);
        return connection && ask(connection.get(), Kind::BOARD).errorNumber == 0;
    }

    /// A socket file whose owner is gone.
    static void leaveDeadSocketAt(const std::string& where)
    {
        const wire::FileDescriptor fd(::socket(AF_UNIX, SOCK_SEQPACKET, 0));
        bindTo(fd.get(), where);
    }

    static void bindTo(int fd, const std::string& where)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, where.c_str(), where.size() + 1);
        ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }

    TemporaryDirectory directory;
    const std::string path = directory.path("bench/socket");
};

TEST_F(SocketTest, TheDirectoryIsMadeForItsOwnerOnly)
{
    const auto sut = listenAt(path);
    struct stat state
    {
    };
    ASSERT_EQ(::stat(directory.path("bench").c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777U, 0700U);
    ASSERT_EQ(::stat(path.c_str(), &state), 0);
    EXPECT_EQ(state.st_mode & 07777U, 0600U);
}

TEST_F(SocketTest, ClientsOfTheSameUserAreServed)
{
    const auto sut = listenAt(path);
    loggerclient::Reader to(connectTo(path).release(), vlogger::board::MAIN_DEVICE);
    loggerclient::Writer from(connectTo(path).release(), vlogger::board::MAIN_DEVICE);
    ASSERT_EQ(from.write(frame(0, 0x123)), 0);
    EXPECT_EQ(to.next()->id, 0x123U);
}

TEST_F(SocketTest, NothingIsLeftBehind)
{
    listenAt(path).reset();
    EXPECT_TRUE(fs::is_empty(directory.path("bench")));
}

TEST_F(SocketTest, ADirectoryThatOthersMayWriteToIsRefused)
{
    for (const fs::perms writable : {fs::perms::group_write, fs::perms::others_write}) {
        fs::create_directory(directory.path("bench"));
        fs::permissions(directory.path("bench"), fs::perms::owner_all | writable);
        EXPECT_EQ(refusalAt(path), EACCES);
        EXPECT_TRUE(fs::is_empty(directory.path("bench")));
        fs::remove(directory.path("bench"));
    }
}

TEST_F(SocketTest, ADirectoryThatOthersMayOnlyReadIsTaken)
{
    fs::create_directory(directory.path("bench"));
    fs::permissions(directory.path("bench"), fs::perms(0755));
    EXPECT_EQ(refusalAt(path), 0);
}

TEST_F(SocketTest, ADirectoryOfAnotherUserIsRefused)
{
    fs::create_directory(directory.path("bench"));
    if (::chown(directory.path("bench").c_str(), 65534, 65534) != 0) {
        GTEST_SKIP() << "only a privileged user can give a directory away";
    }
    EXPECT_EQ(refusalAt(path), EACCES);
}

TEST_F(SocketTest, ALinkedDirectoryIsRefused)
{
    fs::create_directory(directory.path("elsewhere"));
    fs::permissions(directory.path("elsewhere"), fs::perms::owner_all);
    fs::create_directory_symlink("elsewhere", directory.path("bench"));
    EXPECT_EQ(refusalAt(path), EACCES);
    EXPECT_TRUE(fs::is_empty(directory.path("elsewhere")));
}

TEST_F(SocketTest, ADirectoryBehindALinkIsTaken)
{
    fs::create_directory(directory.path("elsewhere"));
    fs::create_directory_symlink("elsewhere", directory.path("link"));
    EXPECT_EQ(refusalAt(directory.path("link/bench/socket")), 0);
}

TEST_F(SocketTest, AFileInThePlaceOfTheDirectoryIsRefused)
{
    directory.write("bench", "");
    EXPECT_EQ(refusalAt(path), ENOTDIR);
}

TEST_F(SocketTest, AMissingParentDirectoryIsNotMade)
{
    EXPECT_EQ(refusalAt(directory.path("no/bench/socket")), ENOENT);
}

TEST_F(SocketTest, APathThatIsTooLongIsRefused)
{
    EXPECT_EQ(refusalAt(directory.path(std::string(120, 'x'))), ENAMETOOLONG);
}

TEST_F(SocketTest, ASecondLoggerIsRefusedAndTheFirstGoesOn)
{
    const auto first = listenAt(path);
    EXPECT_EQ(refusalAt(path), EADDRINUSE);
    EXPECT_TRUE(serves(path));
}

TEST_F(SocketTest, OfManyThatStartAtOnceExactlyOneRuns)
{
    constexpr int LOGGERS = 8;
    std::barrier begin(LOGGERS);
    std::barrier allTried(LOGGERS);
    std::atomic<int> started = 0;
    std::atomic<int> refused = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < LOGGERS; ++i) {
        threads.emplace_back([&] {
            begin.arrive_and_wait();
            std::unique_ptr<vlogger::VirtualLogger> logger;
            try {
                logger = listenAt(path);
                ++started;
            } catch (const std::system_error& error) {
                refused += error.code().value() == EADDRINUSE ? 1 : 0;
            }
            allTried.arrive_and_wait();
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(started, 1);
    EXPECT_EQ(refused, LOGGERS - 1);
}

TEST_F(SocketTest, TheSocketOfADeadLoggerIsTakenOver)
{
    fs::create_directory(directory.path("bench"));
    leaveDeadSocketAt(path);
    const auto sut = listenAt(path);
    EXPECT_TRUE(serves(path));
}

TEST_F(SocketTest, TheSocketOfAKilledLoggerIsTakenOver)
{
    int ready[2] = {-1, -1};
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto logger = listenAt(path);
        const char byte = 1;
        [[maybe_unused]] const ssize_t written = ::write(ready[1], &byte, 1);
        while (true) {
            ::pause();
        }
    }
    char byte = 0;
    EXPECT_EQ(::read(ready[0], &byte, 1), 1);
    ::close(ready[0]);
    ::close(ready[1]);
    EXPECT_EQ(refusalAt(path), EADDRINUSE) << "it lives";
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    ASSERT_TRUE(fs::exists(path)) << "a killed logger cleans nothing up";
    const auto sut = listenAt(path);
    EXPECT_TRUE(serves(path));
}

TEST_F(SocketTest, ASocketThatSomebodyElseListensAtIsLeftAlone)
{
    fs::create_directory(directory.path("bench"));
    for (const int type : {SOCK_SEQPACKET, SOCK_STREAM}) {
        const wire::FileDescriptor other(::socket(AF_UNIX, type, 0));
        bindTo(other.get(), path);
        ASSERT_EQ(::listen(other.get(), 1), 0);
        EXPECT_EQ(refusalAt(path), EADDRINUSE);
        EXPECT_TRUE(fs::exists(path));
        fs::remove(path);
    }
}

TEST_F(SocketTest, AFileInThePlaceOfTheSocketIsLeftAlone)
{
    fs::create_directory(directory.path("bench"));
    std::ofstream(path) << "precious";
    EXPECT_EQ(refusalAt(path), EEXIST);
    EXPECT_TRUE(fs::is_regular_file(path));
}

TEST_F(SocketTest, ASocketThatSomebodyHasPutInOursPlaceStays)
{
    auto sut = listenAt(path);
    fs::remove(path);
    leaveDeadSocketAt(path);
    sut.reset();
    EXPECT_TRUE(fs::exists(path));
}

TEST_F(SocketTest, AClientOfAnotherUserIsRefused)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only a privileged user can become another one";
    }
    CapturedOutput output;
    const auto sut = listenAt(path);
    // Let the stranger come as far as the socket, so that only the check of the peer is left.
    for (const std::string& place : {directory.path(), directory.path("bench")}) {
        fs::permissions(place, fs::perms(0755));
    }
    fs::permissions(path, fs::perms(0666));
    const std::vector<uint8_t> request = wire::encodeRequest({.kind = Kind::BOARD, .text = {}});
    constexpr int REFUSED = 7;
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::setgid(65534) != 0 || ::setuid(65534) != 0) {
            ::_exit(1);
        }
        const wire::FileDescriptor connection = connectTo(path);
        if (!connection) {
            ::_exit(2);
        }
        wire::sendPacket(connection.get(), request); // may come too late, which is as good
        uint8_t buffer[512];
        wire::ReceivedPacket received;
        if (wire::receivePacket(connection.get(), buffer, received) != 0) {
            ::_exit(errno == ECONNRESET ? REFUSED : 3);
        }
        const auto reply = wire::decodeReply(std::span(buffer).first(received.sizeBytes));
        ::_exit(reply && reply->errorNumber == EACCES ? REFUSED : 4);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), REFUSED);
    EXPECT_EQ(sut->statistics().connectionsRefused, 1U);
    EXPECT_EQ(output.err(), "[WARNING] VirtualLogger: a client of another user is refused\n");
}

class GarbageTest : public SocketTest
{
protected:
    loggerclient::Answer answerTo(const std::vector<uint8_t>& packet)
    {
        const wire::FileDescriptor connection = connectTo(path);
        auto answer = ask(connection.get(), packet);
        EXPECT_TRUE(loggerclient::reachesEnd(connection.get()));
        return answer;
    }

    const std::unique_ptr<vlogger::VirtualLogger> sut = listenAt(path);
};

TEST_F(GarbageTest, WhatIsNoPacketOfTheProtocolIsRefused)
{
    for (const std::vector<uint8_t>& packet : std::vector<std::vector<uint8_t>>{
             {0}, {'V'}, {'V', 'Q'}, {'V', 'Q', 1}, {'v', 'q', 1, 3}, std::vector<uint8_t>(512, 0xFF)}) {
        EXPECT_EQ(answerTo(packet).errorNumber, EPROTO);
    }
    EXPECT_EQ(sut->statistics().connectionsRefused, 6U);
    EXPECT_TRUE(serves(path));
}

TEST_F(GarbageTest, AnotherVersionIsRefused)
{
    EXPECT_EQ(answerTo({'V', 'Q', 0, 3}).errorNumber, EPROTO);
    EXPECT_EQ(answerTo({'V', 'Q', 2, 3}).errorNumber, EPROTO);
    EXPECT_EQ(answerTo({'V', 'Q', 255, 3}).errorNumber, EPROTO);
}

TEST_F(GarbageTest, APacketThatIsNoRequestIsRefused)
{
    for (const int kind : {0, 10, 0x3F, 0x40, 0x80, 255}) {
        EXPECT_EQ(answerTo({'V', 'Q', 1, static_cast<uint8_t>(kind)}).errorNumber, EINVAL) << kind;
    }
}

TEST_F(GarbageTest, ARequestThatIsTooLongIsRefused)
{
    std::vector<uint8_t> packet = wire::encodeRequest({.kind = Kind::OPEN_READ, .text = "/dev/vqlog-fpgab"});
    packet.resize(wire::REQUEST_MAX_BYTES);
    EXPECT_EQ(answerTo(packet).errorNumber, ENOENT) << "the longest request is one; such a device is not";
    packet.resize(wire::REQUEST_MAX_BYTES + 1);
    EXPECT_EQ(answerTo(packet).errorNumber, EINVAL);
    packet.resize(100000);
    EXPECT_EQ(answerTo(packet).errorNumber, EINVAL);
}

TEST_F(GarbageTest, AnEmptyFirstPacketEndsTheConnection)
{
    const wire::FileDescriptor connection = connectTo(path);
    ASSERT_EQ(wire::sendPacket(connection.get(), {}), 0);
    EXPECT_TRUE(loggerclient::reachesEnd(connection.get()));
}

TEST_F(GarbageTest, DescriptorsThatAClientSendsAlongAreClosed)
{
    const wire::FileDescriptor connection = connectTo(path);
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe(ends), 0);
    const std::vector<uint8_t> request = wire::encodeRequest({.kind = Kind::BOARD, .text = {}});
    ASSERT_EQ(wire::sendPacket(connection.get(), request, ends[1]), 0);
    EXPECT_EQ(loggerclient::awaitReply(connection.get()).errorNumber, 0);
    ::close(ends[1]);
    ASSERT_TRUE(loggerclient::reachesEnd(connection.get()));
    char byte = 0;
    ASSERT_NE(loggerclient::waitFor(ends[0], POLLIN), 0);
    EXPECT_EQ(::read(ends[0], &byte, 1), 0) << "nobody holds the other end";
    ::close(ends[0]);
}

TEST_F(GarbageTest, SilentClientsCostNothing)
{
    std::vector<wire::FileDescriptor> silent;
    for (int i = 0; i < 200; ++i) {
        silent.push_back(connectTo(path));
        ASSERT_TRUE(silent.back());
    }
    EXPECT_TRUE(serves(path));
    silent.clear();
    EXPECT_TRUE(serves(path));
}

TEST_F(GarbageTest, ClientsThatLeaveBeforeTheAnswerAreNoTrouble)
{
    for (int i = 0; i < 100; ++i) {
        const wire::FileDescriptor connection = connectTo(path);
        for (const Kind kind : {Kind::OPEN_READ, Kind::OPEN_WRITE, Kind::BOARD}) {
            wire::sendPacket(connection.get(), wire::encodeRequest({.kind = kind, .text = "/dev/vqlog-fpgab"}));
        }
    }
    EXPECT_TRUE(serves(path));
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(loggerclient::LIMIT_MS);
    while (sut->statistics().readers != 0 && std::chrono::steady_clock::now() < limit) {
    }
    EXPECT_EQ(sut->statistics().readers, 0U);
}

} // namespace
