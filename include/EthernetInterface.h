#pragma once

#include <BusInterfacesExport.h>
#include <InterfaceBase.h>

#include <vqtrace/MessageBase.h>
#include <vqutil/Mutex.h>
#include <vqutil/Thread.h>
#include <vqutil/ThreadSafety.h>

#include <netinet/in.h>
#include <sys/select.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace ethernet {
class OpenSocket;
}

/// A client of one server over TCP or UDP, for applications that exchange raw bytes over the logger's Ethernet.
///
/// ```cpp
/// MyCallback callback;                              // implements InterfaceBaseCb
/// EthernetInterface ethernet;
/// ethernet.callbacks.insert(&callback);
/// ethernet.configure({"eth1", "10.0.0.1", "10.0.0.2", "255.255.255.0", "10.0.0.254", 5000, true});
/// ethernet.send(bytes, sizeBytes);                  // answers arrive in callback.onDataReceived
/// ```
///
/// States and what leads from one to the next:
///
/// | state         | how it shows                     | left by |
/// |---------------|----------------------------------|---------|
/// | unconfigured  | connect() and send() fail        | configure() |
/// | conflicted    | configure() returned -2          | configure(), if the address is granted this time |
/// | connected     | status 1 was raised              | disconnect(), or ten empty receptions in a row |
/// | disconnected  | status 2 was raised, or configure() returned 0 | connect() or send(), which both try again |
///
/// The interface never reconnects by itself: the next send() does. A TCP server that closes its end leaves the
/// interface connected for about ten more seconds, in which every second one empty reception is logged; then the
/// receive thread closes the socket, raises status 2 and ends. A UDP server cannot be lost; an empty datagram from
/// anybody counts as an empty reception, though, and so can end the thread in the same way. Only received bytes start
/// the count anew: a disconnect() and connect() meanwhile do not.
///
/// Statuses raised in InterfaceBaseCb::onInterfaceState: 1 connected (on the thread that connected), 2 disconnected
/// (on the thread that closed the socket), 3 data lost in send() (on the sending thread), 5 a new bus-load figure
/// (on the receive thread). One thread raises its statuses in the order of what it did; those of several threads may
/// overtake each other, so that a 1 can arrive after the 2 that ended its connection. Received bytes come in
/// onDataReceived on the receive thread: over TCP whatever one read gave, over UDP one datagram from the server's
/// address and port; others are dropped with a warning. They are valid during the call only.
///
/// Diagnostic lines go to standard output and carry "ETH[" server address ":" port "]" where others have a class
/// name. `logLevel` chooses how many. The inherited `debugLevel` is not used.
///
/// *Broken pipes.* Writing to a TCP server that has closed would end a process in which SIGPIPE has its default
/// action. At each connect the interface notes whether it has; if so, each TCP send blocks the signal for the
/// calling thread during the call and takes away the one that the call raised. Applications that ignore or handle
/// SIGPIPE pay nothing for this and, if they handle it, see it. No setting of the process is changed.
///
/// The application owns the interface and its callback objects. The interface owns its socket, its receive thread
/// and, through the platform, the address that configure() has put on the network interface.
///
/// Threads: send(), connect(), disconnect() and getLastBusLoad() may be called from any thread, also from
/// callbacks, and several at once. configure() and the destructor belong to one thread of the application and must
/// not run while another one, or a callback, connects or sends. `callbacks` is not locked: change it while no event
/// can arrive. A callback may remove itself while it is called, as long as no other thread makes callbacks at that
/// moment. A callback must not destroy the interface. Do not call connect() or send() with a lock held for which a
/// callback waits: connecting may have to wait until an ended receive thread has made its last callback.
class BUSINTERFACES_API EthernetInterface : public InterfaceBase<MessageBase>, private Thread
{
public:
    /// Whom to talk to, and from where.
    struct Configuration
    {
        std::string interfaceName; ///< network interface of the logger that carries `loggerIp`, for example eth1
        std::string serverIp;      ///< dotted IPv4 address of the server
        std::string loggerIp;      ///< dotted IPv4 address that the logger takes; UDP sockets are bound to it
        std::string subnet;        ///< dotted subnet mask of `loggerIp`
        std::string gatewayIp;     ///< dotted IPv4 address of the gateway
        uint16_t port = 0;         ///< port of the server, and for UDP the local port as well
        bool useTcp = false;       ///< true: a TCP stream; false: UDP datagrams
    };

