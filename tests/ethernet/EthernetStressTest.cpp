#include <EthernetInterface.h>

#include <support/FailingCalls.h>
#include <support/ProcessResources.h>
#include <support/RecordedLines.h>
#include <support/ScriptedServer.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <system_error>
#include <thread>

namespace {

// The short form runs with all tests, the long one with the label stress; the build names the suite.
constexpr int ROUNDS = STRESS_ROUNDS;
constexpr int STEPS_PER_ROUND = 60;
constexpr unsigned SEED = 20;

/// Sends, disconnects and connects from within callbacks, on whatever thread makes them.
class MeddlingCallback : public InterfaceBaseCb
{
public:
    /// A payload of this one byte is noticed.
    static constexpr uint8_t MARK = 0xA5;

    /// From now on it does nothing but listen; returns when what it was doing is over.
    void beQuiet()
    {
        isQuiet = true;
        while (meddlers != 0) {
            std::this_thread::yield();
        }
    }
    void beBusy() { isQuiet = false; }

    void onDataReceived(const uint8_t* data, size_t size) override
    {
        ++receptions;
        if (size == 1 && data[0] == MARK) {
            isMarkSeen = true;
        }
        const Meddling meddling(*this);
        if (!meddling.allowed) {
            return;
        }
        EthernetInterface* const interface = target;
        switch (++calls % 7) {
        case 0:
            interface->disconnect();
            break;
        case 3:
            interface->send(data, size % 100);
            break;
        default:
            break;
        }
    }

    void onInterfaceState(int status) override
    {
        const Meddling meddling(*this);
        // Not at each status 2: a connection that fails raises it again.
        if (meddling.allowed && status == 2 && ++calls % 5 == 0) {
            EthernetInterface* const interface = target;
            interface->connect();
        }
    }

    std::atomic<EthernetInterface*> target{nullptr};
    std::atomic<size_t> calls{0};
    std::atomic<size_t> receptions{0};
    std::atomic<bool> isMarkSeen{false};

private:
    struct Meddling
    {
        explicit Meddling(MeddlingCallback& meddler) : callback(meddler)
        {
            ++callback.meddlers;
            allowed = !callback.isQuiet;
        }
        ~Meddling() { --callback.meddlers; }
        Meddling(const Meddling&) = delete;
        Meddling& operator=(const Meddling&) = delete;

        MeddlingCallback& callback;
        bool allowed = false;
    };

    std::atomic<bool> isQuiet{false};
    std::atomic<unsigned> meddlers{0};
};

/// Whatever happened before: one receive thread serves a new connection to a server that answers.
void expectOneThreadServes(EthernetInterface& sut, MeddlingCallback& callback, size_t threadsBefore)
{
    callback.beQuiet();
    sut.disconnect();
    ASSERT_TRUE(sut.connect());
    const auto end = std::chrono::steady_clock::now() + Recorder<int>::LIMIT;
    // More than once: datagrams that are still on their way may leave no room for this one.
    while (!callback.isMarkSeen && std::chrono::steady_clock::now() < end) {
        ASSERT_EQ(sut.send(&MeddlingCallback::MARK, 1), 0);
        std::this_thread::yield();
    }
    EXPECT_TRUE(callback.isMarkSeen);
    EXPECT_EQ(processresources::settledThreads(threadsBefore + 1), threadsBefore + 1);
    callback.beBusy();
}

/// One life of an interface: threads of the application do what any thread may, in random order.
/// @param serverAnswers  every connection is answered for certain; the receive thread then works when it all begins
///                       and when it is over
void liveOneRound(const EthernetInterface::Configuration& configuration, bool serverAnswers, std::mt19937& random,
                  size_t& receptions)
{
    const size_t threads = processresources::threads();
    MeddlingCallback callback;
    EthernetInterface sut;
    sut.logLevel = random() % 4;
    callback.target = &sut;
    sut.callbacks.insert(&callback);
    sut.configure(configuration);
    if (serverAnswers) {
        const uint8_t byte = 0x5A;
        ASSERT_EQ(sut.send(&byte, 1), 0);
        while (callback.receptions == 0) {
            std::this_thread::yield();
        }
    }

    const auto work = [&](unsigned seed) {
        std::mt19937 choice(seed);
        const Bytes bytes(1500, 0x5A);
        for (int step = 0; step < STEPS_PER_ROUND; ++step) {
            switch (choice() % 10) {
            case 0:
                sut.disconnect();
                break;
            case 1:
            case 2:
                sut.connect();
                break;
            case 3:
                sut.getLastBusLoad();
                break;
            default:
                sut.send(bytes.data(), choice() % bytes.size());
                break;
            }
        }
    };
    std::thread one(work, static_cast<unsigned>(random()));
    std::thread two(work, static_cast<unsigned>(random()));
    one.join();
    two.join();
    if (serverAnswers) {
        expectOneThreadServes(sut, callback, threads);
    }
    if (random() % 2 == 0) {
        // Texts of other lengths, while the receive thread lives and prints them.
        EthernetInterface::Configuration other = configuration;
        other.interfaceName = std::string(random() % 40, 'n');
        other.loggerIp = random() % 2 == 0 ? configuration.loggerIp : "0.0.0.0";
        other.subnet = std::string(random() % 40, '0');
        other.serverIp =
            random() % 2 == 0 ? configuration.serverIp : "127.000.000.00" + configuration.serverIp.substr(8);
        sut.logLevel = 3;
        sut.disconnect();
        sut.configure(other);
        work(static_cast<unsigned>(random()));
    }
    receptions += callback.receptions;
    // The callback goes on meddling while the destructor waits for the receive thread.
}

class STRESS_SUITE : public testing::Test
{
protected:
    STRESS_SUITE() { failing::skipPauses(); }

