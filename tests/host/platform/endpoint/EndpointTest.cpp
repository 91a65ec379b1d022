#include "endpoint/Endpoint.h"
#include "endpoint/LoggerRequest.h"

#include "FalseLogger.h"

#include <vqio/PIE.h>

#include <logger/VirtualLogger.h>
#include <wire/Protocol.h>

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>
#include <support/ChildProcess.h>
#include <support/LoggerClient.h>
#include <support/Sanitizer.h>
#include <support/TemporaryDirectory.h>

#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

namespace {

/// While set, packets are sent only after the other side has closed the connection.
std::atomic<bool> sendsTooLate{false};

} // namespace

extern "C" ssize_t __real_sendmsg(int fd, const msghdr* message, int flags);
extern "C" ssize_t __wrap_sendmsg(int fd, const msghdr* message, int flags)
{
    if (sendsTooLate) {
        loggerclient::waitFor(fd, 0); // the end is told without being asked for
    }
    return __real_sendmsg(fd, message, flags);
}

namespace {

const std::string PLAIN_BOARD = "board 1 0 0\n";
const std::string EXTENSION_BOARD = "board 1 4 0\n";

vlogger::Options withExtension(const std::string& socketPath)
{
    vlogger::Options options;
    options.board = vlogger::board::WITH_EXTENSION;
    options.socketPath = socketPath;
    return options;
}

ChildProcess child(std::vector<std::string> commands)
{
    commands.insert(commands.begin(), ENDPOINT_CHILD);
    return ChildProcess(std::move(commands));
}

class EndpointTest : public testing::Test
{
protected:
    EndpointTest() { mkdir(directory.path("vlogger").c_str(), 0700); }

    /// A program without VLOGGER whose default socket is defaultSocket().
    ChildProcess undecidedChild(std::vector<std::string> commands) const
    {
        return child(std::move(commands)).without("VLOGGER").with("XDG_RUNTIME_DIR", directory.path());
    }

    /// Error number with which a request of this process is refused; 0 if it is granted.
    static int refusalOf(const wire::Request& request)
    {
        try {
            vqhost::ask(request);
            return 0;
        } catch (const std::system_error& error) {
            return error.code().value();
        }
    }

    std::string defaultSocket() const { return directory.path("vlogger/socket"); }

    static std::string unreachableLine(const std::string& path, const std::string& reason)
    {
        return "[ERROR] virtual logger: cannot reach the one at " + path + ": " + reason +
               "; start it with 'vlogger serve --socket " + path +
               "', or unset VLOGGER to run on one inside the process\n";
    }

    std::string embeddedLine() const
    {
        return "[INFO] virtual logger: no virtual logger listens at " + defaultSocket() +
               "; this process runs on one of its own\n";
    }

    TemporaryDirectory directory;
};

} // namespace

