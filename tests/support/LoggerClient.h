#pragma once

#include <wire/BusProtocol.h>
#include <wire/FileDescriptor.h>
#include <wire/MessageRecord.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>
#include <wire/TraceRecord.h>

#include <gtest/gtest.h>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Clients of a virtual logger on the level of the wire, for tests that want to see every byte.
namespace loggerclient {

/// Generous: only a failing test ever waits this long.
constexpr int LIMIT_MS = 30000;

/// Waits until the descriptor is ready for `events`.
/// @return what it is ready for; 0 when the limit passed first
inline short waitFor(int fd, short events, int limitMs = LIMIT_MS)
{
    pollfd state{.fd = fd, .events = events, .revents = 0};
    return ::poll(&state, 1, limitMs) > 0 ? state.revents : short{0};
}

/// Connects to a socket path. Empty on failure, with errno set.
inline wire::FileDescriptor connectTo(const std::string& path)
{
    wire::FileDescriptor fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int reason = errno;
        fd.reset();
        errno = reason;
    }
    return fd;
}

struct Answer
{
    bool closed = false; ///< the connection ended without a reply, or the limit passed
    int errorNumber = 0;
    std::vector<uint8_t> body;
    wire::FileDescriptor descriptor;
};

/// Waits for the reply on a connection.
inline Answer awaitReply(int fd)
{
    std::array<uint8_t, wire::REQUEST_MAX_BYTES> buffer;
    wire::ReceivedPacket received;
    int result = waitFor(fd, POLLIN) == 0 ? -1 : wire::receivePacket(fd, buffer, received);
    if (result != 0 && errno == ECONNRESET) {
        // Closed without having read the request; the answer stands behind the error.
        result = wire::receivePacket(fd, buffer, received);
    }
    if (result != 0) {
        return {.closed = true, .errorNumber = 0, .body = {}, .descriptor = {}};
    }
    const auto reply = wire::decodeReply(std::span(buffer).first(received.sizeBytes));
    if (!reply) {
        return {.closed = true, .errorNumber = 0, .body = {}, .descriptor = {}};
    }
    return {.closed = false,
            .errorNumber = reply->errorNumber,
            .body = reply->body,
            .descriptor = std::move(received.descriptor)};
}

/// Sends bytes as the first packet of a connection and waits for the reply, which a logger that is short of
/// descriptors gives before it closes without having read them.
inline Answer ask(int fd, std::span<const uint8_t> packet)
{
    if (wire::sendPacket(fd, packet) != 0 && errno != EPIPE && errno != ECONNRESET) {
        return {.closed = true, .errorNumber = 0, .body = {}, .descriptor = {}};
    }
    return awaitReply(fd);
}

inline Answer ask(int fd, wire::Kind kind, std::string_view text = {})
{
    return ask(fd, wire::encodeRequest({.kind = kind, .text = std::string(text)}));
}

/// True once the connection or stream is at its end, everything before that read and forgotten.
inline bool reachesEnd(int fd)
{
    std::array<uint8_t, 4096> buffer;
    while (waitFor(fd, POLLIN) != 0) {
        const ssize_t size = ::recv(fd, buffer.data(), buffer.size(), 0);
        if (size == 0 || (size < 0 && errno == ECONNRESET)) {
            return true;
        }
        if (size < 0) {
            return false;
        }
    }
    return false;
}

/// A frame as a transmitter writes it.
inline wire::CanRecord frame(uint8_t channel, uint32_t id, std::vector<uint8_t> payload = {}, uint8_t type = 0)
{
    wire::CanRecord record{.channel = channel, .frameKind = 2, .type = type, .id = id};
    record.lengthBytes = static_cast<uint8_t>(payload.size());
    std::copy(payload.begin(), payload.end(), record.payload.begin());
    return record;
}

/// A device that is open for writing.
class Writer
{
public:
    /// @param connected  a connection to a virtual logger that has not asked for anything
    Writer(int connected, std::string_view device) : fd(connected)
    {
        openError = ask(fd.get(), wire::Kind::OPEN_WRITE, device).errorNumber;
    }

