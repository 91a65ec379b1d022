#include "LoggerTest.h"

#include <support/CapturedOutput.h>
#include <support/ProcessResources.h>
#include <support/TemporaryDirectory.h>

#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <thread>
#include <vector>

using loggerclient::frame;

namespace {

/// Time that stands still, and with it, when asked to, whoever looks at it next.
class StoppingClock : public vlogger::SimulatedClock
{
public:
    Instant now() const override
    {
        std::unique_lock lock(mutex);
        if (isStopping) {
            hasStopped = true;
            changed.notify_all();
            changed.wait(lock, [this] { return !isStopping; });
        }
        return SimulatedClock::now();
    }

    /// Returns once a thread stands in now().
    void stop()
    {
        {
            const std::lock_guard lock(mutex);
            isStopping = true;
            hasStopped = false;
        }
        advance(Duration{0}); // makes the loop look
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return hasStopped; });
    }

    void goOn()
    {
        const std::lock_guard lock(mutex);
        isStopping = false;
        changed.notify_all();
    }

private:
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    mutable bool hasStopped = false;
    bool isStopping = false;
};

class LifecycleTest : public LoggerTest
{
protected:
    /// Two streams end within one round of the loop, and between the two a frame reaches the second.
    void endTwoStreamsWithAFrameBetween(wire::Kind kind, std::string_view text)
    {
        const auto stopping = std::make_shared<StoppingClock>();
        start({.clock = stopping});
        wire::FileDescriptor first = ask(kind, text).descriptor;
        wire::FileDescriptor second = ask(kind, text).descriptor;
        auto from = writer();
        ASSERT_TRUE(first && second);

        stopping->stop();
        first.reset();
        ASSERT_EQ(from.write(frame(0, 1)), 0);
        second.reset();
        stopping->goOn();

        EXPECT_TRUE(waitForFramesIn(1));
        EXPECT_TRUE(waitUntil([&] { return sut->stageReport().stages.size() <= 2; })) << "a bus and a device";
        EXPECT_EQ(sut->statistics().readers, 0U);
    }

    LifecycleTest()
    {
        std::thread([] {}).join(); // some runtimes keep a thread of their own from the first one on
        threadsBefore = processresources::threads();
        descriptorsBefore = processresources::openDescriptors();
    }

    size_t threadsBefore = 0;
    size_t descriptorsBefore = 0;
};

TEST_F(LifecycleTest, ThreadsAndDescriptorsAreBackAtTheStart)
{
    TemporaryDirectory directory;
    for (int i = 0; i < 20; ++i) {
        vlogger::VirtualLogger logger({.socketPath = directory.path("socket")});
        loggerclient::Reader to(logger.connect(), MAIN);
        loggerclient::Writer from(loggerclient::connectTo(directory.path("socket")).release(), MAIN);
        ASSERT_EQ(from.write(frame(0, 1)), 0);
        ASSERT_TRUE(to.next());
    }
    EXPECT_EQ(processresources::openDescriptors(), descriptorsBefore);
    EXPECT_TRUE(waitUntil([&] { return processresources::threads() == threadsBefore; }));
}

TEST_F(LifecycleTest, OneThreadServesAnyNumberOfClients)
{
    start();
    std::vector<loggerclient::Reader> readers;
    std::vector<loggerclient::Writer> writers;
    for (int i = 0; i < 20; ++i) {
        readers.push_back(reader());
        writers.push_back(writer());
    }
    EXPECT_EQ(processresources::threads(), threadsBefore + 1);
}

TEST_F(LifecycleTest, ReadersThatLeaveAtOnceWithAFrameBetweenThem)
{
    endTwoStreamsWithAFrameBetween(wire::Kind::OPEN_READ, MAIN);
}

TEST_F(LifecycleTest, MonitorsThatLeaveAtOnceWithAFrameBetweenThem)
{
    endTwoStreamsWithAFrameBetween(wire::Kind::MONITOR, "");
}