TEST_F(EndpointTest, EmbeddedOnRequestWorksAndSaysNothing)
{
    const ChildResult result =
        child({"board", "read", "write", "send", "offset"}).with("VLOGGER", "embedded").run();

    EXPECT_EQ(result.out, PLAIN_BOARD + "opened\nopened\nsent 0\noffset known\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exitCode, 0);
}

TEST_F(EndpointTest, WithoutAnyLoggerAnEmbeddedOneIsStartedAndSaidOnce)
{
    const ChildResult result = undecidedChild({"board", "read", "write", "send"}).run();

    EXPECT_EQ(result.out, PLAIN_BOARD + "opened\nopened\nsent 0\n");
    EXPECT_EQ(result.err, embeddedLine());
}

TEST_F(EndpointTest, EmptyVariableCountsAsNone)
{
    const ChildResult result = undecidedChild({"board"}).with("VLOGGER", "").run();

    EXPECT_EQ(result.err, embeddedLine());
}

TEST_F(EndpointTest, ProgramThatNeverUsesThePlatformStartsNothing)
{
    const ChildResult result = undecidedChild({}).run();

    EXPECT_EQ(result.out + result.err, "");
}

TEST_F(EndpointTest, LoggerAtTheDefaultSocketIsUsed)
{
    const vlogger::VirtualLogger logger(withExtension(defaultSocket()));

    const ChildResult result = undecidedChild({"board", "extension", "send"}).run();

    EXPECT_EQ(result.out, EXTENSION_BOARD + "opened\nsent 0\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(EndpointTest, DefaultSocketWithoutRuntimeDirectoryIsInTheUsersDirectoryBelowTmp)
{
    const std::string path = "/tmp/vlogger-" + std::to_string(geteuid()) + "/socket";
    if (access(path.c_str(), F_OK) == 0) {
        GTEST_SKIP() << "a virtual logger of this user runs";
    }

    for (const std::string runtimeDirectory : {"", "relative"}) {
        const ChildResult result = undecidedChild({"board"}).with("XDG_RUNTIME_DIR", runtimeDirectory).run();

        EXPECT_EQ(result.err, "[INFO] virtual logger: no virtual logger listens at " + path +
                                  "; this process runs on one of its own\n");
    }
}

TEST_F(EndpointTest, SocketOfADeadLoggerAtTheDefaultPlaceCountsAsNone)
{
    {
        const FalseLogger dead(defaultSocket(), FalseLogger::Manner::SILENT);
    }

    const ChildResult result = undecidedChild({"board"}).run();

    EXPECT_EQ(result.out, PLAIN_BOARD);
    EXPECT_EQ(result.err, embeddedLine());
}

TEST_F(EndpointTest, DefaultSocketInADirectoryThatOthersMayWriteToIsNotTrusted)
{
    const vlogger::VirtualLogger logger(withExtension(defaultSocket()));
    chmod(directory.path("vlogger").c_str(), 0770);

    const ChildResult result = undecidedChild({"board"}).run();

    EXPECT_EQ(result.out, PLAIN_BOARD);
    EXPECT_EQ(result.err, "[INFO] virtual logger: " + directory.path("vlogger") +
                              ": it is not this user's alone: Permission denied; this process runs on one of its "
                              "own\n");
}

TEST_F(EndpointTest, DefaultSocketInALinkedDirectoryIsNotTrusted)
{
    const vlogger::VirtualLogger logger(withExtension(directory.path("elsewhere/socket")));
    rmdir(directory.path("vlogger").c_str());
    ASSERT_EQ(symlink("elsewhere", directory.path("vlogger").c_str()), 0);

    const ChildResult result = undecidedChild({"board"}).run();

    EXPECT_EQ(result.out, PLAIN_BOARD);
}

TEST_F(EndpointTest, NamedLoggerIsUsed)
{
    const std::string path = directory.path("named/socket");
    const vlogger::VirtualLogger logger(withExtension(path));

    const ChildResult result = child({"board", "extension", "send", "offset"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, EXTENSION_BOARD + "opened\nsent 0\noffset known\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(EndpointTest, NamedSocketThatIsMissingIsAnErrorWithItsRemedySaidOnce)
{
    const std::string path = directory.path("missing");

    const ChildResult result = child({"write", "read", "offset"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: No such device or address\n"
                          "open failed: No such device or address\n"
                          "exception: no time offset of fpgab: No such device or address\n");
    EXPECT_EQ(result.err, unreachableLine(path, "No such file or directory"));
}

TEST_F(EndpointTest, NamedSocketOfADeadLoggerRefusesTheConnection)
{
    const std::string path = directory.path("dead");
    {
        const FalseLogger dead(path, FalseLogger::Manner::SILENT);
    }

    const ChildResult result = child({"write"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: Connection refused\n");
    EXPECT_EQ(result.err, unreachableLine(path, "Connection refused"));
}

TEST_F(EndpointTest, NamedSocketThatIsTooLongIsAnError)
{
    const std::string path = "/" + std::string(200, 'x');

    const ChildResult result = child({"write"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: No such device or address\n");
    EXPECT_EQ(result.err, unreachableLine(path, "File name too long"));
}

TEST_F(EndpointTest, BoardThatDoesNotAnswerCountsAsPlainAndIsSaidOnce)
{
    const std::string path = directory.path("missing");

    const ChildResult result = child({"board", "board"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, PLAIN_BOARD + PLAIN_BOARD);
    EXPECT_EQ(result.err,
              unreachableLine(path, "No such file or directory") +
                  "[ERROR] PIE: the board does not answer: No such device or address; this process takes "
                  "it for a plain one\n");
}

TEST_F(EndpointTest, SocketOfAnotherUsersProcessIsRefused)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs to change the user";
    }
    chmod(directory.path().c_str(), 0755);
    const std::string path = directory.path("foreign");
    const FalseLogger foreign(path, FalseLogger::Manner::SILENT);

    // The leak check cannot look into a process that has changed its user.
    const ChildResult result =
        child({"nobody", "write"}).with("VLOGGER", path).with("ASAN_OPTIONS", "detect_leaks=0").run();

    EXPECT_EQ(result.out, "open failed: Permission denied\n");
    EXPECT_EQ(result.err, "[ERROR] virtual logger: cannot reach the one at " + path +
                              ": Permission denied; name one of your own in VLOGGER, or unset it to run on one "
                              "inside the process\n");
}

TEST_F(EndpointTest, SilentLoggerTimesOutAfterFiveSeconds)
{
    const std::string path = directory.path("silent");
    const FalseLogger silent(path, FalseLogger::Manner::SILENT);
    const auto start = std::chrono::steady_clock::now();

    const ChildResult result = child({"write"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: Connection timed out\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
}

TEST_F(EndpointTest, LoggerThatAcceptsNoConnectionTimesOutAfterFiveSeconds)
{
    const std::string path = directory.path("full");
    const FalseLogger full(path, FalseLogger::Manner::ACCEPTS_NOBODY);
    const auto start = std::chrono::steady_clock::now();

    const ChildResult result = child({"write"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: Connection timed out\n");
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
}

TEST_F(EndpointTest, LoggerThatHangsUpResetsTheConnection)
{
    const std::string path = directory.path("hanging-up");
    const FalseLogger hangingUp(path, FalseLogger::Manner::HANGS_UP);

    const ChildResult result = child({"write", "offset"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: Connection reset by peer\n"
                          "exception: no time offset of fpgab: Connection reset by peer\n");
}

TEST_F(EndpointTest, RefusalOfALoggerThatClosesBeforeTheRequestIsUnderstood)
{
    const std::string path = directory.path("short");
    const FalseLogger shortOfDescriptors(path, FalseLogger::Manner::ANSWERS_AND_CLOSES);
    setenv("VLOGGER", path.c_str(), 1);
    sendsTooLate = true;

    EXPECT_EQ(refusalOf({.kind = wire::Kind::BOARD, .text = {}}), EMFILE);
}

TEST_F(EndpointTest, RefusalOfALoggerThatLeavesTheRequestUnreadIsUnderstood)
{
    const std::string path = directory.path("short");
    const FalseLogger shortOfDescriptors(path, FalseLogger::Manner::ANSWERS_AND_CLOSES_ON_REQUEST);
    setenv("VLOGGER", path.c_str(), 1);

    EXPECT_EQ(refusalOf({.kind = wire::Kind::BOARD, .text = {}}), EMFILE);
}

TEST_F(EndpointTest, LoggerThatClosesBeforeTheRequestWithoutAnAnswerResetsTheConnection)
{
    const std::string path = directory.path("hanging-up");
    const FalseLogger hangingUp(path, FalseLogger::Manner::CLOSES);
    setenv("VLOGGER", path.c_str(), 1);
    sendsTooLate = true;

    EXPECT_EQ(refusalOf({.kind = wire::Kind::BOARD, .text = {}}), ECONNRESET);
}

TEST_F(EndpointTest, LackOfDescriptorsGivesNoAdviceAboutTheLogger)
{
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own";
    }
    const std::string path = directory.path("named/socket");
    const vlogger::VirtualLogger logger(withExtension(path));
    setenv("VLOGGER", path.c_str(), 1);
    CapturedOutput output;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);

    const int refusal = refusalOf({.kind = wire::Kind::BOARD, .text = {}});

    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(refusal, EMFILE);
    EXPECT_EQ(output.err(), "");
}

TEST_F(EndpointTest, LoggerThatStartsLaterDoesNotChangeTheBoardOfTheProcess)
{
    const std::string path = directory.path("named/socket");
    setenv("VLOGGER", path.c_str(), 1);
    CapturedOutput output;
    EXPECT_EQ(PIE().getDeviceCode(), PIE::DEVICE_NONE);

    const vlogger::VirtualLogger logger(withExtension(path));

    EXPECT_EQ(PIE().getDeviceCode(), PIE::DEVICE_NONE);
}

TEST_F(EndpointTest, LoggerThatAnswersRubbishIsAProtocolError)
{
    const std::string path = directory.path("rubbish");
    const FalseLogger rubbish(path, FalseLogger::Manner::ANSWERS_RUBBISH);

    const ChildResult result = child({"write", "board"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, "open failed: Protocol error\n" + PLAIN_BOARD);
    EXPECT_EQ(result.err,
              "[ERROR] PIE: the board does not answer: Protocol error; this process takes it for a plain "
              "one\n");
}

TEST_F(EndpointTest, EmbeddedLoggerServesDestructorsOfStaticObjects)
{
    const ChildResult result = undecidedChild({"write", "last"}).run();

    EXPECT_EQ(result.out, "opened\n" + PLAIN_BOARD + "opened\nsent 0\n");
    EXPECT_EQ(result.err, embeddedLine());
    EXPECT_EQ(result.exitCode, 0);
}

TEST_F(EndpointTest, ExitStartsNoEmbeddedLogger)
{
    const ChildResult result = undecidedChild({"last"}).run();

    EXPECT_EQ(result.out, PLAIN_BOARD + "open failed: No such device or address\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exitCode, 0);
}

TEST_F(EndpointTest, NamedLoggerServesDestructorsOfStaticObjects)
{
    const std::string path = directory.path("named/socket");
    const vlogger::VirtualLogger logger(withExtension(path));

    const ChildResult result = child({"last"}).with("VLOGGER", path).run();

    EXPECT_EQ(result.out, EXTENSION_BOARD + "opened\nsent 0\n");
}

TEST_F(EndpointTest, ProcessMayExitFromAnotherThread)
{
    const ChildResult result = undecidedChild({"write", "last", "exit-in-thread"}).run();

    EXPECT_EQ(result.out, "opened\n" + PLAIN_BOARD + "opened\nsent 0\n");
    EXPECT_EQ(result.exitCode, 0);
}

TEST_F(EndpointTest, ForkedChildFailsInsteadOfWaitingForTheThreadOfItsParent)
{
    const ChildResult result = child({"write", "fork", "write"}).with("VLOGGER", "embedded").run();

    EXPECT_EQ(result.out, "opened\nopen failed: No such device or address\nopened\n");
}

TEST_F(EndpointTest, UnknownTimeOffsetSaysWhy)
{
    const ChildResult result = child({"unknown-offset"}).with("VLOGGER", "embedded").run();

    EXPECT_EQ(result.out, "exception: no time offset of fpgaz: there is no such device\n");
}

TEST_F(EndpointTest, NamedLoggerMayStartLaterStopAndStartAgain)
{
    const std::string path = directory.path("named/socket");
    setenv("VLOGGER", path.c_str(), 1);
    vqhost::Endpoint& sut = vqhost::Endpoint::instance();

    EXPECT_THROW(sut.connect(), std::system_error);
    for (int i = 0; i < 2; ++i) {
        const vlogger::VirtualLogger logger(withExtension(path));
        EXPECT_TRUE(sut.connect());
    }
    EXPECT_THROW(sut.connect(), std::system_error);
    EXPECT_EQ(sut.embedded(), nullptr);
}

TEST_F(EndpointTest, ManyThreadsGetTheSameEmbeddedLogger)
{
    setenv("VLOGGER", "embedded", 1);
    std::vector<std::thread> users;
    std::array<vlogger::VirtualLogger*, 8> loggers{};
    for (vlogger::VirtualLogger*& logger : loggers) {
        users.emplace_back([&logger] {
            EXPECT_TRUE(vqhost::Endpoint::instance().connect());
            logger = vqhost::Endpoint::instance().embedded();
        });
    }
    for (std::thread& user : users) {
        user.join();
    }
    for (const vlogger::VirtualLogger* logger : loggers) {
        EXPECT_NE(logger, nullptr);
        EXPECT_EQ(logger, loggers.front());
    }
}