    /// An unconfigured interface. Opens and starts nothing.
    EthernetInterface();
    EthernetInterface(const EthernetInterface&) = delete;
    EthernetInterface& operator=(const EthernetInterface&) = delete;

    /// Stops the receive thread and waits for it, disconnects (status 2, if connected), and hands the address of
    /// the last configure() back to the platform. Addresses of earlier calls of configure() stay.
    ///
    /// Waits up to 300 ms for the receive thread, up to 1.3 s while the server is being lost, and for a callback that
    /// is running. One that is inside a send() or connect() which the server keeps waiting holds the destructor up as
    /// long: for a send(), call disconnect() first. Callbacks are made until it returns; in them connect() and send()
    /// fail as in an interface that is not configured. Must not run in a callback.
    ~EthernetInterface() override;

    /// Takes over a configuration, has the platform put `loggerIp` on `interfaceName`, and connects.
    ///
    /// @param configuration  copied; texts that are not dotted addresses are the platform's to refuse
    /// @return 1 configured and connected;
    ///         0 configured but not connected: send() tries again;
    ///        -1 refused because the interface is connected, nothing has changed;
    ///        -2 the platform refused the address: connect() and send() fail until a configure() succeeds
    ///
    /// Blocks as long as the platform takes for the address, and then like connect().
    int configure(const Configuration& configuration);

    /// Connects to the configured server and raises status 1. Starts the receive thread if none is running.
    ///
    /// @return true if connected now, or already before (then without a callback); false if the interface is not
    ///         configured, its address is in conflict, or a system call failed (logged)
    ///
    /// TCP: blocks until the server has answered or the system's time-out has passed. A failed attempt leaves the
    /// interface disconnected; if a socket had been opened, status 2 is raised.
    /// UDP: nothing is sent. If `loggerIp` and `port` cannot be bound, the result is false, but the socket stays
    /// open: without status 1 the interface counts as connected. The next connect() says so, and send() uses the
    /// socket, from whatever address and port the system chooses then; disconnect() and connect() try to bind
    /// again. Meanwhile nothing is received if no receive thread is running yet.
    /// If the receive thread cannot be created the result is true all the same; the next connect() that opens a
    /// socket starts it.
    ///
    /// Threads: any, also callbacks. Of two that connect at once, one finds the interface connected; over TCP it may
    /// have opened a second connection by then, which it closes at once, and which the server sees. A callback may
    /// connect this interface or another one; it makes the callbacks of that connection before it returns to its own.
    /// Two interfaces whose callbacks connect each other must not wait for one another: connecting joins a receive
    /// thread that has ended, and so waits for the last callback of that interface.
    bool connect();

    /// Closes the socket and raises status 2. The receive thread goes on waiting for the next socket.
    ///
    /// @return true if the socket was closed, or none was open (then without a callback); false if the system
    ///         reported an error on closing it (logged, no callback). The interface is disconnected in each case
    ///
    /// A send() in another thread that the server keeps waiting ends with -3. Data that arrived but was not yet
    /// delivered is lost.
    ///
    /// Threads: any, also callbacks. Waits for no callback.
    bool disconnect();

    /// Sends bytes with one system call; connects first if the interface is disconnected.
    ///
    /// @param data  the bytes, not used after the call; may be null when `size` is 0
    /// @param size  at most 65535. A UDP datagram over IPv4 carries no more than 65507: more gives -3
    /// @return 0 if the system took every byte;
    ///        -1 not connected and the attempt to connect failed;
    ///        -2 more than 65535 bytes, nothing sent (but connected first, if need be);
    ///        -3 the system took less or failed: status 3 was raised. The rest is not sent again, and the interface
    ///           stays connected
    ///
    /// Threads: any, also callbacks; concurrent calls are not put in order. Blocks as long as the socket's buffer
    /// is full.
    int send(const uint8_t* data, size_t size) override;

    /// Serialises a message into its own `byteArray`, in place of what that held, and sends the result through the
    /// virtual send() for bytes.
    /// @return as above; -2 if the serialised message is longer than 65535 bytes
    int send(MessageBase& msg) override;

    /// The body of the receive thread; connect() starts it. Not for applications.
    void threadCode() override;

    /// Counts one reception and closes the bus-load interval if it is older than 999 999 us. For the receive
    /// thread.
    void calcBitRate();

