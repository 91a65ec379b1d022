#include "LoggerTest.h"

#include <cerrno>
#include <limits>
#include <stdexcept>

using loggerclient::frame;

namespace board = vlogger::board;

namespace {

class FaultTest : public LoggerTest
{
};

TEST_F(FaultTest, AMissingDeviceCannotBeOpenedAndOpenOnesStay)
{
    start();
    auto to = reader();
    auto from = writer();
    sut->setDeviceMissing(MAIN, true);
    EXPECT_EQ(reader().error(), ENOENT);
    EXPECT_EQ(writer().error(), ENOENT);
    ASSERT_EQ(from.write(frame(0, 5)), 0);
    EXPECT_EQ(to.next()->id, 5U);
}

TEST_F(FaultTest, ADeviceThatIsBackCanBeOpened)
{
    start();
    sut->setDeviceMissing(MAIN, true);
    sut->setDeviceMissing(MAIN, false);
    EXPECT_EQ(reader().error(), 0);
    EXPECT_EQ(writer().error(), 0);
}

TEST_F(FaultTest, OneMissingDeviceLeavesTheOthers)
{
    start({.board = board::WITH_EXTENSION});
    sut->setDeviceMissing(EXTENSION, true);
    EXPECT_EQ(reader(EXTENSION).error(), ENOENT);
    EXPECT_EQ(reader().error(), 0);
}

TEST_F(FaultTest, FailingWritesAreToldToEveryoneWhoHasTheDeviceOpen)
{
    start();
    auto first = writer();
    auto second = writer();
    sut->failWrites(MAIN, EIO, 2);
    for (loggerclient::Writer* const from : {&first, &second}) {
        EXPECT_EQ(from->takeFault(), EIO);
        EXPECT_EQ(from->takeFault(), EIO);
        EXPECT_EQ(from->takeFault(), std::nullopt);
    }
    EXPECT_EQ(writer().takeFault(), std::nullopt) << "nothing was left for whoever came later";
}

TEST_F(FaultTest, FailingWritesWaitForTheOneWhoOpensNext)
{
    start();
    sut->failWrites(MAIN, ENOSPC);
    sut->failWrites(MAIN, EIO, 2);
    auto next = writer();
    EXPECT_TRUE(waitUntil([&] { return next.get() >= 0 && loggerclient::waitFor(next.get(), POLLIN) != 0; }));
    EXPECT_EQ(next.takeFault(), ENOSPC);
    sut->statistics();
    EXPECT_EQ(next.takeFault(), EIO);
    EXPECT_EQ(next.takeFault(), EIO);
    EXPECT_EQ(next.takeFault(), std::nullopt);
    auto later = writer();
    sut->statistics();
    EXPECT_EQ(later.takeFault(), std::nullopt);
}

TEST_F(FaultTest, FailingWritesOfOneDeviceLeaveTheOther)
{
    start({.board = board::WITH_EXTENSION});
    auto from = writer(EXTENSION);
    sut->failWrites(MAIN, EIO);
    EXPECT_EQ(from.takeFault(), std::nullopt);
}

TEST_F(FaultTest, FaultsBeyondWhatAConnectionHoldsFollowLater)
{
    start();
    auto from = writer();
    constexpr unsigned MANY = 5000;
    sut->failWrites(MAIN, EIO, MANY);
    unsigned taken = 0;
    while (taken < MANY && loggerclient::waitFor(from.get(), POLLIN) != 0) {
        while (from.takeFault() == EIO) {
            ++taken;
        }
    }
    EXPECT_EQ(taken, MANY);
    sut->statistics();
    EXPECT_EQ(from.takeFault(), std::nullopt);
}

TEST_F(FaultTest, FaultsWithoutEndHoldNothingUp)
{
    start();
    auto to = reader();
    auto from = writer();
    sut->failWrites(MAIN, EIO, std::numeric_limits<unsigned>::max());
    ASSERT_EQ(from.write(frame(0, 5)), 0);
    EXPECT_EQ(to.next()->id, 5U);
    from.close();
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().writers == 0; }));
}

TEST_F(FaultTest, AVanishedDeviceEndsItsStreamsAndItsWriters)
{
    start();
    auto to = reader();
    auto from = writer();
    sut->vanish(MAIN);
    EXPECT_TRUE(to.reachesEnd());
    EXPECT_EQ(from.write(frame(0, 1)), EPIPE);
    EXPECT_EQ(reader().error(), ENOENT);
    EXPECT_EQ(writer().error(), ENOENT);
    EXPECT_EQ(sut->statistics().readers, 0U);
    EXPECT_EQ(sut->statistics().writers, 0U);
}

TEST_F(FaultTest, AVanishedDeviceComesBackEmptyAndWorking)
{
    start();
    auto gone = reader();
    sut->vanish(MAIN);
    sut->setDeviceMissing(MAIN, false);
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_TRUE(to.next());
    EXPECT_TRUE(gone.reachesEnd());
}

TEST_F(FaultTest, OneVanishedDeviceLeavesTheOther)
{
    start({.board = board::WITH_EXTENSION});
    auto to = reader(EXTENSION);
    auto from = writer(EXTENSION);
    sut->vanish(MAIN);
    ASSERT_EQ(from.write(frame(20, 1)), 0);
    EXPECT_TRUE(to.next());
}

