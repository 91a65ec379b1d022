#include "LoggerTest.h"

#include <support/CapturedOutput.h>

#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

using loggerclient::frame;
using std::chrono::milliseconds;

namespace {

constexpr std::chrono::milliseconds LIMIT{1000};
constexpr size_t SMALL_QUEUE_BYTES = 8192;
/// Less than the system must be rid of before it reports room, more than the steps in which progress shows.
constexpr size_t A_LITTLE_BYTES = 4096;
/// One frame of writeUntilHeld() on the wire.
constexpr size_t RECORD_BYTES = wire::CAN_RECORD_MIN_BYTES + 4;

const std::string STALL_LINE =
    "[WARNING] VirtualLogger: a reader of /dev/vqlog-fpgab has taken nothing for 1000 ms: its newest frames are "
    "dropped until it reads again; activate the device by configuring a receiver while online, or close it\n";

class BackPressureTest : public LoggerTest
{
protected:
    void startSmall() { start({.streamQueueBytes = SMALL_QUEUE_BYTES, .stallLimit = LIMIT}); }

    loggerclient::Reader readerOfASmallQueue()
    {
        startSmall();
        return reader();
    }

    /// Takes numbered frames from the stream and compares them with first, first + 1, ...
    static void expectNumbers(loggerclient::Reader& from, uint32_t first, size_t count)
    {
        const auto records = from.take(count);
        ASSERT_EQ(records.size(), count);
        for (size_t i = 0; i < count; ++i) {
            ASSERT_EQ(numberOf(records[i]), first + i);
        }
    }
};

/// A reader that takes nothing, and a writer that its full queue holds back.
class HeldWriterTest : public BackPressureTest
{
protected:
    /// The reader has taken nothing for so long that everything that was written comes through to it or is dropped.
    void stall()
    {
        clock->advance(LIMIT);
        ASSERT_TRUE(waitForFramesIn(written));
    }

    void writeMore(uint32_t count)
    {
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(from.write(frame(0, 1, numbered(written++))), 0);
        }
    }

    loggerclient::Reader to = readerOfASmallQueue();
    loggerclient::Writer from = writer();
    uint32_t written = writeUntilHeld(from);
    uint32_t kept = static_cast<uint32_t>(sut->statistics().framesQueued); ///< by the queue, before any stall
};

