// Clients of a running virtual logger that send anything in any order. The input is a list of steps:
//
// | first byte, modulo 4 | what follows | step |
// |---|---|---|
// | 0 | | a further client connects; the next steps are its own |
// | 1 | length (1), bytes | it sends the bytes as one packet |
// | 2 | number (1) | it sends one of the requests below |
// | 3 | | it leaves |
//
// Afterwards every client has to find the end of its connection, and the logger nobody left.

#include <logger/VirtualLogger.h>
#include <wire/FileDescriptor.h>
#include <wire/PacketSocket.h>
#include <wire/Protocol.h>

#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <span>
#include <vector>

namespace {

constexpr size_t CLIENTS = 16;
constexpr int LIMIT_MS = 20000;

using wire::Kind;

const std::array<wire::Request, 10> REQUESTS{{
    {.kind = Kind::OPEN_WRITE, .text = "/dev/vqlog-fpgab"},
    {.kind = Kind::OPEN_READ, .text = "/dev/vqlog-fpgab"},
    {.kind = Kind::BUS, .text = "Diagnostic"},
    {.kind = Kind::BUS, .text = "a"},
    {.kind = Kind::INJECT, .text = ""},
    {.kind = Kind::MONITOR, .text = ""},
    {.kind = Kind::STATISTICS, .text = ""},
    {.kind = Kind::BOARD, .text = ""},
    {.kind = Kind::OFFSET, .text = "fpgab"},
    {.kind = Kind::OPEN_READ, .text = "/dev/vqlog-fpgac"},
}};

vlogger::VirtualLogger& logger()
{
    static vlogger::VirtualLogger* const instance = [] {
        std::cerr.rdbuf(nullptr); // complaints about the input would drown everything else
        return new vlogger::VirtualLogger(
            {.streamQueueBytes = 4096, .busQueueMessages = 16, .stallLimit = std::chrono::milliseconds(0)});
    }();
    return *instance;
}

/// Takes one byte off the front; 0 at the end.
uint8_t takeByte(std::span<const uint8_t>& input)
{
    if (input.empty()) {
        return 0;
    }
    const uint8_t byte = input.front();
    input = input.subspan(1);
    return byte;
}

/// Says that nothing follows, and waits until the logger has said the same.
void leave(const wire::FileDescriptor& client)
{
    ::shutdown(client.get(), SHUT_WR);
    std::vector<uint8_t> buffer(1 << 17);
    wire::ReceivedPacket received;
    do {
        pollfd state{.fd = client.get(), .events = POLLIN, .revents = 0};
        if (::poll(&state, 1, LIMIT_MS) <= 0) {
            std::abort(); // the logger hangs
        }
        received.sizeBytes = 0;
    } while (wire::receivePacket(client.get(), buffer, received) == 0 ? received.sizeBytes > 0
                                                                      : errno == ECONNRESET);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::span<const uint8_t> input(data, size);
    std::vector<wire::FileDescriptor> clients;
    while (!input.empty()) {
        const int step = takeByte(input) % 4;
        if (step == 0 || clients.empty()) {
            if (clients.size() == CLIENTS) {
                break;
            }
            clients.emplace_back(logger().connect());
        } else if (step == 1) {
            const size_t length = std::min<size_t>(takeByte(input), input.size());
            wire::sendPacket(clients.back().get(), input.first(length), -1, MSG_DONTWAIT);
            input = input.subspan(length);
        } else if (step == 2) {
            const wire::Request& request = REQUESTS[takeByte(input) % REQUESTS.size()];
            wire::sendPacket(clients.back().get(), wire::encodeRequest(request), -1, MSG_DONTWAIT);
        } else {
            leave(clients.back());
            clients.pop_back();
        }
    }
    for (const wire::FileDescriptor& client : clients) {
        leave(client);
    }
    clients.clear();
    vlogger::Statistics left = logger().statistics();
    for (int rounds = 0; left.readers + left.writers + left.busClients > 0; ++rounds) {
        if (rounds == 100000) {
            std::abort(); // somebody was not forgotten
        }
        left = logger().statistics();
    }
    return 0;
}
