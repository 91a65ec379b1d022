#pragma once

#include <support/Recorder.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <netinet/in.h>

using Bytes = std::vector<uint8_t>;

/// What a ScriptedServer does with its clients.
enum class Script
{
    ECHO,          ///< sends back what it receives
    SINK,          ///< receives and says nothing
    ACCEPT_CLOSE,  ///< TCP: closes each connection at once
    RESET,         ///< TCP: resets each connection as soon as it has received something
    STALL,         ///< TCP: accepts and never reads
    WRONG_PORT,    ///< UDP: answers from another port
    EMPTY_ANSWERS, ///< UDP: answers with an empty datagram
};

/// A TCP server on loopback that plays a script, in a thread of its own. Destroying it closes everything.
///
/// Beyond its construction it uses none of the calls that move data in the library, so a test can make those fail.
class ScriptedTcpServer
{
public:
    static constexpr const char* IP = "127.0.0.1";

    /// @param wantedPort  0: any free one. A server that died can come back on its old port
    explicit ScriptedTcpServer(Script playedScript, uint16_t wantedPort = 0);
    ~ScriptedTcpServer();
    ScriptedTcpServer(const ScriptedTcpServer&) = delete;
    ScriptedTcpServer& operator=(const ScriptedTcpServer&) = delete;

    uint16_t port() const { return listeningPort; }

    /// Sends to the latest client.
    void send(const Bytes& bytes);

    /// Closes the connection of the latest client: in good order, or by a reset. Returns before it is done.
    void closeClient();
    void resetClient();

    Recorder<int> accepted;   ///< one entry per connection: its number, from 1
    Recorder<Bytes> received; ///< what each read gave
    Recorder<int> closed;     ///< one entry per connection that a client has closed

    /// Waits until so many bytes have arrived in all.
    bool awaitBytes(size_t wanted) const;

private:
    void serve();
    void accept();
    bool serveClient(int fd);
    void closeLatestClient();

    enum class Ending
    {
        IN_ORDER,
        RESET,
    };

    const Script script;
    int listener = -1;
    int wakeUp = -1;
    std::atomic<bool> stopping{false};
    std::atomic<Ending> ending{Ending::IN_ORDER};
    uint16_t listeningPort = 0;
    std::mutex mutex;
    std::vector<int> clients;
    std::thread thread;
};

/// A port on loopback that refuses connections, and that nobody else gets.
class RefusingPort
{
public:
    RefusingPort();
    ~RefusingPort();
    RefusingPort(const RefusingPort&) = delete;
    RefusingPort& operator=(const RefusingPort&) = delete;

    uint16_t port() const { return boundPort; }

private:
    int fd = -1;
    uint16_t boundPort = 0;
};

/// A UDP server on 127.0.0.2 for a client on 127.0.0.1 with the same port number.
class ScriptedUdpServer
{
public:
    static constexpr const char* IP = "127.0.0.2";
    static constexpr const char* CLIENT_IP = "127.0.0.1";

    explicit ScriptedUdpServer(Script playedScript);
    ~ScriptedUdpServer();
    ScriptedUdpServer(const ScriptedUdpServer&) = delete;
    ScriptedUdpServer& operator=(const ScriptedUdpServer&) = delete;

    uint16_t port() const { return boundPort; }

    /// Sends a datagram to the client; an empty one for no bytes.
    void send(const Bytes& bytes) const;
    /// The same, but from another port of this server's address.
    void sendFromOtherPort(const Bytes& bytes) const;
    /// The same, but from another address with the server's port.
    void sendFromOtherAddress(const Bytes& bytes) const;

    uint16_t otherPort() const { return strangerPort; }

    Recorder<Bytes> received;

private:
    void serve();
    void sendThrough(int from, const Bytes& bytes) const;

    const Script script;
    int fd = -1;
    int otherPortFd = -1;
    int otherAddressFd = -1;
    int stop = -1;
    uint16_t boundPort = 0;
    uint16_t strangerPort = 0;
    std::thread thread;
};
