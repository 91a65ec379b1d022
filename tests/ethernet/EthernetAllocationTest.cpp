#include <EthernetInterface.h>

#include <AllocationCount.h>
#include <support/LoopbackSocket.h>
#include <support/RecordedLines.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using loopback::checked;

constexpr const char* CLIENT_IP = "127.0.0.1";
constexpr const char* STREAM_SERVER_IP = "127.0.0.1";
constexpr const char* DATAGRAM_SERVER_IP = "127.0.0.2";
constexpr size_t EXCHANGES = 200;

class CountingCallback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* /*data*/, size_t size) override { bytes += size; }
    void onInterfaceState(int /*status*/) override {}

    void await(size_t wanted) const
    {
        while (bytes < wanted) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<size_t> bytes{0};
};

/// The data path takes no memory.
class EthernetAllocationTest : public testing::Test
{
protected:
    ~EthernetAllocationTest() override { close(peer); }

    void connectTo(const char* ip, uint16_t port, bool stream)
    {
        sut.logLevel = 0;
        sut.callbacks.insert(&callback);
        ASSERT_EQ(sut.configure({"lo", ip, CLIENT_IP, "255.0.0.0", "", port, stream}), 1);
    }

    /// Bytes from the interface to the other end and others back.
    void exchange()
    {
        std::array<uint8_t, 1400> bytes = {};
        ASSERT_EQ(sut.send(bytes.data(), bytes.size()), 0);
        ASSERT_EQ(recv(peer, bytes.data(), bytes.size(), MSG_WAITALL), static_cast<ssize_t>(bytes.size()));
        ASSERT_EQ(::send(peer, bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        received += bytes.size();
        callback.await(received);
    }

    void expectExchangesWithoutAllocation()
    {
        exchange();
        const uint64_t before = bench::allocations();
        for (size_t count = 0; count < EXCHANGES; ++count) {
            exchange();
        }
        EXPECT_EQ(bench::allocations(), before);
    }

    RecordedLines lines;
    int peer = -1;
    size_t received = 0;
    CountingCallback callback;
    EthernetInterface sut;
};

TEST_F(EthernetAllocationTest, StreamSendsAndReceptionsAllocateNothing)
{
    const int listener = checked(socket(AF_INET, SOCK_STREAM, 0), "socket");
    ASSERT_TRUE(loopback::tryToBind(listener, STREAM_SERVER_IP, 0));
    checked(listen(listener, 1), "listen");
    connectTo(STREAM_SERVER_IP, loopback::portOf(listener), true);
    peer = checked(accept(listener, nullptr, nullptr), "accept");
    close(listener);
    expectExchangesWithoutAllocation();
}

TEST_F(EthernetAllocationTest, DatagramSendsAndReceptionsAllocateNothing)
{
    peer = checked(socket(AF_INET, SOCK_DGRAM, 0), "socket");
    ASSERT_TRUE(loopback::tryToBind(peer, DATAGRAM_SERVER_IP, 0));
    const uint16_t port = loopback::portOf(peer);
    const sockaddr_in client = loopback::addressOf(CLIENT_IP, port);
    checked(connect(peer, reinterpret_cast<const sockaddr*>(&client), sizeof client), "connect");
    connectTo(DATAGRAM_SERVER_IP, port, false);
    expectExchangesWithoutAllocation();
}

} // namespace