TEST_F(HeldWriterTest, AFullQueueHoldsTheWriterBackAndNothingIsLost)
{
    EXPECT_LT(sut->statistics().framesIn, written) << "the rest waits behind the writer";
    expectNumbers(to, 0, written);
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(BackPressureTest, AFrameForManyChannelsOfOneDeviceIsNotTornByAFullQueue)
{
    start({.buses = {{0, 1, 2, 3, 4, 5, 6, 7, 8}}, .streamQueueBytes = SMALL_QUEUE_BYTES, .stallLimit = LIMIT});
    auto to = reader();
    auto from = writer();
    const uint32_t written = writeUntilHeld(from);
    const auto records = to.take(size_t{8} * written);
    ASSERT_EQ(records.size(), size_t{8} * written);
    for (size_t i = 0; i < records.size(); ++i) {
        ASSERT_EQ(numberOf(records[i]), i / 8);
        ASSERT_EQ(records[i].channel, 1 + i % 8);
    }
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(BackPressureTest, TheQueueTakesWhatItIsSaidToTake)
{
    startSmall();
    auto to = reader();
    auto from = writer();
    writeUntilHeld(from);
    const auto readers = sut->readerStatistics();
    ASSERT_EQ(readers.size(), 1U);
    EXPECT_GE(readers[0].bytesWaiting, SMALL_QUEUE_BYTES);
    EXPECT_LT(readers[0].bytesWaiting, SMALL_QUEUE_BYTES + RECORD_BYTES);
    EXPECT_FALSE(readers[0].hasStalled);
}

TEST_F(BackPressureTest, AReaderThatWaitsForAFullQueueEachTimeLosesNothing)
{
    startSmall();
    auto to = reader();
    auto from = writer();
    constexpr uint32_t FRAMES = 30000;
    std::thread sender([&] {
        for (uint32_t i = 0; i < FRAMES; ++i) {
            ASSERT_EQ(from.write(frame(0, 1, numbered(i))), 0);
        }
    });
    // Slow: the reader goes on only when the writer has been held back by the full queue.
    for (uint32_t taken = 0; taken < FRAMES; taken += 5000) {
        const auto held = [&] {
            const auto statistics = sut->readerStatistics();
            return statistics[0].bytesWaiting >= SMALL_QUEUE_BYTES || statistics[0].framesQueued == FRAMES;
        };
        ASSERT_TRUE(waitUntil(held));
        expectNumbers(to, taken, 5000);
    }
    sender.join();
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(HeldWriterTest, ASlowReaderIsNotTakenForAStalledOne)
{
    size_t readBytes = 0;
    for (int i = 0; i < 10; ++i) {
        readBytes += to.bytes(A_LITTLE_BYTES).size();
        clock->advance(LIMIT / 2);
        written = writeUntilHeld(from, written);
        EXPECT_FALSE(sut->readerStatistics()[0].hasStalled);
    }
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
    // What was read in pieces ends in the middle of a record; the rest follows whole.
    const size_t begun = readBytes / RECORD_BYTES + 1;
    to.bytes(begun * RECORD_BYTES - readBytes);
    expectNumbers(to, static_cast<uint32_t>(begun), written - begun);
}

TEST_F(HeldWriterTest, AWriterGoesOnWithTheFirstRoomThatASlowReaderMakes)
{
    const uint64_t before = sut->statistics().framesIn;
    to.bytes(A_LITTLE_BYTES);
    clock->advance(LIMIT / 8);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().framesIn > before; }));
    EXPECT_LE(sut->statistics().framesIn, written);
}

TEST_F(HeldWriterTest, AWriterIsHeldRightUpToTheStallLimit)
{
    CapturedOutput output;
    const uint64_t before = sut->statistics().framesIn;
    clock->advance(LIMIT - milliseconds(1));
    EXPECT_EQ(writeUntilHeld(from, written), written);
    EXPECT_EQ(sut->statistics().framesIn, before);
    clock->advance(milliseconds(1));
    EXPECT_TRUE(waitForFramesIn(written));
}

TEST_F(HeldWriterTest, AStalledReaderLosesItsNewestFramesAndKeepsTheOldest)
{
    CapturedOutput output;
    stall();
    EXPECT_TRUE(sut->readerStatistics()[0].hasStalled);
    EXPECT_EQ(sut->readerStatistics()[0].framesDropped, written - kept);
    EXPECT_EQ(sut->statistics().framesDropped, written - kept);
    expectNumbers(to, 0, kept);
    EXPECT_TRUE(to.isQuiet());
    EXPECT_EQ(output.err(), STALL_LINE);
    EXPECT_EQ(output.out(), "");
}

TEST_F(HeldWriterTest, AStalledReaderHoldsNobodyBackAnyMore)
{
    CapturedOutput output;
    stall();
    writeMore(5000);
    EXPECT_TRUE(waitForFramesIn(written));
    EXPECT_EQ(output.err(), STALL_LINE) << "said once per stall";
}

TEST_F(HeldWriterTest, AReaderThatMovesAgainGetsEveryNewFrame)
{
    CapturedOutput output;
    stall();
    expectNumbers(to, 0, kept);
    ASSERT_TRUE(waitUntil([&] { return !sut->readerStatistics()[0].hasStalled; }));
    const uint32_t first = written;
    writeMore(100);
    expectNumbers(to, first, 100);
}

TEST_F(HeldWriterTest, EachStallIsSaidOnce)
{
    CapturedOutput output;
    stall();
    to.bytes(sut->statistics().framesQueued * RECORD_BYTES);
    ASSERT_TRUE(waitUntil([&] { return !sut->readerStatistics()[0].hasStalled; }));
    written = writeUntilHeld(from, written);
    stall();
    EXPECT_EQ(output.err(), STALL_LINE + STALL_LINE);
}

