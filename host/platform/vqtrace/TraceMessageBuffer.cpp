#include <vqtrace/TraceMessageBuffer.h>

#include "vqtrace/RecordScanner.h"
#include "vqutil/TextForm.h"

#include <wire/BigEndian.h>
#include <wire/FileDescriptor.h>
#include <wire/TraceRecord.h>
#include <wire/WholeWrite.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>
#include <vector>

class TraceMessageBuffer::Impl
{
public:
    Impl(int descriptor, size_t sizeBytes, Mutex* mutex)
        : fd(descriptor), logMutex(mutex), bytes(std::max(sizeBytes, wire::RECORD_MIN_BYTES))
    {
    }

    int read(const std::string& deviceName);

    /// The usual case: a CAN frame stands at the next byte. Inlined into the one caller, since it runs for each
    /// record.
    bool fetchCanFrame(unsigned char*& recordBegin, unsigned char*& recordEnd)
    {
        const size_t length = searching ? 0 : wire::wholeCanRecordBytes(next, static_cast<size_t>(last - next));
        recordBegin = next;
        next += length;
        recordEnd = next;
        return length > 0;
    }

    /// Every other case.
    bool fetch(unsigned char*& recordBegin, unsigned char*& recordEnd, const std::string& deviceName);

private:
    void compact();
    ssize_t receive();
    ssize_t receiveFromFile();
    void finish(const std::string& deviceName);
    void reportEnd(const std::string& deviceName);
    void becomeQuiet();
    void resynchronise();

    size_t waiting() const { return static_cast<size_t>(last - next); }
    size_t room() const { return static_cast<size_t>(bytes.data() + bytes.size() - last); }
    /// Where the next byte stands in the stream.
    uint64_t position() const { return positionOfBuffer + static_cast<uint64_t>(next - bytes.data()); }

    const int fd;
    Mutex* const logMutex;
    std::vector<uint8_t> bytes;
    uint8_t* next = bytes.data();  ///< first byte not yet fetched
    uint8_t* last = bytes.data();  ///< behind the last byte read
    uint64_t positionOfBuffer = 0; ///< of the first byte of `bytes` in the stream
    bool isSocket = true;          ///< until recv(2) says otherwise
    bool searching = false;        ///< the bytes at `next` are known to be no record; their reason was reported
    bool drained = true;           ///< what waits was looked at and is no whole record
    bool ended = false;            ///< the device is at its end
    bool endReported = false;
    bool quiet = false; ///< the descriptor is the replacement
};

void TraceMessageBuffer::Impl::compact()
{
    // At most part of one record in the usual case, so nothing worth counting.
    const size_t count = waiting();
    positionOfBuffer = position();
    if (next != bytes.data() && count > 0) {
        std::memmove(bytes.data(), next, count);
    }
    next = bytes.data();
    last = next + count;
}

int TraceMessageBuffer::Impl::read(const std::string& deviceName)
{
    compact();
    ssize_t count = 0;
    if (!ended && room() > 0) {
        count = receive();
        ended = count == 0 || (count < 0 && errno == ECONNRESET);
        if (ended || (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))) {
            count = 0;
        }
    }
    if (count < 0) {
        return -1;
    }
    last += count;
    drained = waiting() == 0 || (drained && count == 0);
    if (ended && drained) {
        finish(deviceName);
    }
    // A user that was kept from fetching everything, by an exception for example, comes back for the rest even if
    // the device stays silent from now on.
    return static_cast<int>(count == 0 && !drained ? waiting() : static_cast<size_t>(count));
}

/// @return as read(2), with EAGAIN instead of waiting
ssize_t TraceMessageBuffer::Impl::receive()
{
    while (isSocket) {
        const ssize_t count = recv(fd, last, room(), MSG_DONTWAIT);
        if (count >= 0) {
            return count;
        }
        if (errno == ENOTSOCK) {
            isSocket = false;
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return receiveFromFile();
}

ssize_t TraceMessageBuffer::Impl::receiveFromFile()
{
    pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        ready = poll(&watched, 1, 0);
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
        errno = EAGAIN;
    }
    if (ready <= 0) {
        return -1;
    }
    ssize_t count = 0;
    do {
        count = ::read(fd, last, room());
    } while (count < 0 && errno == EINTR);
    return count;
}

/// Only when everything is fetched: until then the descriptor has to stay ready, or nobody would come for the rest.
void TraceMessageBuffer::Impl::finish(const std::string& deviceName)
{
    if (!std::exchange(endReported, true)) {
        reportEnd(deviceName);
    }
    becomeQuiet();
}

void TraceMessageBuffer::Impl::reportEnd(const std::string& deviceName)
{
    std::string line = "[ERROR] TraceMessageBuffer::read() device is at its end, name=" + deviceName;
    if (waiting() > 0) {
        line += ", bytes left=" + vqhost::decimal(waiting());
    }
    line += '\n';
    if (logMutex != nullptr) {
        const MutexLock lock(*logMutex);
        wire::writeWhole(std::cout, line);
    } else {
        wire::writeWhole(std::cout, line);
    }
}

/// Puts a descriptor that is never ready in the device's place. Tried again at the next read if there is none left.
void TraceMessageBuffer::Impl::becomeQuiet()
{
    if (quiet) {
        return;
    }
    const wire::FileDescriptor silence(eventfd(0, EFD_CLOEXEC));
    const int flags = fcntl(fd, F_GETFD);
    if (silence && flags >= 0) {
        quiet = dup3(silence.get(), fd, (flags & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0) >= 0;
    }
}

bool TraceMessageBuffer::Impl::fetch(unsigned char*& recordBegin, unsigned char*& recordEnd,
                                     const std::string& deviceName)
{
    if (searching) {
        resynchronise();
    }
    const std::span<const uint8_t> rest(next, waiting());
    const wire::RecordError error = wire::checkRecord(rest);
    const size_t length = rest.size() < wire::RECORD_HEADER_BYTES ? 0 : wire::readHeader(next).lengthBytes;
    const bool fits = length <= bytes.size();
    if (searching || (error == wire::RecordError::INCOMPLETE && fits)) {
        drained = true;
        return false;
    }
    if (error == wire::RecordError::NONE) {
        recordBegin = next;
        next += length;
        recordEnd = next;
        return true;
    }
    const std::string place = deviceName + ": malformed record at byte " + vqhost::decimal(position()) + ": ";
    ++next;
    resynchronise();
    throw VQException(place + (fits ? wire::textOf(error) : "the record is longer than the buffer"));
}

/// Moves on to the next record, or to the first byte that may become one.
void TraceMessageBuffer::Impl::resynchronise()
{
    const vqhost::ScanResult result = vqhost::findRecord({next, waiting()}, bytes.size());
    next += result.offset;
    searching = !result.found;
}

TraceMessageBuffer::TraceMessageBuffer(int fd, size_t sizeBytes, Mutex* logMutex)
    : impl(std::make_unique<Impl>(fd, sizeBytes, logMutex))
{
}

TraceMessageBuffer::~TraceMessageBuffer() = default;

int TraceMessageBuffer::read()
{
    return impl->read(name);
}

bool TraceMessageBuffer::getNextMessage(unsigned char*& begin, unsigned char*& end)
{
    return impl->fetchCanFrame(begin, end) || impl->fetch(begin, end, name);
}
