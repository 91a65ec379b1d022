#include <vqutil/LogUtil.h>
#include <vqutil/Mutex.h>

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace {

/// True if another thread could take the mutex.
bool isFree(Mutex& mutex)
{
    bool taken = false;
    std::thread([&] {
        if (mutex.tryLock()) {
            taken = true;
            mutex.unlock();
        }
    }).join();
    return taken;
}

constinit Mutex staticMutex;

} // namespace

TEST(MutexTest, LockExcludesOthersUntilUnlock)
{
    Mutex sut;

    sut.lock();
    EXPECT_FALSE(isFree(sut));
    sut.unlock();

    EXPECT_TRUE(isFree(sut));
}

TEST(MutexTest, TryLockTakesAFreeMutex)
{
    Mutex sut;

    if (!sut.tryLock()) {
        FAIL() << "a free mutex is not taken";
    }
    EXPECT_FALSE(isFree(sut));
    sut.unlock();
}

TEST(MutexTest, MutexLockHoldsForItsScope)
{
    Mutex sut;
    {
        const MutexLock lock(sut);
        EXPECT_FALSE(isFree(sut));
    }
    EXPECT_TRUE(isFree(sut));
}

TEST(MutexTest, StaticMutexNeedsNoConstructionAndNoDestruction)
{
    EXPECT_TRUE(isFree(staticMutex));
    EXPECT_TRUE(std::is_trivially_destructible_v<Mutex>);
}

TEST(LogUtilTest, LogMutexIsAnOrdinaryMutex)
{
    const MutexLock lock(LogUtil::logMutex);

    EXPECT_FALSE(isFree(LogUtil::logMutex));
}