TEST_F(BackPressureTest, OneStalledReaderCostsTheOthersNothingButTheLimit)
{
    CapturedOutput output;
    startSmall();
    auto asleep = reader();
    auto to = reader();
    auto from = writer();
    uint32_t written = writeUntilHeld(from);
    const auto queued = static_cast<uint32_t>(sut->statistics().framesQueued / 2);
    expectNumbers(to, 0, queued);
    clock->advance(LIMIT);
    expectNumbers(to, queued, written - queued);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(from.write(frame(0, 1, numbered(written + static_cast<uint32_t>(i)))), 0);
    }
    expectNumbers(to, written, 1000);
    const auto readers = sut->readerStatistics();
    EXPECT_EQ(readers[0].framesDropped, written + 1000U - queued);
    EXPECT_EQ(readers[1].framesDropped, 0U);
    EXPECT_EQ(output.err(), STALL_LINE);
}

TEST_F(BackPressureTest, AReaderThatHasSleptLongBeforeItsQueueFillsIsNotWaitedFor)
{
    CapturedOutput output;
    startSmall();
    auto to = reader();
    auto from = writer();
    // As much as the system takes and a little more: the queue is not full, and nothing is taken from it.
    uint32_t written = 0;
    while (sut->readerStatistics()[0].bytesWaiting < SMALL_QUEUE_BYTES / 4) {
        ASSERT_EQ(from.write(frame(0, 1, numbered(written++))), 0);
    }
    ASSERT_TRUE(waitForFramesIn(written));
    clock->advance(2 * LIMIT);
    for (int i = 0; i < 10000; ++i) {
        ASSERT_EQ(from.write(frame(0, 1, numbered(written++))), 0);
    }
    EXPECT_TRUE(waitForFramesIn(written));
    EXPECT_GT(sut->statistics().framesDropped, 0U);
    EXPECT_EQ(output.err(), STALL_LINE);
}

TEST_F(HeldWriterTest, AReaderThatClosesLetsItsWritersGo)
{
    to.close();
    EXPECT_TRUE(waitForFramesIn(written));
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(BackPressureTest, AReaderThatHoldsItselfBackComesFree)
{
    // A receive thread that sends: it reads nothing while its own write waits for its own queue.
    CapturedOutput output;
    startSmall();
    auto to = reader();
    auto from = writer();
    const uint32_t held = writeUntilHeld(from);
    std::atomic<bool> done = false;
    std::thread receiveThread([&] {
        // Blocks in the kernel: the device's queue and the system's are full.
        for (uint32_t i = 0; i < 1000; ++i) {
            ASSERT_EQ(from.write(frame(0, 1, numbered(held + i))), 0);
        }
        done = true;
    });
    while (!done) {
        clock->advance(LIMIT);
        sut->statistics();
    }
    receiveThread.join();
    EXPECT_TRUE(waitForFramesIn(held + 1000));
}

TEST_F(BackPressureTest, HeldWritersGoOnInTheirOrder)
{
    startSmall();
    auto to = reader();
    auto first = writer();
    auto second = writer();
    const uint32_t written = writeUntilHeld(first);
    for (uint32_t i = 0; i < 50; ++i) {
        ASSERT_EQ(second.write(frame(2, 0x700, numbered(i))), 0);
    }
    uint32_t nextOfFirst = 0;
    uint32_t nextOfSecond = 0;
    for (const wire::CanRecord& record : to.take(written + 50)) {
        uint32_t& next = record.channel == 1 ? nextOfFirst : nextOfSecond;
        ASSERT_EQ(numberOf(record), next++);
    }
    EXPECT_EQ(nextOfFirst, written);
    EXPECT_EQ(nextOfSecond, 50U);
}

TEST_F(HeldWriterTest, AHeldWriterThatClosesStillGetsEverythingThrough)
{
    from.close();
    sut->statistics();
    expectNumbers(to, 0, written);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().writers == 0; }));
}