    int error() const { return openError; }
    int get() const { return fd.get(); }
    void close() { fd.reset(); }

    /// Writes a frame; waits while the device is busy.
    /// @return 0, or the error number
    int write(const wire::CanRecord& record)
    {
        std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
        const size_t size = wire::encode(record, bytes);
        return wire::sendPacket(fd.get(), std::span(bytes).first(size)) == 0 ? 0 : errno;
    }

    /// Writes a frame if the device takes it without a wait.
    bool tryWrite(const wire::CanRecord& record)
    {
        std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
        const size_t size = wire::encode(record, bytes);
        return wire::sendPacket(fd.get(), std::span(bytes).first(size), -1, MSG_DONTWAIT) == 0;
    }

    bool writeRaw(std::span<const uint8_t> packet) { return wire::sendPacket(fd.get(), packet) == 0; }

    /// Waits until the device takes frames again.
    bool waitForRoom(int limitMs = LIMIT_MS) const { return (waitFor(fd.get(), POLLOUT, limitMs) & POLLOUT) != 0; }

    /// Takes the error number of the next FAULT packet, which is there already.
    std::optional<int> takeFault()
    {
        std::array<uint8_t, 64> buffer;
        wire::ReceivedPacket received;
        if (wire::receivePacket(fd.get(), buffer, received, MSG_DONTWAIT) != 0) {
            return std::nullopt;
        }
        return wire::decodeFault(std::span(buffer).first(received.sizeBytes));
    }

private:
    wire::FileDescriptor fd;
    int openError = 0;
};

/// The trace stream of a device that is open for reading.
class Reader
{
public:
    Reader(int connected, std::string_view device)
    {
        const wire::FileDescriptor connection(connected);
        Answer answer = ask(connection.get(), wire::Kind::OPEN_READ, device);
        openError = answer.errorNumber;
        stream = std::move(answer.descriptor);
    }

    int error() const { return openError; }
    int get() const { return stream.get(); }
    void close() { stream.reset(); }

    /// Waits for the next record.
    /// @return nothing at the end of the stream, after the limit, or if the bytes are no record
    std::optional<wire::CanRecord> next()
    {
        while (true) {
            const auto record = nextBuffered();
            if (record || isBroken || !fill()) {
                return record;
            }
        }
    }

    /// Takes records until `count` are there, or there is none any more.
    std::vector<wire::CanRecord> take(size_t count)
    {
        std::vector<wire::CanRecord> records;
        while (records.size() < count) {
            const auto record = next();
            if (!record) {
                break;
            }
            records.push_back(*record);
        }
        return records;
    }

    /// The next `count` bytes as they are; fewer at the end of the stream. Takes no more from the device than that.
    std::vector<uint8_t> bytes(size_t count)
    {
        while (buffer.size() - begin < count && fill(count - (buffer.size() - begin))) {
        }
        const size_t size = std::min(count, buffer.size() - begin);
        const auto first = buffer.begin() + static_cast<std::ptrdiff_t>(begin);
        begin += size;
        return {first, first + static_cast<std::ptrdiff_t>(size)};
    }

    /// True if nothing can be read now.
    bool isQuiet() const { return begin == buffer.size() && waitFor(stream.get(), POLLIN, 0) == 0; }

    bool reachesEnd() const { return loggerclient::reachesEnd(stream.get()); }

private:
    std::optional<wire::CanRecord> nextBuffered()
    {
        const std::span rest = std::span(buffer).subspan(begin);
        const wire::RecordError error = wire::checkRecord(rest);
        if (error != wire::RecordError::NONE) {
            isBroken = error != wire::RecordError::INCOMPLETE;
            return std::nullopt;
        }
        const size_t size = wire::readHeader(rest.data()).lengthBytes;
        begin += size;
        return wire::decodeCanRecord(rest.first(size));
    }