    RecordedLines lines;
    std::mt19937 random{SEED};
    size_t receptions = 0;
};

TEST_F(STRESS_SUITE, StreamWithAServerThatDiesAndReturnsLeavesNothingBehind)
{
    uint16_t port = 0;
    {
        const ScriptedTcpServer steady(Script::ECHO);
        port = steady.port();
        liveOneRound({"eth1", ScriptedTcpServer::IP, "127.0.0.1", "", "", port, true}, true, random, receptions);
    }
    const size_t threads = processresources::threads();
    const size_t descriptors = processresources::openDescriptors();
    std::atomic<bool> over{false};
    std::atomic<size_t> lives{0};
    std::thread god([&] {
        std::mt19937 choice(SEED);
        while (!over) {
            const Script scripts[] = {Script::ECHO, Script::ECHO, Script::SINK, Script::ACCEPT_CLOSE,
                                      Script::RESET};
            try {
                ScriptedTcpServer server(scripts[choice() % 5], port);
                ++lives;
                const int wanted = static_cast<int>(choice() % 8) + 1;
                // It lives until so many clients have come, or until everything is over.
                while (!over && static_cast<int>(server.accepted.count()) < wanted) {
                    std::this_thread::yield();
                }
            } catch (const std::system_error&) {
                std::this_thread::yield(); // a client has the port at the moment
            }
        }
    });
    for (int round = 0; round < ROUNDS; ++round) {
        liveOneRound({"eth1", ScriptedTcpServer::IP, "127.0.0.1", "", "", port, true}, false, random, receptions);
        lines.take();
    }
    over = true;
    god.join();
    {
        const ScriptedTcpServer steady(Script::ECHO, port);
        liveOneRound({"eth1", ScriptedTcpServer::IP, "127.0.0.1", "", "", port, true}, true, random, receptions);
    }
    EXPECT_GT(lives, 1u);
    EXPECT_GT(receptions, 0u);
    EXPECT_EQ(processresources::settledThreads(threads), threads);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
}

TEST_F(STRESS_SUITE, DatagramsWithAServerThatAnswersAndSendsEmptyOnesLeaveNothingBehind)
{
    {
        const ScriptedUdpServer first(Script::ECHO);
    } // with the first thread a sanitizer may start one of its own
    const size_t threads = processresources::threads();
    const size_t descriptors = processresources::openDescriptors();
    for (int round = 0; round < ROUNDS; ++round) {
        const bool answers = round % 3 != 0;
        const ScriptedUdpServer server(answers ? Script::ECHO : Script::EMPTY_ANSWERS);
        liveOneRound({"eth1", ScriptedUdpServer::IP, ScriptedUdpServer::CLIENT_IP, "", "", server.port(), false},
                     answers, random, receptions);
        lines.take();
    }
    EXPECT_GT(receptions, 0u);
    EXPECT_EQ(processresources::settledThreads(threads), threads);
    EXPECT_EQ(processresources::settledDescriptors(descriptors), descriptors);
}

} // namespace