    /// The bus-load figure: how often the receive thread was woken by the socket during the last closed interval of
    /// at least one second, be it by data, by an error or by the end of the stream. Time-outs and dropped datagrams
    /// do not count. It is a number of events, not of bits, and is renewed (status 5) by the first event after the
    /// second has passed: without traffic it keeps its value for ever. 0 before the first event.
    /// Threads: any. Never waits for long.
    uint64_t getLastBusLoad();

private:
    /// A receive thread that reconnected in its last callback, and so could not be joined there.
    struct endedThread_t
    {
        pthread_t handle;
        bool finished; ///< it makes no callback any more
    };

    // The order of these members, up to busLoadMutex, is part of the binary interface.
    Configuration config VQ_GUARDED_BY(stateMutex);
    std::atomic<bool> configured{false};
    std::atomic<bool> ipConflict{false};
    std::atomic<bool> rxThreadRunning{false}; ///< cleared only with stateMutex held, see endAfterLoss()
    std::atomic<int> socketFd{-1};            ///< descriptor of openSocket, or -1
    fd_set readSet VQ_GUARDED_BY(stateMutex);
    sockaddr_in serverAddr VQ_GUARDED_BY(stateMutex) = {};
    sockaddr_in receiverAddr = {}; ///< receive thread only

public:
    /// How much is logged besides errors, warnings and changes of state. 0: nothing more; 1: addresses and steps;
    /// 2: every transfer with its bytes; 3: also each wait without traffic. May be changed at any time.
    std::atomic<uint32_t> logLevel{1};

private:
    std::atomic<uint64_t> sentCount{0};
    std::atomic<uint64_t> receivedCount{0};
    uint64_t busLoadCount = 0;         ///< receive thread only
    uint64_t busLoadIntervalStart = 0; ///< receive thread only
    uint64_t lastBusLoad VQ_GUARDED_BY(busLoadMutex) = 0;
    Mutex busLoadMutex;

    // Private additions come last. stateMutex is held for a few instructions at a time, never across a callback, a
    // log line, a wait for the network or a join.
    mutable Mutex stateMutex;
    std::shared_ptr<ethernet::OpenSocket> openSocket VQ_GUARDED_BY(stateMutex);
    unsigned changesInProgress VQ_GUARDED_BY(stateMutex) = 0; ///< sockets being closed, or bound
    std::condition_variable_any changeEnded;
    std::vector<endedThread_t> endedThreads VQ_GUARDED_BY(stateMutex); ///< set aside, still to be joined
    bool rxThreadFinished VQ_GUARDED_BY(stateMutex) = false;           ///< the thread behind threadHandle is done
    bool destroying VQ_GUARDED_BY(stateMutex) = false;                 ///< no receive thread is started any more

    Configuration currentConfiguration() const;
    std::string origin() const;

    bool beginOpening(const Configuration& target);
    int openTowards(const Configuration& target);
    bool openStream(const Configuration& target);
    bool openDatagrams(const Configuration& target);
    int bindHere(int fd, const Configuration& target);
    [[nodiscard]] bool publish(int fd, bool isStream, const sockaddr_in& server);
    bool giveWay(int fd);
    void becomeConnected(int fd);
    void endChange();
    std::shared_ptr<ethernet::OpenSocket> takeSocket();
    std::shared_ptr<ethernet::OpenSocket> takeSocketLocked() VQ_REQUIRES_LOCK(stateMutex);
    bool closeTaken(const std::shared_ptr<ethernet::OpenSocket>& taken);
    bool closeDescriptor(int fd, bool isChange = false);

    void startReceiveThread();
    std::vector<pthread_t> takeEndedThreads() VQ_REQUIRES_LOCK(stateMutex);
    void joinEndedThreads();
    void joinAllThreads();
    bool endIfDisconnected();
    bool endAfterLoss(const ethernet::OpenSocket& lost, std::shared_ptr<ethernet::OpenSocket>& taken);
    void markFinished();

    std::shared_ptr<ethernet::OpenSocket> currentSocket() const;
    int transmit(const uint8_t* data, size_t size);
    std::shared_ptr<ethernet::OpenSocket> receiveUntilEnd();
    void deliver(const uint8_t* data, size_t size);

    void reportState(int status);
};

/// Writes all fields in their order, without a line end, for example: interfaceName=eth1; serverIp=10.0.0.1;
/// loggerIp=10.0.0.2; subnet=255.255.255.0; gatewayIp=10.0.0.254; port=5000; useTcp=1. The port is always decimal,
/// `useTcp` follows the stream's std::boolalpha.
BUSINTERFACES_API std::ostream& operator<<(std::ostream& stream,
                                           const EthernetInterface::Configuration& configuration);
