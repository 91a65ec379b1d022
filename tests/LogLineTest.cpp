#include <LogLine.h>

#include <support/CapturedOutput.h>
#include <support/GroupedDigits.h>
#include <support/LogLock.h>
#include <support/RedirectedDescriptor.h>
#include <support/Sanitizer.h>
#include <support/SecondThread.h>

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <ios>
#include <iostream>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

using logline::Level;

namespace {

TEST(LogLineTest, EveryLevelHasItsTag)
{
    CapturedOutput output;
    logline::write(Level::ERROR, "Origin", "function", "text");
    logline::write(Level::WARNING, "Origin", "function", "text");
    logline::write(Level::INFO, "Origin", "function", "text");
    logline::write(Level::DEBUG, "Origin", "function", "text");
    EXPECT_EQ(output.out(), "[ERROR] Origin::function() text\n"
                            "[WARNING] Origin::function() text\n"
                            "[INFO] Origin::function() text\n"
                            "[DEBUG] Origin::function() text\n");
    EXPECT_EQ(output.err(), "");
}

TEST(LogLineTest, PartsFollowEachOtherWithoutSpace)
{
    CapturedOutput output;
    logline::write(Level::INFO, "Origin", "function", "a=", 1, "; b=", std::string("two"), '.');
    EXPECT_EQ(output.out(), "[INFO] Origin::function() a=1; b=two.\n");
}

TEST(LogLineTest, LineWithoutTextEndsBehindTheFunction)
{
    CapturedOutput output;
    logline::write(Level::DEBUG, "Origin", "function");
    EXPECT_EQ(output.out(), "[DEBUG] Origin::function() \n");
}

TEST(LogLineTest, ManipulatorsLastToTheEndOfTheirLineOnly)
{
    CapturedOutput output;
    logline::write(Level::INFO, "Origin", "function", std::hex, 255, ' ', 16);
    logline::write(Level::INFO, "Origin", "function", 255);
    EXPECT_EQ(output.out(), "[INFO] Origin::function() ff 10\n"
                            "[INFO] Origin::function() 255\n");
}

TEST(LogLineTest, NumbersLookTheSameInEveryLocale)
{
    const GroupedDigits locale;
    CapturedOutput output;
    logline::write(Level::INFO, "Origin", "function", 1234567);
    EXPECT_EQ(output.out(), "[INFO] Origin::function() 1234567\n");
}

TEST(LogLineTest, ProcessWithOneThreadLeavesTheLockAlone)
{
    if (THREAD_SANITIZER) {
        GTEST_SKIP() << "the sanitizer runs a thread of its own";
    }
    CapturedOutput output;
    logline::write(Level::INFO, "Origin", "function", "text");
    EXPECT_EQ(loglock::requests(), 0U);
    EXPECT_EQ(output.out(), "[INFO] Origin::function() text\n");
}

TEST(LogLineTest, ProcessWithThreadsTakesTheLockOncePerLine)
{
    const SecondThread second;
    CapturedOutput output;
    logline::write(Level::INFO, "Origin", "function", "first");
    EXPECT_EQ(loglock::requests(), 1U);
    logline::write(Level::INFO, "Origin", "function", "second");
    EXPECT_EQ(loglock::requests(), 2U);
    EXPECT_EQ(output.out(), "[INFO] Origin::function() first\n"
                            "[INFO] Origin::function() second\n");
}

TEST(LogLineTest, RefusedLockIsThrownAndNothingIsWritten)
{
    const SecondThread second;
    CapturedOutput output;
    {
        const loglock::Refusal refusal(EINVAL);
        EXPECT_THROW(logline::write(Level::INFO, "Origin", "function", "text"), std::system_error);
    }
    EXPECT_EQ(output.out(), "");
}

TEST(LogLineTest, EveryLineIsOneWriteAndIsOutAtOnce)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    // One write is one packet.
    const auto nextWrite = [&ends] {
        std::array<char, 200> bytes{};
        const ssize_t size = recv(ends[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        return size < 0 ? "nothing" : std::string(bytes.data(), static_cast<size_t>(size));
    };
    {
        const RedirectedDescriptor redirected(STDOUT_FILENO, ends[0]);
        logline::write(Level::INFO, "Origin", "function", "a=", 1);
        EXPECT_EQ(nextWrite(), "[INFO] Origin::function() a=1\n");
        logline::write(Level::ERROR, "Origin", "function", "b=", 2);
        EXPECT_EQ(nextWrite(), "[ERROR] Origin::function() b=2\n");
    }
    EXPECT_EQ(nextWrite(), "");
    close(ends[1]);
}

TEST(LogLineTest, FullDiskCostsItsLineAndNotTheNext)
{
    CapturedOutput output;
    {
        const RedirectedDescriptor redirected(STDOUT_FILENO, openFullDisk());
        logline::write(Level::INFO, "Origin", "function", "lost");
    }
    EXPECT_TRUE(std::cout.good());
    logline::write(Level::INFO, "Origin", "function", "kept");
    EXPECT_EQ(output.out(), "[INFO] Origin::function() kept\n");
}

TEST(LogLineTest, StateThatTheApplicationGaveTheStreamStays)
{
    CapturedOutput output;
    std::cout.setstate(std::ios_base::failbit);
    logline::write(Level::INFO, "Origin", "function", "unwanted");
    EXPECT_TRUE(std::cout.fail());
    std::cout.clear();
    EXPECT_EQ(output.out(), "");
}

} // namespace
