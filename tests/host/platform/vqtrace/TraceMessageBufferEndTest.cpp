#include "TraceBufferTest.h"

#include <gtest/gtest.h>
#include <support/CapturedOutput.h>
#include <support/RedirectedDescriptor.h>
#include <support/Sanitizer.h>

#include <fcntl.h>
#include <sys/resource.h>

#include <iostream>
#include <streambuf>
#include <thread>

using namespace tracebuffer;
using namespace tracebytes;

namespace {

using TraceMessageBufferEndTest = TraceBufferTest;
using AnyEndTest = AnyStreamTest;

INSTANTIATE_TEST_SUITE_P(Kinds, AnyEndTest, testing::Values("Socket", "Pipe"),
                         [](const auto& kind) { return kind.param; });

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

} // namespace

TEST_P(AnyEndTest, EndOfTheDeviceIsSaidOnceAndReadReturnsZeroFromThenOn)
{
    build(stream());
    deviceEnds();
    CapturedOutput output;

    EXPECT_EQ(buffer->read(), 0);
    EXPECT_EQ(buffer->read(), 0);

    EXPECT_EQ(output.out(), "[ERROR] TraceMessageBuffer::read() device is at its end, name=/dev/vqlog-fpgab\n");
    EXPECT_EQ(output.err(), "");
}

TEST_P(AnyEndTest, DescriptorOfADeviceAtItsEndIsNeverReadyAgain)
{
    build(stream());
    deviceEnds();
    EXPECT_TRUE(isReady());
    const CapturedOutput output;

    buffer->read();

    EXPECT_FALSE(isReady());
    EXPECT_EQ(buffer->read(), 0);
}

TEST_P(AnyEndTest, StreamThatEndsWithinARecordNamesTheBytesThatAreLeft)
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

TEST_P(AnyEndTest, CloseOnExecOfTheDescriptorStaysAsItWas)
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

TEST_F(TraceMessageBufferEndTest, EndIsSaidUnderTheLogMutex)
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

TEST_F(TraceMessageBufferEndTest, RecordsLeftByAnExceptionAreNotLostWithTheDevice)
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

TEST_F(TraceMessageBufferEndTest, RecordsBehindTwoBadStretchesAreNotLostWithTheDevice)
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

TEST_F(TraceMessageBufferEndTest, RecordsBehindOneThatAReceiverRefusedAreNotLostWithTheDevice)
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

TEST_F(TraceMessageBufferEndTest, PartOfARecordBehindARefusedOneIsCountedAtTheEndOnly)
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

TEST_F(TraceMessageBufferEndTest, ConnectionThatIsResetIsTheEndOfTheDevice)
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

TEST_F(TraceMessageBufferEndTest, EndWithoutADescriptorForTheReplacementIsSaidOnceAndReplacedLater)
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

TEST_F(TraceMessageBufferEndTest, EndOnAFullDiskCostsItsLineAndNoLaterOne)
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