TEST_F(FaultTest, AVanishingDeviceTakesItsHeldWritersAlong)
{
    start({.streamQueueBytes = 4096});
    auto asleep = reader();
    auto from = writer();
    writeUntilHeld(from);
    sut->vanish(MAIN);
    EXPECT_TRUE(loggerclient::reachesEnd(from.get()));
    EXPECT_EQ(sut->statistics().writers, 0U);
}

TEST_F(FaultTest, ACutRecordIsHalfThereAndTheStreamEnds)
{
    start();
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    ASSERT_TRUE(waitForFramesIn(1));
    sut->cutNextRecord(MAIN);
    ASSERT_EQ(from.write(frame(0, 2, {1, 2, 3, 4, 5, 6, 7, 8})), 0);
    ASSERT_EQ(from.write(frame(0, 3)), 0);
    EXPECT_EQ(to.next()->id, 1U);
    const auto half = to.bytes(1000);
    EXPECT_EQ(half.size(), (wire::CAN_RECORD_MIN_BYTES + 8) / 2);
    EXPECT_EQ(half[1], wire::CAN_RECORD_MIN_BYTES + 8);
    EXPECT_TRUE(to.reachesEnd());
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().readers == 0; }));
}

TEST_F(FaultTest, ACutMeetsEveryStreamThatIsOpenAndNoLaterOne)
{
    start();
    auto first = reader();
    auto second = reader();
    sut->cutNextRecord(MAIN);
    auto later = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1)), 0);
    EXPECT_TRUE(later.next());
    EXPECT_FALSE(first.next());
    EXPECT_FALSE(second.next());
    EXPECT_TRUE(first.reachesEnd());
    EXPECT_TRUE(second.reachesEnd());
}

TEST_F(FaultTest, ACutStreamWithAStalledReaderHoldsNobodyBack)
{
    start({.streamQueueBytes = 4096});
    auto asleep = reader();
    auto from = writer();
    const uint32_t written = writeUntilHeld(from);
    sut->cutNextRecord(MAIN);
    asleep.bytes(4096); // room for the cut record, far from all that waits
    clock->advance(vlogger::Options{}.stallLimit / 8);
    EXPECT_TRUE(waitForFramesIn(written));
    for (int i = 0; i < 5000; ++i) {
        ASSERT_EQ(from.write(frame(0, 1)), 0);
    }
}

TEST_F(FaultTest, AMalformedRecordHasAnImpossibleLengthAndAllItsBytes)
{
    start();
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(from.write(frame(0, 1, {9})), 0);
    EXPECT_EQ(to.next()->id, 1U);
    sut->malformNextRecord(MAIN);
    ASSERT_EQ(from.write(frame(0, 2, {9})), 0);
    ASSERT_EQ(from.write(frame(0, 3, {9})), 0);
    const auto bytes = to.bytes(wire::CAN_RECORD_MIN_BYTES + 1);
    ASSERT_EQ(bytes.size(), wire::CAN_RECORD_MIN_BYTES + 1);
    EXPECT_EQ(bytes[0], 0);
    EXPECT_EQ(bytes[1], 3);
    EXPECT_EQ(bytes[3], wire::CAN_RECORD_TYPE);
    EXPECT_EQ(bytes[21], 2);
    EXPECT_EQ(bytes[23], 9);
    EXPECT_EQ(to.next()->id, 3U);
}

TEST_F(FaultTest, AClockThatIsNotSynchronisedHasNoOffset)
{
    start({.board = board::WITH_EXTENSION});
    sut->setSynchronised("fpgab", false);
    EXPECT_EQ(ask(wire::Kind::OFFSET, "fpgab").errorNumber, ENODATA);
    EXPECT_EQ(ask(wire::Kind::OFFSET, "fpgac").errorNumber, 0);
    sut->setSynchronised("fpgac", false);
    sut->setSynchronised("fpgab", true);
    EXPECT_EQ(ask(wire::Kind::OFFSET, "fpgab").errorNumber, 0);
    EXPECT_EQ(ask(wire::Kind::OFFSET, "fpgac").errorNumber, ENODATA);
}

TEST_F(FaultTest, NamesThatNoBoardHasAreTheCallersMistake)
{
    start();
    EXPECT_THROW(sut->setDeviceMissing("/dev/vqlog", true), std::invalid_argument);
    EXPECT_THROW(sut->failWrites("", EIO), std::invalid_argument);
    EXPECT_THROW(sut->vanish("fpgab"), std::invalid_argument);
    EXPECT_THROW(sut->cutNextRecord("/dev/vqlog-fpgabx"), std::invalid_argument);
    EXPECT_THROW(sut->malformNextRecord("/dev/null"), std::invalid_argument);
    EXPECT_THROW(sut->setSynchronised("/dev/vqlog-fpgab", false), std::invalid_argument);
    EXPECT_THROW(sut->failWrites(MAIN, 0), std::invalid_argument);
    EXPECT_THROW(sut->failWrites(MAIN, -1), std::invalid_argument);
}

TEST_F(FaultTest, FaultsOfADeviceThatThisBoardLacksHaveNoEffect)
{
    start();
    sut->vanish(EXTENSION);
    sut->failWrites(EXTENSION, EIO);
    EXPECT_EQ(reader().error(), 0);
}

} // namespace
