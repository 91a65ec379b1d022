#include <vlogger/StopSignal.h>

#include <gtest/gtest.h>

#include <sys/eventfd.h>

#include <csignal>
#include <unistd.h>

namespace {

/// Whether the thread leaves the signal to somebody else.
bool isBlocked(int number)
{
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, number) == 1;
}

[[noreturn]] void stopUntilKilled()
{
    const tool::StopSignal sut;
    while (true) {
        ::kill(::getpid(), SIGTERM);
    }
}

/// Begins with the usual effect of each signal, whatever an earlier test has left.
class StopSignalTest : public ::testing::Test
{
protected:
    StopSignalTest()
    {
        for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
            std::signal(number, SIG_IGN); // forgets one that waits
            sigset_t set;
            sigemptyset(&set);
            sigaddset(&set, number);
            pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
            std::signal(number, SIG_DFL);
        }
    }
};

TEST_F(StopSignalTest, WithoutASignalAWaitEndsAtItsLimit)
{
    tool::StopSignal sut;
    EXPECT_FALSE(sut.wait(-1, 1));
    EXPECT_FALSE(sut.hasCome());
}

TEST_F(StopSignalTest, WaitEndsWhenTheOtherIsReady)
{
    const wire::FileDescriptor other(::eventfd(1, EFD_CLOEXEC));
    tool::StopSignal sut;
    EXPECT_FALSE(sut.wait(other.get(), -1));
    EXPECT_FALSE(sut.waitForSecond(other.get()));
}

TEST_F(StopSignalTest, EachSignalEndsAWait)
{
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        tool::StopSignal sut;
        ASSERT_EQ(::kill(::getpid(), number), 0);
        EXPECT_TRUE(sut.wait(-1, -1));
        EXPECT_TRUE(sut.hasCome());
    }
}

TEST_F(StopSignalTest, SignalThatHasComeStays)
{
    tool::StopSignal sut;
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_TRUE(sut.wait(-1, -1));
    EXPECT_TRUE(sut.wait(-1, -1));
}

TEST_F(StopSignalTest, LaterOneIsASecondOne)
{
    const wire::FileDescriptor ready(::eventfd(1, EFD_CLOEXEC));
    tool::StopSignal sut(tool::StopSignal::Second::IS_TOLD);
    do {
        ::kill(::getpid(), SIGINT);
    } while (!sut.waitForSecond(ready.get()));
    EXPECT_TRUE(sut.hasCome());
}

TEST_F(StopSignalTest, LaterOneKillsByItself)
{
    EXPECT_EXIT(stopUntilKilled(), ::testing::KilledBySignal(SIGTERM), "");
}

TEST_F(StopSignalTest, IgnoredHangUpStaysIgnored)
{
    std::signal(SIGHUP, SIG_IGN);
    const tool::StopSignal sut;
    EXPECT_TRUE(isBlocked(SIGINT));
    EXPECT_FALSE(isBlocked(SIGHUP));
}

TEST_F(StopSignalTest, WithoutASignalAllIsAsBeforeAtTheEnd)
{
    {
        const tool::StopSignal sut;
        EXPECT_TRUE(isBlocked(SIGTERM));
    }
    EXPECT_FALSE(isBlocked(SIGTERM));
}

TEST_F(StopSignalTest, StoppedCommandKeepsItsExitCodeWhateverStillComes)
{
    {
        tool::StopSignal sut;
        ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
        ASSERT_TRUE(sut.wait(-1, -1));
    }
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_TRUE(isBlocked(SIGTERM)); // and so this process still lives
}

} // namespace
