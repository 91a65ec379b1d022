#include <AllocationCount.h>
#include <BenchProcess.h>

#include <EthernetInterface.h>

#include <support/LoopbackSocket.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <ctime>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include <netinet/tcp.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

// Reception into callbacks beside a bare pselect and recv loop, and send() beside the bare system call, over
// loopback. What counts of a reception is the processor time of the thread that receives. Allocations are those of the
// whole process: with the sends the first line of the receive thread may be among them, once in a run.

namespace {

constexpr size_t RECEIVE_BUFFER_BYTES = 65535;
constexpr const char* CLIENT_IP = "127.0.0.1";
constexpr const char* STREAM_SERVER_IP = "127.0.0.1";
constexpr const char* DATAGRAM_SERVER_IP = "127.0.0.2";

using loopback::addressOf;
using loopback::checked;
using loopback::portOf;

int boundSocket(int type, const char* ip, uint16_t port)
{
    const int fd = checked(socket(AF_INET, type, 0), "socket");
    checked(loopback::tryToBind(fd, ip, port) ? 0 : -1, "bind");
    return fd;
}

/// Processor time of a thread, in seconds.
double processorTime(pthread_t thread)
{
    clockid_t clock = 0;
    pthread_getcpuclockid(thread, &clock);
    timespec time = {};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The other end: takes one client, sends to it, and can swallow what comes.
class Server
{
public:
    explicit Server(bool stream) : isStream(stream)
    {
        if (isStream) {
            listener = boundSocket(SOCK_STREAM, STREAM_SERVER_IP, 0);
            checked(listen(listener, 1), "listen");
            usedPort = portOf(listener);
        } else {
            peer = boundSocket(SOCK_DGRAM, DATAGRAM_SERVER_IP, 0);
            usedPort = portOf(peer);
            const sockaddr_in client = addressOf(CLIENT_IP, usedPort);
            checked(::connect(peer, reinterpret_cast<const sockaddr*>(&client), sizeof client), "connect");
        }
    }
    ~Server()
    {
        shutdown(peer, SHUT_RDWR);
        if (swallower.joinable()) {
            swallower.join();
        }
        close(peer);
        close(listener);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    uint16_t port() const { return usedPort; }

    void accept()
    {
        if (isStream) {
            peer = checked(::accept(listener, nullptr, nullptr), "accept");
            const int on = 1;
            setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        }
    }

    void send(const std::vector<uint8_t>& bytes) const
    {
        for (size_t done = 0; done < bytes.size();) {
            done += static_cast<size_t>(checked(
                static_cast<int>(::send(peer, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL)), "send"));
        }
    }

    void swallow()
    {
        swallower = std::thread([this, buffer = std::vector<uint8_t>(1 << 20)]() mutable {
            while (recv(peer, buffer.data(), buffer.size(), 0) > 0) {
            }
        });
    }

private:
    const bool isStream;
    int listener = -1;
    int peer = -1;
    uint16_t usedPort = 0;
    std::thread swallower;
};

/// Counts what a receiving thread got.
struct Tally
{
    void add(size_t size)
    {
        if (!isKnown) {
            thread = pthread_self();
            isKnown = true;
        }
        bytes.fetch_add(size, std::memory_order_release);
    }

    void await(size_t wanted) const
    {
        while (bytes.load(std::memory_order_acquire) < wanted) {
            std::this_thread::yield();
        }
    }

    std::atomic<size_t> bytes{0};
    std::atomic<bool> isKnown{false};
    pthread_t thread{};
};

class CountingCallback : public InterfaceBaseCb
{
public:
    void onDataReceived(const uint8_t* /*data*/, size_t size) override { tally.add(size); }
    void onInterfaceState(int /*status*/) override {}

    Tally tally;
};

/// The least that receives: a thread with the same wait, the same buffer and the same look at the source.
class BareReceiver
{
public:
    BareReceiver(bool stream, uint16_t port) : isStream(stream), server(addressOf(DATAGRAM_SERVER_IP, port))
    {
        if (isStream) {
            fd = checked(socket(AF_INET, SOCK_STREAM, 0), "socket");
            const sockaddr_in address = addressOf(STREAM_SERVER_IP, port);
            checked(::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect");
        } else {
            fd = boundSocket(SOCK_DGRAM, CLIENT_IP, port);
        }
        thread = std::thread([this] { receive(); });
    }
    ~BareReceiver()
    {
        over = true;
        shutdown(fd, SHUT_RDWR);
        thread.join();
        close(fd);
    }
    BareReceiver(const BareReceiver&) = delete;
    BareReceiver& operator=(const BareReceiver&) = delete;

    Tally tally;

private:
    void receive()
    {
        std::array<uint8_t, RECEIVE_BUFFER_BYTES> buffer;
        while (!over) {
            fd_set ready;
            FD_ZERO(&ready);
            FD_SET(fd, &ready);
            const timespec timeout = {0, 300'000'000};
            if (pselect(fd + 1, &ready, nullptr, nullptr, &timeout, nullptr) <= 0) {
                continue;
            }
            ssize_t size = 0;
            sockaddr_in source = {};
            socklen_t length = sizeof source;
            if (isStream) {
                size = recv(fd, buffer.data(), buffer.size(), 0);
            } else {
                size = recvfrom(fd, buffer.data(), buffer.size(), 0, reinterpret_cast<sockaddr*>(&source), &length);
            }
            if (size > 0 && (isStream || (source.sin_port == server.sin_port &&
                                          source.sin_addr.s_addr == server.sin_addr.s_addr))) {
                tally.add(static_cast<size_t>(size));
            }
        }
    }

    const bool isStream;
    const sockaddr_in server;
    int fd = -1;
    std::atomic<bool> over{false};
    std::thread thread;
};

EthernetInterface::Configuration configurationOf(bool stream, uint16_t port)
{
    return {"lo", stream ? STREAM_SERVER_IP : DATAGRAM_SERVER_IP, CLIENT_IP, "255.0.0.0", "", port, stream};
}

/// As many messages as the socket's buffer holds for certain, so that no datagram is lost.
size_t burstOf(size_t payloadBytes)
{
    return std::max<size_t>(1, std::min<size_t>(64, 100'000 / (payloadBytes + 1000)));
}

void reportAllocations(benchmark::State& state, uint64_t allocationsBefore, double records)
{
    state.counters["allocations_per_record"] =
        static_cast<double>(bench::allocations() - allocationsBefore) / records;
}

/// Lets the server send bursts and measures the receiving thread.
void measureReception(benchmark::State& state, const Server& server, const Tally& tally)
{
    const auto payloadBytes = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> payload(payloadBytes, 0x5A);
    const size_t burst = burstOf(payloadBytes);
    size_t sent = 0;
    const auto exchange = [&] {
        for (size_t message = 0; message < burst; ++message) {
            server.send(payload);
        }
        sent += burst * payloadBytes;
        tally.await(sent);
    };
    exchange(); // the thread is known from now on
    const uint64_t allocationsBefore = bench::allocations();
    double before = processorTime(tally.thread);
    for (auto _ : state) {
        exchange();
        const double now = processorTime(tally.thread);
        state.SetIterationTime(now - before);
        before = now;
    }
    const auto messages = static_cast<double>(static_cast<size_t>(state.iterations()) * burst);
    reportAllocations(state, allocationsBefore, messages);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(burst * payloadBytes));
    state.counters["per_record"] =
        benchmark::Counter(messages, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void receiveBare(benchmark::State& state, bool stream)
{
    Server server(stream);
    const BareReceiver receiver(stream, server.port());
    server.accept();
    measureReception(state, server, receiver.tally);
}

void receiveCallback(benchmark::State& state, bool stream)
{
    const bench::Silence silence;
    Server server(stream);
    CountingCallback callback;
    EthernetInterface interface;
    interface.callbacks.insert(&callback);
    if (interface.configure(configurationOf(stream, server.port())) != 1) {
        state.SkipWithError("no connection");
        return;
    }
    server.accept();
    measureReception(state, server, callback.tally);
    interface.disconnect();
}

void sendBare(benchmark::State& state, bool stream)
{
    const bench::SecondThread thread;
    Server server(stream);
    const int fd = stream ? checked(socket(AF_INET, SOCK_STREAM, 0), "socket")
                          : boundSocket(SOCK_DGRAM, CLIENT_IP, server.port());
    const sockaddr_in to = addressOf(stream ? STREAM_SERVER_IP : DATAGRAM_SERVER_IP, server.port());
    const auto* const target = reinterpret_cast<const sockaddr*>(&to);
    if (stream) {
        checked(::connect(fd, target, sizeof to), "connect");
        const int on = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }
    server.accept();
    server.swallow();
    const std::vector<uint8_t> payload(static_cast<size_t>(state.range(0)), 0x5A);
    for (auto _ : state) {
        benchmark::DoNotOptimize(stream ? ::send(fd, payload.data(), payload.size(), 0)
                                        : sendto(fd, payload.data(), payload.size(), 0, target, sizeof to));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
    close(fd);
}

void sendInterface(benchmark::State& state, bool stream)
{
    const bench::Silence silence;
    Server server(stream);
    EthernetInterface interface;
    if (interface.configure(configurationOf(stream, server.port())) != 1) {
        state.SkipWithError("no connection");
        return;
    }
    server.accept();
    server.swallow();
    const std::vector<uint8_t> payload(static_cast<size_t>(state.range(0)), 0x5A);
    const uint64_t allocationsBefore = bench::allocations();
    for (auto _ : state) {
        if (interface.send(payload.data(), payload.size()) != 0) {
            state.SkipWithError("send failed");
            break;
        }
    }
    reportAllocations(state, allocationsBefore, static_cast<double>(state.iterations()));
    state.SetBytesProcessed(state.iterations() * state.range(0));
    interface.disconnect();
}

void receiveTcpBare(benchmark::State& state)
{
    receiveBare(state, true);
}
void receiveTcp(benchmark::State& state)
{
    receiveCallback(state, true);
}
void receiveUdpBare(benchmark::State& state)
{
    receiveBare(state, false);
}
void receiveUdp(benchmark::State& state)
{
    receiveCallback(state, false);
}
void sendTcpBare(benchmark::State& state)
{
    sendBare(state, true);
}
void sendTcp(benchmark::State& state)
{
    sendInterface(state, true);
}
/// What most servers and clients do with the signal; the interface then needs no guard around a send.
void sendTcpSignalIgnored(benchmark::State& state)
{
    std::signal(SIGPIPE, SIG_IGN);
    sendInterface(state, true);
    std::signal(SIGPIPE, SIG_DFL);
}
void sendUdpBare(benchmark::State& state)
{
    sendBare(state, false);
}
void sendUdp(benchmark::State& state)
{
    sendInterface(state, false);
}

void bytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgName("bytes")->Arg(64)->Arg(1400)->Arg(65000);
}

BENCHMARK(receiveTcpBare)->Apply(bytes)->UseManualTime();
BENCHMARK(receiveTcp)->Apply(bytes)->UseManualTime();
BENCHMARK(receiveUdpBare)->Apply(bytes)->UseManualTime();
BENCHMARK(receiveUdp)->Apply(bytes)->UseManualTime();
BENCHMARK(sendTcpBare)->Apply(bytes);
BENCHMARK(sendTcp)->Apply(bytes);
BENCHMARK(sendTcpSignalIgnored)->Apply(bytes);
BENCHMARK(sendUdpBare)->Apply(bytes);
BENCHMARK(sendUdp)->Apply(bytes);

} // namespace

BENCHMARK_MAIN();
