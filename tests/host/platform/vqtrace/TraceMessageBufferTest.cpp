#include <vqtrace/TraceMessageBuffer.h>

#include "TraceBytes.h"

#include <wire/FileDescriptor.h>

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>
#include <support/RedirectedDescriptor.h>
#include <support/Sanitizer.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <random>
#include <thread>

using namespace tracebytes;

namespace {

constexpr size_t BUFFER_BYTES = 0x10000;
const std::string NAME = "/dev/vqlog-fpgab";

/// The two ends of a stream.
struct Stream
{
    wire::FileDescriptor reader;
    wire::FileDescriptor writer;
};

Stream socketStream()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {wire::FileDescriptor(ends[0]), wire::FileDescriptor(ends[1])};
}

Stream pipeStream()
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    return {wire::FileDescriptor(ends[0]), wire::FileDescriptor(ends[1])};
}

class TraceMessageBufferTest : public testing::Test
{
protected:
    void build(Stream stream, size_t sizeBytes = BUFFER_BYTES, Mutex* logMutex = nullptr)
    {
        ends = std::move(stream);
        buffer = std::make_unique<TraceMessageBuffer>(ends.reader.get(), sizeBytes, logMutex);
        buffer->name = NAME;
    }

    void deviceSends(const Bytes& bytes) const
    {
        ASSERT_EQ(::write(ends.writer.get(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    void deviceEnds() { ends.writer.reset(); }

    /// A device that ends without having taken what was sent to it resets the connection.
    void deviceEndsWithInputLeft()
    {
        ASSERT_EQ(::write(ends.reader.get(), "x", 1), 1);
        deviceEnds();
    }

    /// The next record; empty if there is none.
    Bytes fetch() const
    {
        unsigned char* begin = nullptr;
        unsigned char* end = nullptr;
        return buffer->getNextMessage(begin, end) ? Bytes(begin, end) : Bytes();
    }

    /// The text of the exception that the next fetch throws; empty if it throws none.
    std::string complaint() const
    {
        try {
            fetch();
        } catch (const VQException& exception) {
            return exception.what();
        }
        return "";
    }

    /// Fetches what there is as a receive thread does: up to the end or to an exception, whichever comes first.
    /// @param refused  number of the frame at which a receiver throws; -1: none
    void fetchUntilException(std::vector<Bytes>& fetched, int refused = -1) const
    {
        try {
            for (Bytes record = fetch(); !record.empty(); record = fetch()) {
                fetched.push_back(record);
                if (refused >= 0 && record == frame(static_cast<uint32_t>(refused))) {
                    throw VQException("refused");
                }
            }
        } catch (const VQException&) {
        }
    }

    bool isReady() const
    {
        pollfd watched{.fd = ends.reader.get(), .events = POLLIN, .revents = 0};
        return poll(&watched, 1, 0) != 0;
    }

    Stream ends;
    std::unique_ptr<TraceMessageBuffer> buffer;
};

/// Takes what is written and notes whether the mutex was held meanwhile.
class LockWatchingBuffer : public std::streambuf
{
public:
    explicit LockWatchingBuffer(Mutex& watched) : mutex(watched) {}

    std::string text;
    bool wasLocked = true;

protected:
    std::streamsize xsputn(const char* bytes, std::streamsize count) override
    {
        text.append(bytes, static_cast<size_t>(count));
        std::thread([this] {
            if (mutex.tryLock()) {
                wasLocked = false;
                mutex.unlock();
            }
        }).join();
        return count;
    }

private:
    Mutex& mutex;
};

/// The promises that hold for every kind of descriptor.
class AnyStreamTest : public TraceMessageBufferTest, public testing::WithParamInterface<std::string>
{
protected:
    static Stream stream() { return GetParam() == "Socket" ? socketStream() : pipeStream(); }
};

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

TEST_P(AnyStreamTest, EndOfTheDeviceIsSaidOnceAndReadReturnsZeroFromThenOn)
{
    build(stream());
    deviceEnds();
    CapturedOutput output;

    EXPECT_EQ(buffer->read(), 0);
    EXPECT_EQ(buffer->read(), 0);

    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
    EXPECT_EQ(output.err(), "");
}

TEST_P(AnyStreamTest, DescriptorOfADeviceAtItsEndIsNeverReadyAgain)
{
    build(stream());
    deviceEnds();
    EXPECT_TRUE(isReady());
    const CapturedOutput output;

    buffer->read();

    EXPECT_FALSE(isReady());
    EXPECT_EQ(buffer->read(), 0);
}

TEST_P(AnyStreamTest, StreamThatEndsWithinARecordNamesTheBytesThatAreLeft)
{
    build(stream());
    Bytes bytes = joined({frame(1), frame(2)});
    bytes.erase(bytes.end() - 10, bytes.end());
    deviceSends(bytes);
    deviceEnds();
    CapturedOutput output;

    buffer->read();
    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(fetch(), Bytes());
    EXPECT_EQ(buffer->read(), 0);
    EXPECT_EQ(fetch(), Bytes());

    EXPECT_EQ(output.out(),
              "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab, bytes left=21\n");
}

TEST_P(AnyStreamTest, CloseOnExecOfTheDescriptorStaysAsItWas)
{
    for (const int flag : {0, FD_CLOEXEC}) {
        build(stream());
        fcntl(ends.reader.get(), F_SETFD, flag);
        deviceEnds();
        const CapturedOutput output;
        buffer->read();

        EXPECT_EQ(fcntl(ends.reader.get(), F_GETFD), flag);
    }
}

TEST_F(TraceMessageBufferTest, EndIsSaidUnderTheLogMutex)
{
    Mutex logMutex;
    LockWatchingBuffer watching(logMutex);
    std::streambuf* const before = std::cout.rdbuf(&watching);
    build(socketStream(), BUFFER_BYTES, &logMutex);
    deviceEnds();

    buffer->read();

    std::cout.rdbuf(before);
    EXPECT_EQ(watching.text, "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
    EXPECT_TRUE(watching.wasLocked);
    if (!logMutex.tryLock()) {
        FAIL() << "the reader still holds the log lock";
    }
    logMutex.unlock();
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

TEST_F(TraceMessageBufferTest, RecordsLeftByAnExceptionAreNotLostWithTheDevice)
{
    build(socketStream());
    deviceSends(joined({Bytes(7, 0xFF), frame(1)}));
    buffer->read();
    EXPECT_NE(complaint(), "");
    deviceEnds();
    const CapturedOutput output;

    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(fetch(), frame(1));
}

TEST_F(TraceMessageBufferTest, RecordsBehindTwoBadStretchesAreNotLostWithTheDevice)
{
    build(socketStream());
    deviceSends(joined({Bytes(7, 0xFF), frame(1), Bytes(7, 0xFF), frame(2)}));
    deviceEnds();
    CapturedOutput output;
    std::vector<Bytes> fetched;

    while (buffer->read() > 0) {
        EXPECT_TRUE(isReady());
        fetchUntilException(fetched);
    }

    EXPECT_EQ(fetched, (std::vector<Bytes>{frame(1), frame(2)}));
    EXPECT_FALSE(isReady());
    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
}

TEST_F(TraceMessageBufferTest, RecordsBehindOneThatAReceiverRefusedAreNotLostWithTheDevice)
{
    build(socketStream());
    deviceSends(joined({frame(1), frame(2)}));
    deviceEnds();
    CapturedOutput output;
    std::vector<Bytes> fetched;

    while (buffer->read() > 0) {
        EXPECT_TRUE(isReady());
        fetchUntilException(fetched, 1);
    }

    EXPECT_EQ(fetched, (std::vector<Bytes>{frame(1), frame(2)}));
    EXPECT_FALSE(isReady());
    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
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

TEST_F(TraceMessageBufferTest, PartOfARecordBehindARefusedOneIsCountedAtTheEndOnly)
{
    build(socketStream());
    Bytes cut = frame(2);
    cut.resize(20);
    deviceSends(joined({frame(1), cut}));
    deviceEnds();
    CapturedOutput output;
    std::vector<Bytes> fetched;

    while (buffer->read() > 0) {
        fetchUntilException(fetched, 1);
    }

    EXPECT_EQ(fetched, std::vector<Bytes>{frame(1)});
    EXPECT_EQ(output.out(),
              "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab, bytes left=20\n");
}

TEST_F(TraceMessageBufferTest, ConnectionThatIsResetIsTheEndOfTheDevice)
{
    build(socketStream());
    deviceSends(frame(1));
    deviceEndsWithInputLeft();
    CapturedOutput output;

    EXPECT_EQ(buffer->read(), 31);
    EXPECT_EQ(fetch(), frame(1));
    EXPECT_EQ(fetch(), Bytes());
    EXPECT_EQ(buffer->read(), 0);

    EXPECT_FALSE(isReady());
    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
}

TEST_F(TraceMessageBufferTest, EndWithoutADescriptorForTheReplacementIsSaidOnceAndReplacedLater)
{
    if (ADDRESS_SANITIZER) {
        GTEST_SKIP() << "the undefined-behaviour sanitizer needs descriptors of its own";
    }
    build(socketStream());
    deviceEnds();
    CapturedOutput output;
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{.rlim_cur = 0, .rlim_max = limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(buffer->read(), 0);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_TRUE(isReady());

    EXPECT_EQ(buffer->read(), 0);

    EXPECT_FALSE(isReady());
    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
}

TEST_F(TraceMessageBufferTest, EndOnAFullDiskCostsItsLineAndNoLaterOne)
{
    CapturedOutput output;
    build(socketStream());
    deviceEnds();
    {
        const RedirectedDescriptor redirected(STDOUT_FILENO, openFullDisk());
        buffer->read();
    }
    EXPECT_TRUE(std::cout.good());

    build(socketStream());
    deviceEnds();
    buffer->read();

    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
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
