#pragma once

#include <vqtrace/MessageBase.h>
#include <wire/BusProtocol.h>
#include <wire/FileDescriptor.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>

#include <gtest/gtest.h>
#include <support/Recorder.h>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

/// What arrived at the bus.
struct BusEvent
{
    std::string hello; ///< bus name of a new client; empty: a message
    std::string source;
    std::string destination;
    std::vector<uint8_t> record;

    bool operator==(const BusEvent&) const = default;
};

/// The other end of the process bus in the test's hand: takes clients, notes what they say, and says what the test
/// wants. Clients that come while it refuses get the given error.
class FakeBus
{
public:
    explicit FakeBus(std::string socketPath)
        : path(std::move(socketPath)), listener(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)),
          wake(eventfd(0, EFD_CLOEXEC))
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(listener.get(), 16), 0);
        server = std::thread([this] { serve(); });
    }

    /// The bus dies: all connections end, the socket stays behind.
    ~FakeBus()
    {
        eventfd_write(wake.get(), 1);
        server.join();
        unlink(path.c_str());
    }

    FakeBus(const FakeBus&) = delete;
    FakeBus& operator=(const FakeBus&) = delete;

    void deliver(const std::string& source, const std::string& destination, const MessageBase& message)
    {
        std::vector<uint8_t> record;
        std::vector<uint8_t> packet;
        message.createByteArray(record, true, false);
        ASSERT_TRUE(
            wire::appendBusMessage(packet, {.source = source, .destination = destination, .record = record}));
        sendPacket(packet);
    }

    void sendPacket(const std::vector<uint8_t>& packet)
    {
        const std::lock_guard lock(mutex);
        ASSERT_TRUE(client);
        ASSERT_EQ(wire::sendPacket(client.get(), packet), 0);
    }

    /// Ends the connection of the client; it may come again.
    void hangUp()
    {
        const std::lock_guard lock(mutex);
        shutdown(client.get(), SHUT_RDWR);
    }

    std::atomic<int> refusal{0}; ///< error number with which new clients are refused
    Recorder<BusEvent> events;

private:
    void serve()
    {
        while (true) {
            pollfd watched[3] = {{wake.get(), POLLIN, 0}, {listener.get(), POLLIN, 0}, {client.get(), POLLIN, 0}};
            poll(watched, 3, -1);
            if (watched[0].revents != 0) {
                return;
            }
            if (watched[1].revents != 0) {
                welcome(wire::FileDescriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC)));
            } else if (watched[2].revents != 0) {
                listenToClient();
            }
        }
    }

    void welcome(wire::FileDescriptor connection)
    {
        const std::vector<uint8_t> packet = receive(connection.get());
        const auto request = wire::decodeRequest(packet);
        if (!request || request->kind != wire::Kind::BUS) {
            return;
        }
        const std::vector<uint8_t> reply = wire::encodeReply({.errorNumber = refusal, .body = {}});
        if (refusal != 0) {
            wire::sendPacket(connection.get(), reply);
            return;
        }
        // Noted before the client can know, so that a test that waits for the client finds everything in place.
        events.add({.hello = request->text, .source = {}, .destination = {}, .record = {}});
        const std::lock_guard lock(mutex);
        client = std::move(connection);
        wire::sendPacket(client.get(), reply);
    }

    void listenToClient()
    {
        const std::vector<uint8_t> packet = receive(client.get());
        if (packet.empty()) {
            const std::lock_guard lock(mutex);
            client.reset();
            return;
        }
        const auto message = wire::decodeBusMessage(packet);
        if (message) {
            events.add({.hello = {},
                        .source = std::string(message->source),
                        .destination = std::string(message->destination),
                        .record = {message->record.begin(), message->record.end()}});
        }
    }

    static std::vector<uint8_t> receive(int fd)
    {
        std::vector<uint8_t> buffer(wire::BUS_PACKET_MAX_BYTES);
        wire::ReceivedPacket received;
        buffer.resize(wire::receivePacket(fd, buffer, received) == 0 ? received.sizeBytes : 0);
        return buffer;
    }

    const std::string path;
    wire::FileDescriptor listener;
    wire::FileDescriptor wake;
    std::mutex mutex; ///< guards `client` where the server thread changes it and the test uses it
    wire::FileDescriptor client;
    std::thread server;
};
