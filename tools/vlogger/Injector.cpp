#include "Injector.h"

#include "LoggerGone.h"

#include <logger/BoardKind.h>
#include <wire/PacketSocket.h>

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <span>
#include <system_error>

namespace tool {

namespace {

/// The last channel that is sent on the main device, as the library does it.
constexpr uint8_t LAST_MAIN_CHANNEL = 14;

} // namespace

Injector::Injector(const LoggerClient& loggerClient, bool asChannel) : client(loggerClient), isChannel(asChannel)
{
    if (isChannel) {
        board = client.board();
    } else {
        outside = client.openInjection();
    }
}

int Injector::descriptorFor(uint8_t channel)
{
    if (!isChannel) {
        return outside.get();
    }
    const bool isExtension = vlogger::board::hasExtension(board) && channel > LAST_MAIN_CHANNEL;
    const std::string path(isExtension ? vlogger::board::EXTENSION_DEVICE : vlogger::board::MAIN_DEVICE);
    const auto entry = devices.find(path);
    return entry != devices.end() ? entry->second.get()
                                  : devices.emplace(path, client.openDevice(path)).first->second.get();
}

void Injector::send(const wire::CanRecord& record)
{
    std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
    const size_t size = wire::encode(record, bytes);
    const int fd = descriptorFor(record.channel);
    while (wire::sendPacket(fd, std::span(bytes).first(size)) != 0) {
        // That a device has gone does not mean that its logger has.
        if (!isChannel && (errno == EPIPE || errno == ECONNRESET)) {
            throw LoggerGone();
        }
        if (errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "cannot send");
        }
    }
}

void Injector::finish()
{
    // What a device has taken crosses its bus whether its writer stays or not: the end of the connection is read
    // behind the last frame.
    for (auto& [path, fd] : devices) {
        fd.reset();
    }
    if (!outside) {
        return;
    }
    std::array<uint8_t, wire::REQUEST_MAX_BYTES> buffer;
    wire::ReceivedPacket received;
    if (wire::sendPacket(outside.get(), wire::encodeFinish()) != 0 ||
        wire::receivePacket(outside.get(), buffer, received) != 0) {
        throw LoggerGone();
    }
    if (!wire::decodeReply(std::span(buffer).first(received.sizeBytes))) {
        throw LoggerGone();
    }
}

} // namespace tool
