#pragma once

#include <vqtrace/TraceMessageBuffer.h>

#include "TraceBytes.h"

#include <wire/FileDescriptor.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A reader on a stream whose other end is in the test's hand.
namespace tracebuffer {

using tracebytes::Bytes;
using tracebytes::frame;

constexpr size_t BUFFER_BYTES = 0x10000;
inline const std::string NAME = "/dev/vqlog-fpgab";

/// The two ends of a stream.
struct Stream
{
    wire::FileDescriptor reader;
    wire::FileDescriptor writer;
};

inline Stream socketStream()
{
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    return {wire::FileDescriptor(ends[0]), wire::FileDescriptor(ends[1])};
}

inline Stream pipeStream()
{
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    return {wire::FileDescriptor(ends[0]), wire::FileDescriptor(ends[1])};
}

class TraceBufferTest : public testing::Test
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

/// The promises that hold for every kind of descriptor.
class AnyStreamTest : public TraceBufferTest, public testing::WithParamInterface<std::string>
{
protected:
    static Stream stream() { return GetParam() == "Socket" ? socketStream() : pipeStream(); }
};

} // namespace tracebuffer
