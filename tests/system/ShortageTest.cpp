#include "SystemTest.h"

#include <support/CapturedOutput.h>
#include <support/Census.h>
#include <support/Program.h>
#include <support/Sanitizer.h>
#include <support/Waiting.h>

#include <sys/resource.h>
#include <unistd.h>

namespace {

/// Takes all but a few of the process's descriptors away.
class DescriptorShortage
{
public:
    DescriptorShortage() { ::getrlimit(RLIMIT_NOFILE, &original); }
    ~DescriptorShortage() { end(); }
    DescriptorShortage(const DescriptorShortage&) = delete;
    DescriptorShortage& operator=(const DescriptorShortage&) = delete;

    /// Leaves just so many.
    void leave(size_t count)
    {
        end();
        rlimit limit = original;
        limit.rlim_cur = SMALL_LIMIT;
        ::setrlimit(RLIMIT_NOFILE, &limit);
        for (int fd = ::dup(STDIN_FILENO); fd >= 0; fd = ::dup(STDIN_FILENO)) {
            taken.push_back(fd);
        }
        ASSERT_GE(taken.size(), count);
        for (; count > 0; --count) {
            ::close(taken.back());
            taken.pop_back();
        }
    }

    void end()
    {
        for (const int fd : taken) {
            ::close(fd);
        }
        taken.clear();
        ::setrlimit(RLIMIT_NOFILE, &original);
    }

private:
    static constexpr rlim_t SMALL_LIMIT = 128;

    rlimit original{};
    std::vector<int> taken;
};

/// A process, or a logger, that runs out of descriptors.
class ShortageTest : public SystemTest
{
protected:
    void SetUp() override
    {
        if (ADDRESS_SANITIZER) {
            GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own";
        }
    }

    /// Starts with ever more descriptors left until it works; every failure is told, leaves nothing open, and does
    /// not keep the traffic away afterwards.
    void startWithEverMoreDescriptors()
    {
        sender.configure();
        receiver.configure();
        const Census before = settledCensus();
        int failures = 0;
        for (size_t count = 0; count < 20; ++count) {
            shortage.leave(count);
            dispatcher().setOnline();
            const auto status = receiver.callback.nextStatus();
            dispatcher().setOffline();
            EXPECT_EQ(receiver.callback.nextStatus(), 2);
            shortage.end();
            EXPECT_TRUE(becomesTrue([&] { return Census::take() == before; }))
                << count << " left: " << Census::take() << ", was " << before;
            if (status == 1) {
                break;
            }
            EXPECT_EQ(status, 4);
            ++failures;
        }
        EXPECT_GT(failures, 0);
        EXPECT_LT(failures, 20);
    }

    void expectTraffic()
    {
        transmitter().close();
        ASSERT_EQ(transmitter().open(), 0);
        dispatcher().setOnline();
        ASSERT_EQ(receiver.callback.nextStatus(), 1);
        receiver.configure();
        ASSERT_EQ(sender.send({1}), 0);
        EXPECT_TRUE(receiver.callback.nextFrame());
        dispatcher().setOffline();
    }

    TestInterface sender{{0, 0x100, CAN_STANDARD, {}}};
    TestInterface receiver{{1, 0x100, CAN_STANDARD, {}}};
    DescriptorShortage shortage;
};

TEST_F(ShortageTest, StartWithoutDescriptorsFailsAndLeavesNothingOpen)
{
    Program outside(LOGGER_PROGRAM, {socketPath, "extension"});
    ASSERT_TRUE(outside.awaitLine("ready"));
    CapturedOutput output;

    startWithEverMoreDescriptors();

    expectTraffic();
}

TEST_F(ShortageTest, LoggerInTheSameProcessSurvivesTheShortage)
{
    startLogger(vlogger::board::WITH_EXTENSION);
    CapturedOutput output;

    startWithEverMoreDescriptors();

    expectTraffic();
}

TEST_F(ShortageTest, TransmitterWithoutDescriptorsFailsAndOpensLater)
{
    Program outside(LOGGER_PROGRAM, {socketPath, "extension"});
    ASSERT_TRUE(outside.awaitLine("ready"));
    sender.configure();
    CapturedOutput output;
    ASSERT_EQ(sender.send({1}), 0); // asks the board, too
    transmitter().close();

    shortage.leave(0);
    EXPECT_EQ(transmitter().open(), -1);
    EXPECT_EQ(sender.send({1}), -1);
    shortage.leave(1); // enough for the main device, not for the extension
    EXPECT_EQ(transmitter().open(), -1);
    shortage.end();
    EXPECT_EQ(transmitter().open(), 0);
    EXPECT_EQ(sender.send({1}), 0);
}

} // namespace
