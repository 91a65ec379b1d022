#include "vqtrace/RecordScanner.h"

#include "TraceBytes.h"

#include <gtest/gtest.h>

using namespace tracebytes;
using vqhost::findRecord;
using vqhost::ScanResult;

namespace {

constexpr size_t LIMIT = 65536;

ScanResult found(size_t offset)
{
    return {.offset = offset, .found = true};
}

ScanResult notFound(size_t offset)
{
    return {.offset = offset, .found = false};
}

} // namespace

TEST(RecordScannerTest, NoBytesHoldNothing)
{
    EXPECT_EQ(findRecord({}, LIMIT), notFound(0));
}

TEST(RecordScannerTest, FrameAtTheBeginningIsFoundThere)
{
    EXPECT_EQ(findRecord(frame(1), LIMIT), found(0));
}

TEST(RecordScannerTest, FrameBehindBadBytesIsFound)
{
    EXPECT_EQ(findRecord(joined({Bytes(7, 0xFF), frame(1)}), LIMIT), found(7));
}

TEST(RecordScannerTest, OtherRecordInFrontOfAFrameIsFound)
{
    EXPECT_EQ(findRecord(joined({Bytes(7, 0xFF), other(10, 20), other(12, 300), frame(1)}), LIMIT), found(7));
}

TEST(RecordScannerTest, OtherRecordsThatEndWithTheBytesAreFound)
{
    EXPECT_EQ(findRecord(joined({Bytes(7, 0xFF), other(10, 20), other(12, 300)}), LIMIT), found(7));
}

TEST(RecordScannerTest, ChanceHeaderCannotSwallowFrames)
{
    // Looks like a record of 40 bytes, which would end in the middle of the frame.
    EXPECT_EQ(findRecord(joined({Bytes{0xFF, 0, 40, 0, 10, 0, 0}, frame(1), frame(2)}), LIMIT), found(7));
}

TEST(RecordScannerTest, ChanceRecordThatEndsWithTheBytesCannotSwallowAFrameThatHasBegun)
{
    const Bytes whole = frame(14); // its time stamp and channel look like a record of 14 bytes
    for (size_t size = 1; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        const Bytes chance = other(10, 14 + size, 0xEE);
        const Bytes bytes = joined({Bytes(1, 0xFF), Bytes(chance.begin(), chance.begin() + 14), cut});
        EXPECT_FALSE(findRecord(bytes, LIMIT).found) << size;
        EXPECT_LE(findRecord(bytes, LIMIT).offset, 15U) << size;
    }
}

TEST(RecordScannerTest, FrameThatIsNotWholeYetIsAwaited)
{
    const Bytes whole = frame(1);
    for (size_t size = 1; size < whole.size(); ++size) {
        const Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(findRecord(joined({Bytes(7, 0xFF), cut}), LIMIT).found, false) << size;
        EXPECT_LE(findRecord(joined({Bytes(7, 0xFF), cut}), LIMIT).offset, 7U) << size;
    }
}

TEST(RecordScannerTest, RecordLongerThanTheLimitIsNotAwaited)
{
    const Bytes start{0x40, 0, 0, 10, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};

    EXPECT_EQ(findRecord(start, 0x4000), notFound(0));
    EXPECT_GT(findRecord(start, 0x3FFF).offset, 0U);
}

TEST(RecordScannerTest, OfBadBytesOnlyThoseOfAHeaderAreKept)
{
    const ScanResult result = findRecord(Bytes(1000, 0xFF), LIMIT);

    EXPECT_FALSE(result.found);
    EXPECT_EQ(result.offset, 995U);
}

TEST(RecordScannerTest, FullBufferOfNestedHeadersTakesNoLongerThanItsBytes)
{
    // Every second byte begins a header of 14 bytes: the worst case for a search that follows each of them.
    Bytes bytes(65535, 0);
    for (size_t i = 1; i < bytes.size(); i += 2) {
        bytes[i] = 14;
    }

    EXPECT_FALSE(findRecord(bytes, LIMIT).found);
}
