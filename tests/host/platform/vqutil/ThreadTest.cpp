#include <vqutil/Thread.h>

#include <gtest/gtest.h>
#include <support/PrivateMember.h>

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <future>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

/// Runs until it is released and tells what join() from inside says.
class HeldThread : public Thread
{
public:
    void threadCode() override
    {
        self = pthread_self();
        ownJoin = join();
        entered.set_value();
        released.get_future().wait();
    }

    void release() { released.set_value(); }
    pthread_t handle() const { return threadHandle; }
    bool isRunning() const { return running; }
    static pthread_t nothing() { return NO_THREAD; }

    std::promise<void> entered;
    std::promise<void> released;
    std::atomic<pthread_t> self{};
    std::atomic<int> ownJoin{12345};
};

class ShortThread : public Thread
{
public:
    void threadCode() override { ++runs; }
    pthread_t handle() const { return threadHandle; }

    std::atomic<int> runs{0};
};

bool failCreation = false;

} // namespace

extern "C" int __real_pthread_create(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
extern "C" int __wrap_pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*code)(void*),
                                     void* argument)
{
    return failCreation ? EAGAIN : __real_pthread_create(thread, attributes, code, argument);
}

TEST(ThreadTest, NewObjectHoldsNoThreadAndIsNotRunning)
{
    const HeldThread sut;

    EXPECT_EQ(sut.handle(), static_cast<pthread_t>(-1));
    EXPECT_EQ(sut.handle(), HeldThread::nothing());
    EXPECT_FALSE(sut.isRunning());
}

TEST(ThreadTest, JoinOfAThreadThatNeverRanFails)
{
    ShortThread sut;

    EXPECT_EQ(sut.join(), -1);
}

TEST(ThreadTest, StartRunsTheCodeInAnotherThreadAndJoinWaitsForItsEnd)
{
    HeldThread sut;

    ASSERT_EQ(sut.start(), 0);
    sut.entered.get_future().wait();
    EXPECT_NE(sut.self, pthread_self());
    EXPECT_EQ(sut.handle(), sut.self);
    sut.release();

    EXPECT_EQ(sut.join(), 0);
    EXPECT_EQ(sut.handle(), HeldThread::nothing());
}

TEST(ThreadTest, StartNeverTouchesTheRunningFlag)
{
    HeldThread sut;

    sut.start();
    sut.entered.get_future().wait();
    EXPECT_FALSE(sut.isRunning());
    sut.release();
    sut.join();

    EXPECT_FALSE(sut.isRunning());
}

TEST(ThreadTest, SecondStartWhileTheFirstThreadIsNotJoinedIsBusy)
{
    HeldThread sut;
    sut.start();
    sut.entered.get_future().wait();

    EXPECT_EQ(sut.start(), EBUSY);

    EXPECT_EQ(sut.handle(), sut.self);
    sut.release();
    sut.join();
}

TEST(ThreadTest, ThreadThatEndedByItselfStillHasToBeJoined)
{
    ShortThread sut;
    sut.start();
    while (sut.runs == 0) {
        std::this_thread::yield();
    }

    EXPECT_EQ(sut.start(), EBUSY);
    EXPECT_EQ(sut.join(), 0);
    EXPECT_EQ(sut.start(), 0);
    EXPECT_EQ(sut.join(), 0);
    EXPECT_EQ(sut.runs, 2);
}

TEST(ThreadTest, SecondJoinFails)
{
    ShortThread sut;
    sut.start();
    sut.join();

    EXPECT_EQ(sut.join(), -1);
}

TEST(ThreadTest, JoinFromInsideFailsAndLeavesTheThreadToBeJoined)
{
    HeldThread sut;
    sut.start();
    sut.entered.get_future().wait();

    EXPECT_EQ(sut.ownJoin, -1);

    sut.release();
    EXPECT_EQ(sut.join(), 0);
}

TEST(ThreadTest, OfManyConcurrentJoinsExactlyOneJoins)
{
    HeldThread sut;
    sut.start();
    sut.entered.get_future().wait();
    std::atomic<int> joined{0};
    std::vector<std::thread> joiners;
    for (int i = 0; i < 8; ++i) {
        joiners.emplace_back([&] { joined += sut.join() == 0 ? 1 : 0; });
    }

    sut.release();
    for (std::thread& joiner : joiners) {
        joiner.join();
    }

    EXPECT_EQ(joined, 1);
}

TEST(ThreadTest, OfManyConcurrentStartsExactlyOneStarts)
{
    ShortThread sut;
    std::atomic<int> started{0};
    std::vector<std::thread> starters;
    for (int i = 0; i < 8; ++i) {
        starters.emplace_back([&] { started += sut.start() == 0 ? 1 : 0; });
    }
    for (std::thread& starter : starters) {
        starter.join();
    }

    EXPECT_EQ(started, 1);
    EXPECT_EQ(sut.join(), 0);
    EXPECT_EQ(sut.runs, 1);
}

TEST(ThreadTest, FailedCreationLeavesNothingToJoinAndCanBeRepeated)
{
    ShortThread sut;
    failCreation = true;

    EXPECT_EQ(sut.start(), EAGAIN);

    failCreation = false;
    EXPECT_EQ(sut.handle(), HeldThread::nothing());
    EXPECT_EQ(sut.join(), -1);
    EXPECT_EQ(sut.start(), 0);
    EXPECT_EQ(sut.join(), 0);
}

TEST(ThreadTest, StartWrapperRunsTheCodeOfTheObjectAndReturnsNull)
{
    ShortThread sut;

    EXPECT_EQ(Thread::startWrapper(static_cast<Thread*>(&sut)), nullptr);

    EXPECT_EQ(sut.runs, 1);
}

TEST(ThreadTest, IsAnAbstractClassWithTheStatedMembersOnly)
{
    EXPECT_TRUE(std::is_abstract_v<Thread>);
    EXPECT_TRUE(std::has_virtual_destructor_v<Thread>);
    // Table pointer, handle, flag.
    EXPECT_EQ(sizeof(Thread), 3 * sizeof(void*));
}