TEST_F(HeldWriterTest, AHeldWriterThatClosesWithAFaultUnreadStillGetsEverythingThrough)
{
    sut->failWrites(MAIN, EIO);
    ASSERT_NE(loggerclient::waitFor(from.get(), POLLIN), 0);
    from.close(); // which resets the connection
    expectNumbers(to, 0, written);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().writers == 0; }));
    EXPECT_EQ(sut->statistics().framesIn, written);
}

TEST_F(HeldWriterTest, AHeldToolThatClosesWithItsReplyUnreadStillGetsEverythingThrough)
{
    constexpr uint32_t FRAMES = 200; // more than are taken off a connection at once
    wire::FileDescriptor tool(sut->connect());
    ASSERT_EQ(wire::sendPacket(tool.get(), wire::encodeRequest({.kind = wire::Kind::INJECT, .text = {}})), 0);
    ASSERT_NE(loggerclient::waitFor(tool.get(), POLLIN), 0);
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    for (uint32_t i = 0; i < FRAMES; ++i) {
        const size_t size = wire::encode(frame(0, 0x1FFFFFFF, numbered(i), 1), bytes);
        ASSERT_EQ(wire::sendPacket(tool.get(), std::span(bytes).first(size)), 0);
    }
    tool.reset(); // which resets the connection
    const auto records = to.take(written + 2 * FRAMES);
    EXPECT_EQ(std::ranges::count(records, 0x1FFFFFFFU, &wire::CanRecord::id), 2 * FRAMES) << "on both channels";
}

TEST_F(BackPressureTest, ABusWithoutAFullQueueGoesOnBesideOneThatIsHeld)
{
    start({.board = vlogger::board::WITH_EXTENSION, .streamQueueBytes = SMALL_QUEUE_BYTES, .stallLimit = LIMIT});
    auto asleep = reader();
    auto to = reader(EXTENSION);
    auto from = writer();
    writeUntilHeld(from);
    auto other = writer(EXTENSION);
    for (uint32_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(other.write(frame(16, 1, numbered(i))), 0);
    }
    expectNumbers(to, 0, 1000);
}

TEST_F(HeldWriterTest, ANodeWaitsForAReaderToo)
{
    std::atomic<bool> sent = false;
    std::thread node([&] {
        sut->sendFromNode(frame(0, 0x1FFFFFFF, numbered(0), 1));
        sent = true;
    });
    ASSERT_TRUE(waitUntil([&] { return sut->readerStatistics()[0].sendersWaiting == 2; }));
    const bool sentTooEarly = sent;
    const auto records = to.take(written + 2);
    node.join();
    EXPECT_FALSE(sentTooEarly);
    ASSERT_EQ(records.size(), written + 2U);
    EXPECT_EQ(std::ranges::count(records, 0x1FFFFFFFU, &wire::CanRecord::id), 2);
}

TEST_F(BackPressureTest, AStallLimitOfZeroNeverHoldsAnybodyBack)
{
    start({.streamQueueBytes = SMALL_QUEUE_BYTES, .stallLimit = milliseconds(0)});
    CapturedOutput output;
    auto to = reader();
    auto from = writer();
    for (uint32_t i = 0; i < 20000; ++i) {
        ASSERT_EQ(from.write(frame(0, 1, numbered(i))), 0);
    }
    EXPECT_TRUE(waitForFramesIn(20000));
    EXPECT_GT(sut->statistics().framesDropped, 0U);
}

TEST_F(BackPressureTest, TheStallLimitHoldsInRealTime)
{
    CapturedOutput output;
    vlogger::VirtualLogger logger({.streamQueueBytes = SMALL_QUEUE_BYTES, .stallLimit = milliseconds(50)});
    loggerclient::Reader asleep(logger.connect(), MAIN);
    loggerclient::Writer from(logger.connect(), MAIN);
    const auto begin = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < 20000; ++i) {
        ASSERT_EQ(from.write(frame(0, 1, numbered(i))), 0);
    }
    EXPECT_GE(std::chrono::steady_clock::now() - begin, milliseconds(50));
    EXPECT_TRUE(waitUntil([&] { return logger.statistics().framesIn == 20000; }));
    EXPECT_GT(logger.statistics().framesDropped, 0U);
}

} // namespace
