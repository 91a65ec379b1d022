// A trace device that sends anything, in reads of any size: the first byte of the input chooses the sizes, the rest
// is the stream. As long as the stream is well-formed every record comes out; afterwards the reader may skip, but
// it only ever returns records that stand in the stream, in order, and it always gets to the end. The dispatcher reads
// the same stream and hands on the same frames.

#include "DispatchCheck.h"
#include "vqtrace/MessageDecoder.h"

#include <vqtrace/TraceMessageBuffer.h>
#include <wire/FileDescriptor.h>
#include <wire/MessageRecord.h>
#include <wire/TraceRecord.h>

#include <sys/socket.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <random>
#include <span>
#include <vector>

namespace {

using Bytes = std::span<const uint8_t>;

void require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/// A command or transport message that is decoded from a record serialises to the same record; so does the record
/// that a message of unknown type carries. CAN frames lose the bits that their fields cannot hold.
void checkDecoder(Bytes record)
{
    const auto message = vqhost::decodeMessage(record);
    if (message == nullptr || message->msgId == wire::CAN_RECORD_TYPE) {
        return;
    }
    std::vector<uint8_t> again = message->byteArray;
    if (again.empty()) {
        message->createByteArray(again, true, false);
    }
    require(std::ranges::equal(again, record));
}

/// A device and its reader's descriptor.
class Pair
{
public:
    Pair()
    {
        int ends[2];
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
        readEnd = wire::FileDescriptor(ends[0]);
        writeEnd = wire::FileDescriptor(ends[1]);
    }

    void send(Bytes part) const
    {
        require(::send(writeEnd.get(), part.data(), part.size(), MSG_NOSIGNAL) ==
                static_cast<ssize_t>(part.size()));
    }
    void end() const { require(shutdown(writeEnd.get(), SHUT_WR) == 0); }

    wire::FileDescriptor readEnd;

private:
    wire::FileDescriptor writeEnd;
};

class Reader
{
public:
    Reader(int fd, Bytes sentStream, DispatchCheck& dispatchCheck)
        : buffer(fd, 0x10000, nullptr), stream(sentStream), dispatch(dispatchCheck)
    {
        buffer.name = "device";
    }

    /// Takes everything that has arrived.
    void drain()
    {
        while (buffer.read() > 0) {
            bool more = true;
            while (more) {
                // A turn gets on by a byte at least or ends this loop, and a read brings a byte or follows a
                // complaint.
                require(++turns <= 4 * stream.size() + 4);
                try {
                    more = fetch();
                } catch (const VQException&) {
                    ++complaints;
                }
            }
        }
        dispatch.drain(complaints);
    }

private:
    bool fetch()
    {
        unsigned char* begin = nullptr;
        unsigned char* end = nullptr;
        if (!buffer.getNextMessage(begin, end)) {
            return false;
        }
        const Bytes record(begin, end);
        require(wire::checkRecord(record) == wire::RecordError::NONE);
        require(wire::readHeader(record.data()).lengthBytes == record.size());
        const auto found = std::search(stream.begin() + position, stream.end(), record.begin(), record.end());
        require(found != stream.end());
        require(complaints != 0 || found == stream.begin() + position);
        position = found - stream.begin() + static_cast<std::ptrdiff_t>(record.size());
        checkDecoder(record);
        dispatch.expect(record);
        return true;
    }

    TraceMessageBuffer buffer;
    const Bytes stream;
    std::ptrdiff_t position = 0; ///< in the stream, behind the last record
    DispatchCheck& dispatch;
    size_t complaints = 0; ///< while there is none the stream is well-formed
    size_t turns = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size < 1) {
        return 0;
    }
    static std::streambuf* const silenced = std::cout.rdbuf(nullptr); // the reader reports the end of every stream
    static_cast<void>(silenced);
    const Pair readers;
    const Pair dispatchers;
    const Bytes stream(data + 1, size - 1);
    DispatchCheck dispatch(dispatchers.readEnd.get(), data[0] % 2 == 1);
    Reader reader(readers.readEnd.get(), stream, dispatch);
    std::minstd_rand random(data[0]);
    const size_t largest = size_t{1} << (data[0] % 16);
    for (size_t sent = 0; sent < stream.size();) {
        const Bytes part = stream.subspan(sent, std::min(stream.size() - sent, random() % largest + 1));
        dispatchers.send(part);
        readers.send(part);
        sent += part.size();
        reader.drain();
    }
    dispatchers.end();
    readers.end();
    reader.drain();
    return 0;
}
