#include <ethernet/EthernetTest.h>
#include <support/FailingCalls.h>

#include <vqutil/TimeOfDayClock.h>

namespace {

using testing::ElementsAre;

constexpr uint64_t MICROSECONDS_PER_DAY = 86'400'000'000;

std::atomic<uint64_t> nowUs{0};

uint64_t testClock() noexcept
{
    return nowUs;
}

class EthernetInterfaceBusLoadTest : public EthernetTest
{
protected:
    EthernetInterfaceBusLoadTest()
    {
        nowUs = 5'000'000;
        vqhost::setEpochClock(testClock);
        failing::skipPauses();
        sut->logLevel = 0;
    }

    /// Counted passes that the test makes itself, without a thread.
    void countPasses(size_t passes)
    {
        for (size_t pass = 0; pass < passes; ++pass) {
            sut->calcBitRate();
        }
    }

    size_t published() const
    {
        const std::vector<int> all = callback.statuses.all();
        return static_cast<size_t>(std::count(all.begin(), all.end(), 5));
    }
};

TEST_F(EthernetInterfaceBusLoadTest, StartsAtZero)
{
    EXPECT_EQ(sut->getLastBusLoad(), 0u);
}

TEST_F(EthernetInterfaceBusLoadTest, FirstPassClosesAnIntervalAtOnce)
{
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
    EXPECT_THAT(callback.statuses.all(), ElementsAre(5));
}

TEST_F(EthernetInterfaceBusLoadTest, IntervalOf999999MicrosecondsStaysOpen)
{
    countPasses(1);
    nowUs += 999'999;
    countPasses(3);
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
    EXPECT_EQ(published(), 1u);
}

TEST_F(EthernetInterfaceBusLoadTest, IntervalOfOneSecondClosesWithItsLastPassIncluded)
{
    countPasses(1);
    nowUs += 999'999;
    countPasses(3);
    nowUs += 1;
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 4u);
    EXPECT_EQ(published(), 2u);
    // The next one begins empty.
    nowUs += 1'000'000;
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
}

TEST_F(EthernetInterfaceBusLoadTest, FirstPassInTheFirstSecondOfTheDayDoesNotCloseAnInterval)
{
    nowUs = 999'999;
    countPasses(2);
    EXPECT_EQ(sut->getLastBusLoad(), 0u);
    nowUs = 1'000'000;
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 3u);
}

TEST_F(EthernetInterfaceBusLoadTest, MidnightClosesTheIntervalAtTheNextPass)
{
    nowUs = MICROSECONDS_PER_DAY - 10;
    countPasses(1);
    countPasses(4);
    nowUs = MICROSECONDS_PER_DAY + 10; // the time of day is 10 us, a difference of 20 us in truth
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 5u);
    EXPECT_EQ(published(), 2u);
    nowUs += 999'999;
    countPasses(1);
    EXPECT_EQ(published(), 2u);
    nowUs += 1;
    countPasses(1);
    EXPECT_EQ(sut->getLastBusLoad(), 2u);
}

TEST_F(EthernetInterfaceBusLoadTest, FigureIsSetBeforeItIsAnnounced)
{
    struct Reading : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t*, size_t) override {}
        void onInterfaceState(int) override { seen = interface->getLastBusLoad(); }
        EthernetInterface* interface = nullptr;
        uint64_t seen = 99;
    } reading;
    reading.interface = sut.get();
    sut->callbacks.insert(&reading);
    countPasses(1);
    EXPECT_EQ(reading.seen, 1u);
    sut->callbacks.erase(&reading);
}

TEST_F(EthernetInterfaceBusLoadTest, DeliveredReceptionsCount)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    server.send({2});
    server.send({3});
    ASSERT_TRUE(awaitIdle());
    nowUs += 1'000'000;
    server.send({4});
    ASSERT_TRUE(callback.awaitStatus(5, 2));
    EXPECT_EQ(sut->getLastBusLoad(), 3u);
}

TEST_F(EthernetInterfaceBusLoadTest, RejectedDatagramsDoNotCount)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    nowUs += 1'000'000;
    server.sendFromOtherPort({2});
    server.sendFromOtherPort({3});
    ASSERT_TRUE(await("[WARNING] ETH[127.0.0.2:PORT]::threadCode() ignore UDP data from unexpected server", 2));
    EXPECT_EQ(published(), 1u);
    server.send({4});
    ASSERT_TRUE(callback.awaitStatus(5, 2));
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
}

TEST_F(EthernetInterfaceBusLoadTest, ErrorsAndEmptyReceptionsCount)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    server.send({});
    ASSERT_TRUE(await("[WARNING] ETH[127.0.0.2:PORT]::threadCode() Lost connection - socket down!"));
    failing::recvfromCall.fail(EIO);
    server.send({2});
    ASSERT_TRUE(awaitIdle());
    nowUs += 1'000'000;
    server.send({3});
    ASSERT_TRUE(callback.awaitStatus(5, 2));
    EXPECT_EQ(sut->getLastBusLoad(), 4u); // empty, error, {2}, {3}
}

TEST_F(EthernetInterfaceBusLoadTest, WithoutTrafficTheFigureStays)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    nowUs += 1'000'000'000;
    sut->logLevel = 3;
    ASSERT_TRUE(await("[DEBUG] ETH[127.0.0.2:PORT]::threadCode() pselect() timeout.", 2));
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
    EXPECT_EQ(published(), 1u);
}

TEST_F(EthernetInterfaceBusLoadTest, WaitErrorsDoNotCount)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    nowUs += 1'000'000;
    failing::pselectCall.fail(EINTR, false, 5);
    ASSERT_TRUE(await("[ERROR] ETH[127.0.0.2:PORT]::threadCode() pselect() error: Interrupted system call", 5));
    EXPECT_EQ(published(), 1u);
    server.send({2});
    ASSERT_TRUE(callback.awaitStatus(5, 2));
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
}

TEST_F(EthernetInterfaceBusLoadTest, WakeUpWithoutTheSocketReadyCounts)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    failing::emptyWakeUps = 1;
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
    EXPECT_EQ(callback.received.count(), 0u);
}

TEST_F(EthernetInterfaceBusLoadTest, ReconnectKeepsFigureAndInterval)
{
    const ScriptedUdpServer server(Script::SINK);
    connectTo(udp(server.port()));
    server.send({1});
    ASSERT_TRUE(callback.awaitStatus(5, 1));
    ASSERT_TRUE(sut->disconnect());
    ASSERT_TRUE(sut->connect());
    EXPECT_EQ(sut->getLastBusLoad(), 1u);
    server.send({2});
    ASSERT_TRUE(awaitIdle());
    nowUs += 1'000'000;
    server.send({3});
    ASSERT_TRUE(callback.awaitStatus(5, 2));
    EXPECT_EQ(sut->getLastBusLoad(), 2u);
}

} // namespace
