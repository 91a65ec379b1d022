#include "endpoint/LoggerRequest.h"

#include "endpoint/Endpoint.h"
#include "endpoint/LoggerSocket.h"

#include <wire/PacketSocket.h>

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace vqhost {

namespace {

using Clock = std::chrono::steady_clock;

[[noreturn]] void fail(int errorNumber)
{
    throw std::system_error(errorNumber, std::generic_category(), "virtual logger");
}

/// Waits until something can be received.
void awaitInput(int fd, Clock::time_point deadline)
{
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0) {
            fail(ETIMEDOUT);
        }
        pollfd watched{.fd = fd, .events = POLLIN, .revents = 0};
        const int ready = poll(&watched, 1, static_cast<int>(left.count()));
        if (ready > 0) {
            return;
        }
        if (ready < 0 && errno != EINTR) {
            fail(errno);
        }
    }
}

/// True for what a connection says, before anything else, when the other side has closed it. A virtual logger that
/// is short of descriptors answers and closes without waiting for the request; the answer stands behind the error.
bool isClosed(int errorNumber)
{
    return errorNumber == EPIPE || errorNumber == ECONNRESET;
}

wire::ReceivedPacket receiveReply(int fd, std::span<uint8_t> buffer)
{
    const Clock::time_point deadline = Clock::now() + ANSWER_LIMIT;
    wire::ReceivedPacket received;
    bool hasBeenReset = false;
    while (true) {
        awaitInput(fd, deadline);
        if (wire::receivePacket(fd, buffer, received, MSG_DONTWAIT) == 0) {
            return received;
        }
        const int errorNumber = errno;
        const bool goesOn = errorNumber == EAGAIN || (isClosed(errorNumber) && !std::exchange(hasBeenReset, true));
        if (!goesOn) {
            fail(errorNumber);
        }
    }
}

} // namespace

Grant ask(const wire::Request& request)
{
    Grant grant{.connection = Endpoint::instance().connect(), .passed = {}, .body = {}};
    const int fd = grant.connection.get();
    if (wire::sendPacket(fd, wire::encodeRequest(request)) != 0 && !isClosed(errno)) {
        fail(errno);
    }
    std::array<uint8_t, wire::REQUEST_MAX_BYTES> buffer;
    wire::ReceivedPacket received = receiveReply(fd, buffer);
    if (received.sizeBytes == 0) {
        fail(ECONNRESET);
    }
    auto reply = wire::decodeReply(std::span(buffer).first(received.sizeBytes));
    if (!reply || received.truncated) {
        fail(EPROTO);
    }
    if (reply->errorNumber != 0) {
        fail(reply->errorNumber);
    }
    grant.passed = std::move(received.descriptor);
    grant.body = std::move(reply->body);
    return grant;
}

} // namespace vqhost
