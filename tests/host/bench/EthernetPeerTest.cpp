#include <bench/EthernetPeer.h>

#include <logger/SteadyClock.h>
#include <support/LoggerClient.h>
#include <support/LoopbackSocket.h>
#include <support/ProcessResources.h>
#include <support/Waiting.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <thread>

namespace vlogger {

namespace {

constexpr const char* IP = "127.0.0.1";

/// A peer on a free port, and clients that connect to it by hand.
class EthernetPeerTest : public testing::Test
{
protected:
    explicit EthernetPeerTest(config::Transport usedTransport = config::Transport::TCP) : transport(usedTransport)
    {
    }
    ~EthernetPeerTest() override
    {
        loop.stop();
        if (thread.joinable()) {
            thread.join();
        }
    }

    void serve(config::Behaviour behaviour = config::Behaviour::ECHO)
    {
        for (int attempt = 1; !sut; ++attempt) {
            const wire::FileDescriptor probe(socketOf());
            loopback::checked(loopback::tryToBind(probe.get(), IP, 0) ? 0 : -1, "bind");
            settings = {.name = "server",
                        .transport = transport,
                        .address = "127.0.0.2",
                        .port = loopback::portOf(probe.get()),
                        .behaviour = behaviour};
            try {
                sut = std::make_unique<EthernetPeer>(loop, settings);
            } catch (const std::system_error&) {
                ASSERT_LT(attempt, 100) << "not only somebody else who had the port";
            }
        }
        thread = std::thread([this] { loop.run(); });
    }

    wire::FileDescriptor client() const
    {
        wire::FileDescriptor fd(socketOf());
        const sockaddr_in address = loopback::addressOf("127.0.0.2", settings.port);
        loopback::checked(::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                          "connect");
        return fd;
    }

    static void send(const wire::FileDescriptor& fd, const std::string& text)
    {
        ASSERT_EQ(::send(fd.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }

    /// What arrives until it is as long as wanted.
    static std::string receive(const wire::FileDescriptor& fd, size_t bytes)
    {
        std::string text;
        std::array<char, 4096> buffer;
        while (text.size() < bytes && loggerclient::waitFor(fd.get(), POLLIN) != 0) {
            const ssize_t count = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
            if (count <= 0) {
                break;
            }
            text.append(buffer.data(), static_cast<size_t>(count));
        }
        return text;
    }

    int socketOf() const
    {
        return loopback::checked(
            ::socket(AF_INET, (transport == config::Transport::TCP ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0),
            "socket");
    }

    const config::Transport transport;
    EpollLoop loop{std::make_shared<SteadyClock>()};
    config::Peer settings;
    std::unique_ptr<EthernetPeer> sut;
    std::thread thread;
};

class DatagramPeerTest : public EthernetPeerTest
{
protected:
    DatagramPeerTest() : EthernetPeerTest(config::Transport::UDP) {}
};

} // namespace

TEST_F(EthernetPeerTest, EveryClientGetsItsOwnEcho)
{
    serve();
    const wire::FileDescriptor one = client();
    const wire::FileDescriptor other = client();
    send(one, "one");
    send(other, "other");
    EXPECT_EQ(receive(one, 3), "one");
    EXPECT_EQ(receive(other, 5), "other");
}

TEST_F(EthernetPeerTest, PortThatIsTakenIsNamed)
{
    serve();
    try {
        const EthernetPeer second(loop, settings);
        FAIL() << "two servers have one port";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code().value(), EADDRINUSE);
        EXPECT_EQ(std::string(error.what()).rfind("peer server cannot listen at 127.0.0.2:", 0), 0U)
            << error.what();
    }
}

TEST_F(EthernetPeerTest, ClientsThatHaveGoneLeaveNoDescriptor)
{
    serve();
    const size_t before = processresources::openDescriptors();
    for (int i = 0; i < 50; ++i) {
        const wire::FileDescriptor fd = client();
        send(fd, "x");
        EXPECT_EQ(receive(fd, 1), "x");
    }
    EXPECT_TRUE(becomesTrue([&] { return processresources::openDescriptors() == before; }));
}

TEST_F(EthernetPeerTest, ClientThatClosesItsHalfIsClosedByThePeer)
{
    serve();
    const wire::FileDescriptor fd = client();
    send(fd, "last words");
    EXPECT_EQ(receive(fd, 10), "last words");
    ::shutdown(fd.get(), SHUT_WR);
    EXPECT_TRUE(loggerclient::reachesEnd(fd.get()));
}

TEST_F(EthernetPeerTest, ClientThatTakesNoEchoIsNotReadWithoutLimit)
{
    serve();
    const wire::FileDescriptor fd = client();
    const std::string block(65536, 'x');
    size_t taken = 0;
    // What the peer and the system keep on both ways is far below this.
    constexpr size_t FAR = size_t{256} << 20;
    while (taken < FAR && loggerclient::waitFor(fd.get(), POLLOUT, 500) != 0) {
        const ssize_t count = ::send(fd.get(), block.data(), block.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        taken += count > 0 ? static_cast<size_t>(count) : 0;
    }
    EXPECT_LT(taken, FAR);
    EXPECT_EQ(receive(fd, taken).size(), taken) << "what was taken comes back once it is read";
}

TEST_F(EthernetPeerTest, SilentOneReadsWhatItWasSentOnceItTalksAgain)
{
    serve();
    loop.call([&] { sut->setSilent(true); });
    const wire::FileDescriptor fd = client();
    send(fd, "kept");
    loop.call([&] { sut->setSilent(false); });
    EXPECT_EQ(receive(fd, 4), "kept");
}

TEST_F(EthernetPeerTest, OneThatIsSilentByConfigurationStaysSoWhenAFaultIsOver)
{
    serve(config::Behaviour::SILENT);
    const wire::FileDescriptor fd = client();
    send(fd, "kept");
    loop.call([&] { sut->setSilent(true); });
    loop.call([&] { sut->setSilent(false); });
    loop.call([] {}); // a round in which an echo would have been sent
    EXPECT_EQ(loggerclient::waitFor(fd.get(), POLLIN, 0), 0);
}

TEST_F(DatagramPeerTest, EveryDatagramIsEchoedWhole)
{
    serve();
    const wire::FileDescriptor fd = client();
    for (const std::string& text : {std::string("a"), std::string(1400, 'b'), std::string(9000, 'c')}) {
        send(fd, text);
        std::string buffer(65536, '\0');
        ASSERT_NE(loggerclient::waitFor(fd.get(), POLLIN), 0);
        const ssize_t count = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
        ASSERT_GE(count, 0);
        EXPECT_EQ(buffer.substr(0, static_cast<size_t>(count)), text);
    }
}

TEST_F(DatagramPeerTest, DatagramsOfASilentTimeAreNotAnsweredLater)
{
    serve();
    const wire::FileDescriptor fd = client();
    loop.call([&] { sut->setSilent(true); });
    send(fd, "lost");
    // Rounds of the loop; the datagram was there before the first of them.
    loop.call([] {});
    loop.call([] {});
    loop.call([&] { sut->setSilent(false); });
    send(fd, "heard");
    EXPECT_EQ(receive(fd, 5), "heard");
}

} // namespace vlogger