    static constexpr size_t READ_BYTES = 65536;

    bool fill(size_t limit = READ_BYTES)
    {
        if (waitFor(stream.get(), POLLIN) == 0) {
            return false;
        }
        buffer.erase(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(begin));
        begin = 0;
        std::array<uint8_t, READ_BYTES> more;
        const ssize_t size = ::recv(stream.get(), more.data(), std::min(limit, more.size()), 0);
        if (size <= 0) {
            return false;
        }
        buffer.insert(buffer.end(), more.begin(), more.begin() + size);
        return true;
    }

    wire::FileDescriptor stream;
    int openError = 0;
    std::vector<uint8_t> buffer;
    size_t begin = 0;
    bool isBroken = false;
};

/// What came off the process bus: a message, or the number of those that were dropped.
struct BusEvent
{
    std::string source;
    std::string destination;
    std::vector<uint8_t> record;
    uint64_t dropped = 0;

    std::optional<wire::CanRecord> frame() const { return wire::decodeCanRecord(record); }
};

/// A connection to the process bus.
class BusClient
{
public:
    BusClient(int connected, std::string_view name) : fd(connected)
    {
        openError = ask(fd.get(), wire::Kind::BUS, name).errorNumber;
    }

    int error() const { return openError; }
    int get() const { return fd.get(); }
    void close() { fd.reset(); }

    /// A record of a given size whose content is of no concern.
    static std::vector<uint8_t> record(uint32_t number, size_t sizeBytes = 32)
    {
        std::vector<uint8_t> bytes(std::max<size_t>(sizeBytes, wire::RECORD_MIN_BYTES));
        wire::writeRecordStart(bytes.data(), bytes.size(), 999, number);
        return bytes;
    }
    static uint64_t numberOf(const BusEvent& event) { return wire::timestampOf(event.record.data()); }

    /// @return 0, or the error number
    int send(std::string_view destination, std::span<const uint8_t> record, int flags = 0)
    {
        std::vector<uint8_t> packet;
        if (!wire::appendBusMessage(packet, {.source = "whoever", .destination = destination, .record = record})) {
            return EINVAL;
        }
        return wire::sendPacket(fd.get(), packet, -1, flags) == 0 ? 0 : errno;
    }
    bool trySend(std::string_view destination, std::span<const uint8_t> record)
    {
        return send(destination, record, MSG_DONTWAIT) == 0;
    }

    int command(uint16_t number, std::string_view text, std::string_view destination = wire::TRACE_LOGGER_NAME)
    {
        std::vector<uint8_t> bytes;
        wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 0, number, text, bytes, 0);
        return send(destination, bytes);
    }
    int registerFor(std::string_view text) { return command(19, text); }

    /// Waits for the next packet.
    /// @return nothing at the end of the connection, after the limit, or if it cannot be understood
    std::optional<BusEvent> next()
    {
        if (buffer.empty()) {
            buffer.resize(wire::BUS_PACKET_MAX_BYTES + 1);
        }
        wire::ReceivedPacket received;
        if (waitFor(fd.get(), POLLIN) == 0 || wire::receivePacket(fd.get(), buffer, received) != 0) {
            return std::nullopt;
        }
        const auto packet = std::span(buffer).first(received.sizeBytes);
        if (const auto dropped = wire::decodeBusDropped(packet)) {
            return BusEvent{.source = {}, .destination = {}, .record = {}, .dropped = *dropped};
        }
        const auto message = wire::decodeBusMessage(packet);
        if (!message) {
            return std::nullopt;
        }
        return BusEvent{.source = std::string(message->source),
                        .destination = std::string(message->destination),
                        .record = {message->record.begin(), message->record.end()}};
    }

    bool isQuiet() const { return waitFor(fd.get(), POLLIN, 0) == 0; }

private:
    wire::FileDescriptor fd;
    int openError = 0;
    std::vector<uint8_t> buffer;
};

} // namespace loggerclient
