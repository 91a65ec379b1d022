#include "TraceBufferTest.h"

#include <gtest/gtest.h>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <thread>

using namespace tracebuffer;
using namespace tracebytes;

namespace {

using TraceMessageBufferTest = TraceBufferTest;

INSTANTIATE_TEST_SUITE_P(Kinds, AnyStreamTest, testing::Values("Socket", "Pipe"),
                         [](const auto& kind) { return kind.param; });

} // namespace

TEST_P(AnyStreamTest, ReadOfASilentDeviceReturnsZeroAtOnce)
{
    build(stream());

    EXPECT_EQ(buffer->read(), 0);
    EXPECT_EQ(fetch(), Bytes());
}

TEST_P(AnyStreamTest, ReadReturnsTheNumberOfBytes)
{
    build(stream());
    deviceSends(frame(1));

    EXPECT_EQ(buffer->read(), 31);
}

TEST_P(AnyStreamTest, ReadWithoutAFetchBetweenNamesTheBytesThatWait)
{
    build(stream());
    deviceSends(frame(1));

    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(fetch(), Bytes());
    EXPECT_EQ(buffer->read(), 0);
}

TEST_P(AnyStreamTest, RecordsComeOutOneByOneInOrder)
{
    build(stream());
    deviceSends(joined({frame(1), other(10, 14), frame(2, 64), frame(3, 0)}));
    buffer->read();

    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(fetch(), other(10, 14));
    EXPECT_EQ(fetch(), frame(2, 64));
    EXPECT_EQ(fetch(), frame(3, 0));
    EXPECT_EQ(fetch(), Bytes());
}

TEST_P(AnyStreamTest, RecordThatIsCutAnywhereWaitsForTheNextRead)
{
    build(stream());
    const Bytes record = frame(7);
    for (size_t cut = 1; cut < record.size(); ++cut) {
        deviceSends(Bytes(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(cut)));
        ASSERT_GT(buffer->read(), 0);
        ASSERT_EQ(fetch(), Bytes()) << cut;
        deviceSends(Bytes(record.begin() + static_cast<std::ptrdiff_t>(cut), record.end()));
        ASSERT_GT(buffer->read(), 0);
        ASSERT_EQ(fetch(), record) << cut;
    }
}

