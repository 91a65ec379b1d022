#include <bench/FaultPlan.h>

#include <logger/SimulatedClock.h>
#include <support/LoggerClient.h>
#include <support/Waiting.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <set>
#include <thread>

namespace vlogger {

namespace {

using namespace std::chrono_literals;
using config::FaultKind;

const std::string MAIN(board::MAIN_DEVICE);

/// A plan over a virtual logger, in time that stands still unless the test moves it.
class FaultPlanTest : public testing::Test
{
protected:
    ~FaultPlanTest() override
    {
        loop.stop();
        if (thread.joinable()) {
            thread.join();
        }
    }

    void start(const config::Faults& faults)
    {
        plan = std::make_unique<FaultPlan>(loop, logger, faults, peers);
        thread = std::thread([this] { loop.run(); });
    }

    /// Lets time pass, and everything happen that is due then.
    void pass(std::chrono::milliseconds time)
    {
        clock->advance(time);
        loop.call([] {});
    }

    int openError()
    {
        const loggerclient::Writer writer(logger.connect(), MAIN);
        return writer.error();
    }

    std::shared_ptr<SimulatedClock> clock = std::make_shared<SimulatedClock>();
    VirtualLogger logger{Options{.clock = clock}};
    EpollLoop loop{clock};
    std::vector<std::unique_ptr<EthernetPeer>> peers;
    std::unique_ptr<FaultPlan> plan;
    std::thread thread;
};

config::Faults faultsOf(std::vector<config::FaultEvent> events, uint32_t seed = 1)
{
    return {.seed = seed, .events = std::move(events)};
}

} // namespace

TEST(FaultTimesTest, WithoutSpreadTimesAreThoseOfTheEvents)
{
    EXPECT_EQ(faultTimes(faultsOf({{.atMs = 5}, {.atMs = 0}, {.atMs = 4294967295}})),
              (std::vector<std::chrono::milliseconds>{5ms, 0ms, 4294967295ms}));
}

TEST(FaultTimesTest, SameSeedGivesTheSameTimesAndAnotherOneOthers)
{
    const std::vector<config::FaultEvent> events(20, {.atMs = 100, .spreadMs = 1000000});
    EXPECT_EQ(faultTimes(faultsOf(events, 7)), faultTimes(faultsOf(events, 7)));
    EXPECT_NE(faultTimes(faultsOf(events, 7)), faultTimes(faultsOf(events, 8)));
}

TEST(FaultTimesTest, SpreadReachesItsEndsAndNeverFurther)
{
    const std::vector<config::FaultEvent> events(200, {.atMs = 10, .spreadMs = 2});
    const std::vector<std::chrono::milliseconds> times = faultTimes(faultsOf(events));
    EXPECT_EQ(std::set(times.begin(), times.end()), (std::set<std::chrono::milliseconds>{10ms, 11ms, 12ms}));
}

TEST(FaultTimesTest, GreatestTimesDoNotOverflow)
{
    const auto times = faultTimes(faultsOf({{.atMs = 4294967295, .spreadMs = 4294967295}}));
    EXPECT_GE(times.front(), 4294967295ms);
    EXPECT_LE(times.front(), 2 * 4294967295ms);
}

TEST_F(FaultPlanTest, WithoutEventsNothingHappens)
{
    start(faultsOf({}));
    pass(1h);
    EXPECT_EQ(openError(), 0);
}

TEST_F(FaultPlanTest, DeviceIsMissingFromItsTimeOnAndReturnsAtItsOwn)
{
    start(faultsOf({{.kind = FaultKind::DEVICE_MISSING, .target = MAIN, .atMs = 100},
                    {.kind = FaultKind::DEVICE_RETURNS, .target = MAIN, .atMs = 300}}));
    pass(99ms);
    EXPECT_EQ(openError(), 0);
    pass(1ms);
    EXPECT_EQ(openError(), ENOENT);
    pass(200ms);
    EXPECT_EQ(openError(), 0);
}

TEST_F(FaultPlanTest, DeviceVanishesUnderItsReader)
{
    start(faultsOf({{.kind = FaultKind::DEVICE_VANISHES, .target = MAIN, .atMs = 10}}));
    loggerclient::Reader reader(logger.connect(), MAIN);
    pass(10ms);
    EXPECT_TRUE(loggerclient::reachesEnd(reader.get()));
    EXPECT_EQ(openError(), ENOENT);
}

TEST_F(FaultPlanTest, RepeatedFaultHappensAgainAfterItsPeriod)
{
    start(faultsOf({{.kind = FaultKind::DEVICE_MISSING, .target = MAIN, .atMs = 100, .everyMs = 50}}));
    for (const auto time : {100ms, 50ms, 50ms}) {
        logger.setDeviceMissing(MAIN, false);
        pass(time - 1ms);
        EXPECT_EQ(openError(), 0);
        pass(1ms);
        EXPECT_EQ(openError(), ENOENT);
    }
}

TEST_F(FaultPlanTest, SoManyWritesFailWithTheErrorOfTheConfiguration)
{
    start(faultsOf({{.kind = FaultKind::WRITE_FAILS, .target = MAIN, .atMs = 10, .count = 2, .error = "ENOSPC"}}));
    loggerclient::Writer writer(logger.connect(), MAIN);
    pass(10ms);
    for (int i = 0; i < 2; ++i) {
        ASSERT_NE(loggerclient::waitFor(writer.get(), POLLIN), 0);
        EXPECT_EQ(writer.takeFault(), ENOSPC);
    }
    EXPECT_EQ(writer.takeFault(), std::nullopt);
}

TEST_F(FaultPlanTest, StreamIsCutInsideTheNextRecord)
{
    start(faultsOf({{.kind = FaultKind::STREAM_CUT, .target = MAIN, .atMs = 10}}));
    loggerclient::Reader reader(logger.connect(), MAIN);
    pass(10ms);
    logger.sendFromNode(loggerclient::frame(1, 0x123, {1, 2, 3}));
    EXPECT_EQ(reader.next(), std::nullopt);
}

TEST_F(FaultPlanTest, ClockIsLostAndFoundAgain)
{
    start(faultsOf({{.kind = FaultKind::CLOCK_LOST, .target = "fpgab", .atMs = 10},
                    {.kind = FaultKind::CLOCK_FOUND, .target = "fpgab", .atMs = 20}}));
    const auto offsetError = [this] {
        const wire::FileDescriptor connection(logger.connect());
        return loggerclient::ask(connection.get(), wire::Kind::OFFSET, "fpgab").errorNumber;
    };
    EXPECT_EQ(offsetError(), 0);
    pass(10ms);
    EXPECT_EQ(offsetError(), ENODATA);
    pass(10ms);
    EXPECT_EQ(offsetError(), 0);
}

} // namespace vlogger
