#include "LoggerClient.h"

#include "Usage.h"

#include <config/MissingChannel.h>
#include <platform/endpoint/LoggerSocket.h>
#include <wire/DefaultSocket.h>
#include <wire/PacketSocket.h>

#include <poll.h>

#include <cerrno>
#include <cstdlib>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

namespace tool {

namespace {

constexpr int ANSWER_LIMIT_MS = 5000;

std::string chosenSocket(const std::string& path)
{
    if (!path.empty()) {
        return path;
    }
    const char* const variable = std::getenv("VLOGGER");
    // A program with a virtual logger of its own has none to offer to others.
    return variable != nullptr && *variable != '\0' && std::string_view(variable) != "embedded"
               ? std::string(variable)
               : wire::defaultSocketPath();
}

void receive(int fd, std::span<uint8_t> buffer, wire::ReceivedPacket& received)
{
    pollfd state{.fd = fd, .events = POLLIN, .revents = 0};
    int ready = 0;
    do {
        ready = ::poll(&state, 1, ANSWER_LIMIT_MS);
    } while (ready < 0 && errno == EINTR);
    if (ready == 0) {
        errno = ETIMEDOUT;
    }
    if (ready <= 0 || wire::receivePacket(fd, buffer, received) != 0) {
        throw std::system_error(errno, std::generic_category(), "the virtual logger does not answer");
    }
}

} // namespace

struct LoggerClient::Granted
{
    wire::FileDescriptor connection;
    wire::FileDescriptor passed;
    std::vector<uint8_t> body;
};

LoggerClient::LoggerClient(const std::string& path) : socket(chosenSocket(path)) {}

LoggerClient::Granted LoggerClient::ask(wire::Kind kind, const std::string& text, const char* what) const
{
    Granted granted;
    try {
        granted.connection = vqhost::connectToLogger(socket);
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), "no virtual logger at " + socket);
    }
    const std::vector<uint8_t> request = wire::encodeRequest({.kind = kind, .text = text});
    if (wire::sendPacket(granted.connection.get(), request) != 0) {
        throw std::system_error(errno, std::generic_category(), "the virtual logger at " + socket + " has gone");
    }
    std::array<uint8_t, wire::REQUEST_MAX_BYTES> buffer;
    wire::ReceivedPacket received;
    receive(granted.connection.get(), buffer, received);
    auto reply = wire::decodeReply(std::span(buffer).first(received.sizeBytes));
    if (!reply || reply->errorNumber != 0) {
        throw std::system_error(reply ? reply->errorNumber : EPROTO, std::generic_category(),
                                "the virtual logger refuses " + std::string(what));
    }
    granted.passed = std::move(received.descriptor);
    granted.body = std::move(reply->body);
    return granted;
}

uint64_t LoggerClient::offsetUs() const
{
    try {
        return wire::decodeOffset(ask(wire::Kind::OFFSET, "fpgab", "the time of its device").body).value_or(0);
    } catch (const std::system_error& error) {
        if (error.code().value() == ENODATA) {
            return 0;
        }
        throw;
    }
}

wire::StageReport LoggerClient::statistics() const
{
    const Granted granted = ask(wire::Kind::STATISTICS, "", "its statistics");
    std::vector<uint8_t> packet(wire::STAGE_REPORT_MAX_BYTES);
    wire::ReceivedPacket received;
    receive(granted.connection.get(), packet, received);
    auto report = wire::decodeStageReport(std::span(packet).first(received.sizeBytes));
    if (!report) {
        throw std::system_error(EPROTO, std::generic_category(), "the statistics cannot be read");
    }
    return std::move(*report);
}

wire::FileDescriptor LoggerClient::openMonitor(const wire::ChannelSet& channels) const
{
    std::string text = wire::textOfChannels(channels);
    // A list that does not fit into a request is no help: everything comes then, and is filtered here.
    if (text.size() + wire::PACKET_HEADER_BYTES > wire::REQUEST_MAX_BYTES) {
        text.clear();
    }
    return std::move(ask(wire::Kind::MONITOR, text, "a monitor").passed);
}

wire::FileDescriptor LoggerClient::openInjection() const
{
    return std::move(ask(wire::Kind::INJECT, "", "to let others send").connection);
}

wire::FileDescriptor LoggerClient::openDevice(const std::string& path) const
{
    return std::move(ask(wire::Kind::OPEN_WRITE, path, path.c_str()).connection);
}

wire::Board LoggerClient::board() const
{
    return wire::decodeBoard(ask(wire::Kind::BOARD, "", "its board").body).value_or(wire::Board());
}

void LoggerClient::requireChannels(const wire::ChannelSet& channels) const
{
    if (channels.none()) {
        return;
    }
    const wire::Board present = board();
    for (size_t channel = 0; channel < channels.size(); ++channel) {
        if (!channels.test(channel)) {
            continue;
        }
        if (const auto missing = config::missingChannel(present, static_cast<uint8_t>(channel))) {
            throw WrongUsage(*missing);
        }
    }
}

} // namespace tool