TEST_F(TraceMessageBufferTest, ReadOfAClosedDescriptorFailsWithItsErrno)
{
    build(socketStream());
    ends.reader.reset();

    EXPECT_EQ(buffer->read(), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(TraceMessageBufferTest, ReadOfADirectoryFailsWithItsErrno)
{
    build({wire::FileDescriptor(::open("/", O_RDONLY)), {}});

    EXPECT_EQ(buffer->read(), -1);
    EXPECT_EQ(errno, EISDIR);
}

TEST_F(TraceMessageBufferTest, DescriptorStaysTheCallers)
{
    build(socketStream());
    buffer.reset();

    EXPECT_GE(fcntl(ends.reader.get(), F_GETFD), 0);
}

TEST_F(TraceMessageBufferTest, RecordsMayBeChangedInPlace)
{
    build(socketStream());
    deviceSends(joined({frame(1), frame(2)}));
    buffer->read();
    unsigned char* begin = nullptr;
    unsigned char* end = nullptr;

    ASSERT_TRUE(buffer->getNextMessage(begin, end));
    std::fill(begin, end, static_cast<unsigned char>(0xFF));

    EXPECT_EQ(fetch(), frame(2));
}

TEST_F(TraceMessageBufferTest, LongestRecordFits)
{
    build(socketStream());
    const Bytes record = other(10, 65535);
    std::thread device([&] { deviceSends(record); });
    Bytes fetched;
    while (fetched.empty()) {
        buffer->read();
        fetched = fetch();
    }
    device.join();

    EXPECT_EQ(fetched, record);
}

TEST_F(TraceMessageBufferTest, BufferFullOfRecordsTakesNoMoreUntilTheyAreFetched)
{
    build(socketStream(), 62);
    deviceSends(joined({frame(1), frame(2), frame(3)}));

    EXPECT_EQ(buffer->read(), 62);
    EXPECT_EQ(buffer->read(), 62) << "the same ones";
    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(fetch(), frame(2));
    EXPECT_EQ(fetch(), frame(3));
}

TEST_F(TraceMessageBufferTest, RecordLongerThanTheBufferIsMalformed)
{
    build(socketStream(), 100);
    deviceSends(joined({other(10, 101), frame(1)}));
    buffer->read();

    EXPECT_EQ(complaint(), "/dev/vqlog-fpgab: malformed record at byte 0: the record is longer than the buffer");

    Bytes fetched;
    for (int i = 0; i < 3 && fetched.empty(); ++i) {
        buffer->read();
        fetched = fetch();
    }
    EXPECT_EQ(fetched, frame(1));
}

TEST_F(TraceMessageBufferTest, MalformedRecordIsReportedWithPositionAndReasonAndTheNextOneFollows)
{
    build(socketStream());
    Bytes bad = frame(2);
    bad[1] = 3;
    deviceSends(joined({frame(1), bad, frame(3), frame(4)}));
    buffer->read();

    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(complaint(), "/dev/vqlog-fpgab: malformed record at byte 31: the length field is below 14");
    EXPECT_EQ(fetch(), frame(3));
    EXPECT_EQ(fetch(), frame(4));
    EXPECT_EQ(complaint(), "");
}

TEST_F(TraceMessageBufferTest, EveryKindOfMalformedRecordHasItsReason)
{
    Bytes nonZero = frame(1);
    nonZero[5] = 1;
    Bytes tooShortForACanFrame = frame(1);
    tooShortForACanFrame[1] = 22;
    Bytes payloadLength = frame(1);
    payloadLength[22] = 9;
    Bytes tooLong = frame(1);
    tooLong[1] = 88;
    const std::string start = "/dev/vqlog-fpgab: malformed record at byte 0: ";
    const std::vector<std::pair<Bytes, std::string>> cases{
        {nonZero, "the field behind the type is not zero"},
        {tooShortForACanFrame, "the payload does not fill the CAN frame record"},
        {payloadLength, "the payload does not fill the CAN frame record"},
        {tooLong, "the CAN frame has more than 64 payload bytes"},
    };
    for (const auto& [bad, reason] : cases) {
        build(socketStream());
        deviceSends(joined({bad, frame(2)}));
        buffer->read();

        EXPECT_EQ(complaint(), start + reason);
        EXPECT_EQ(fetch(), frame(2)) << reason;
    }
}

TEST_F(TraceMessageBufferTest, BadBytesThatGoOnInTheNextReadAreReportedOnce)
{
    build(socketStream());
    deviceSends(Bytes(100, 0xFF));
    buffer->read();
    EXPECT_EQ(complaint(), "/dev/vqlog-fpgab: malformed record at byte 0: the field behind the type is not zero");
    deviceSends(Bytes(100, 0xFF));
    buffer->read();
    EXPECT_EQ(complaint(), "");
    deviceSends(joined({Bytes(3, 0xFF), frame(1)}));
    buffer->read();

    EXPECT_EQ(fetch(), frame(1));
}

TEST_F(TraceMessageBufferTest, PositionCountsFromTheBeginningOfTheStream)
{
    build(socketStream());
    for (uint32_t i = 0; i < 100; ++i) {
        deviceSends(frame(i));
        buffer->read();
        ASSERT_EQ(fetch(), frame(i));
    }
    deviceSends(Bytes(14, 0));
    buffer->read();

    EXPECT_EQ(complaint(), "/dev/vqlog-fpgab: malformed record at byte 3100: the length field is below 14");
}

TEST_F(TraceMessageBufferTest, RecordsLeftByAnExceptionAreAnnouncedByTheNextRead)
{
    build(socketStream());
    deviceSends(joined({Bytes(7, 0xFF), frame(1), frame(2)}));
    buffer->read();
    EXPECT_NE(complaint(), "");

    EXPECT_EQ(buffer->read(), 62);
    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(fetch(), frame(2));
    EXPECT_EQ(fetch(), Bytes());
    EXPECT_EQ(buffer->read(), 0);
}

TEST_F(TraceMessageBufferTest, RecordsBehindOneThatAReceiverRefusedAreAnnouncedByTheNextRead)
{
    build(socketStream());
    deviceSends(joined({frame(1), frame(2)}));
    buffer->read();
    std::vector<Bytes> fetched;
    fetchUntilException(fetched, 1);

    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(fetch(), frame(2));
    EXPECT_EQ(fetch(), Bytes());
    EXPECT_EQ(buffer->read(), 0);
}

TEST_F(TraceMessageBufferTest, FramesAmongRandomBytesAllComeOut)
{
    std::mt19937 random(20250101);
    build(socketStream());
    for (uint32_t round = 0; round < 300; ++round) {
        Bytes noise(random() % 200 + 1);
        std::generate(noise.begin(), noise.end(), [&] { return static_cast<uint8_t>(random() | 0x80); });
        const Bytes bytes = joined({noise, frame(round), frame(round + 1000, 64)});
        std::vector<Bytes> fetched;
        size_t sent = 0;
        while (sent < bytes.size()) {
            const size_t part = std::min<size_t>(random() % 60 + 1, bytes.size() - sent);
            deviceSends(Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(sent),
                              bytes.begin() + static_cast<std::ptrdiff_t>(sent + part)));
            sent += part;
            buffer->read();
            for (bool more = true; more;) {
                try {
                    fetched.push_back(fetch());
                    more = !fetched.back().empty();
                } catch (const VQException&) {
                }
            }
        }
        EXPECT_EQ(std::count(fetched.begin(), fetched.end(), frame(round)), 1) << round;
        EXPECT_EQ(std::count(fetched.begin(), fetched.end(), frame(round + 1000, 64)), 1) << round;
    }
}