TEST_F(LifecycleTest, TheEndOfTheLoggerIsTheEndOfEveryConnection)
{
    start();
    auto to = reader();
    auto from = writer();
    const wire::FileDescriptor silent(sut->connect());
    sut.reset();
    EXPECT_TRUE(to.reachesEnd());
    EXPECT_EQ(from.write(frame(0, 1)), EPIPE);
    EXPECT_TRUE(loggerclient::reachesEnd(silent.get()));
}

TEST_F(LifecycleTest, WhatTheReaderHasBeenSentCanBeReadAfterTheEnd)
{
    start();
    auto to = reader();
    auto from = writer();
    for (uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(from.write(frame(0, i)), 0);
    }
    ASSERT_TRUE(waitUntil(
        [&] { return sut->statistics().framesQueued == 10 && sut->readerStatistics()[0].bytesWaiting == 0; }));
    sut.reset();
    EXPECT_EQ(to.take(10).size(), 10U);
    EXPECT_TRUE(to.reachesEnd());
}

TEST_F(LifecycleTest, FullQueuesAndBlockedSendersDoNotDelayTheEnd)
{
    start({.streamQueueBytes = 4096});
    auto asleep = reader();
    auto from = writer();
    const uint32_t written = writeUntilHeld(from);
    int error = 0;
    std::thread blocked([&] {
        while (error == 0) {
            error = from.write(frame(0, 1, numbered(written)));
        }
    });
    std::thread node([&] { sut->sendFromNode(frame(0, 1)); });
    ASSERT_TRUE(waitUntil([&] { return sut->readerStatistics()[0].sendersWaiting == 2; }));
    sut.reset(); // time stands still: only the end itself can let them go
    node.join();
    blocked.join();
    EXPECT_TRUE(error == EPIPE || error == ECONNRESET) << error;
}

TEST_F(LifecycleTest, TheEndComesWhileClientsComeAndGo)
{
    for (int round = 0; round < 20; ++round) {
        TemporaryDirectory directory;
        const std::string path = directory.path("socket");
        auto logger = std::make_unique<vlogger::VirtualLogger>(vlogger::Options{.socketPath = path});
        std::atomic<bool> stop = false;
        std::atomic<int> served = 0;
        std::thread clients([&] {
            while (!stop) {
                loggerclient::Reader to(loggerclient::connectTo(path).release(), MAIN);
                loggerclient::Writer from(loggerclient::connectTo(path).release(), MAIN);
                if (to.get() >= 0) {
                    from.write(frame(0, 1));
                    ++served;
                }
            }
        });
        EXPECT_TRUE(waitUntil([&] { return served > 3; }));
        logger.reset();
        stop = true;
        clients.join();
    }
    EXPECT_EQ(processresources::openDescriptors(), descriptorsBefore);
}

TEST_F(LifecycleTest, CommandsFromManyThreadsAreAllServed)
{
    start();
    std::vector<std::thread> threads;
    std::atomic<int> done = 0;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 200; ++j) {
                const wire::FileDescriptor connection(sut->connect());
                sut->setSynchronised("fpgab", j % 2 == 0);
                sut->deviceOffsetUs();
                sut->sendFromNode(frame(0, 1));
                sut->statistics();
                ++done;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(done, 1600);
    EXPECT_EQ(sut->statistics().framesIn, 1600U);
}

TEST_F(LifecycleTest, SignalsOfTheProcessAreNotTheLoggersBusiness)
{
    start();
    // A signal that is blocked everywhere else would end the process if the logger's thread took it.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &set, nullptr), 0);
    ASSERT_EQ(::kill(::getpid(), SIGUSR1), 0);
    sut->statistics();
    int taken = 0;
    ASSERT_EQ(sigwait(&set, &taken), 0);
    EXPECT_EQ(taken, SIGUSR1);
}

} // namespace
