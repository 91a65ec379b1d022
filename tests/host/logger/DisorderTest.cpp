#include "LoggerTest.h"

#include <support/CapturedOutput.h>
#include <support/ProcessResources.h>
#include <support/Sanitizer.h>
#include <support/TemporaryDirectory.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <random>
#include <string>
#include <thread>
#include <vector>

using loggerclient::BusClient;
using loggerclient::frame;
using loggerclient::Reader;
using loggerclient::Writer;
using wire::Kind;

namespace {

constexpr std::array DEVICES{vlogger::board::MAIN_DEVICE, vlogger::board::EXTENSION_DEVICE};
constexpr std::array REQUESTS{Kind::OPEN_WRITE, Kind::OPEN_READ, Kind::BOARD,      Kind::OFFSET, Kind::BUS,
                              Kind::MONITOR,    Kind::INJECT,    Kind::STATISTICS, Kind::ADDRESS};

/// A client without manners: in any state it may send anything, read nothing, or go. It never waits for the logger
/// longer than for one answer.
class RudeClient
{
public:
    RudeClient(std::string socketPath, uint32_t seed) : path(std::move(socketPath)), random(seed) {}

    /// @return false if there is no logger
    bool doSomething()
    {
        wire::FileDescriptor connection = loggerclient::connectTo(path);
        if (!connection) {
            return false;
        }
        const size_t choice = random() % 8;
        if (choice == 0) {
            sendGarbage(connection.get());
        } else if (choice == 1) {
            askAndGo(connection.get());
        } else if (choice == 2) {
            write({connection.release(), device()});
        } else if (choice == 3) {
            read({connection.release(), device()});
        } else if (choice == 4) {
            talk({connection.release(), name()});
        } else {
            askAndSendWhatever(connection.get());
        }
        return true;
    }

private:
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random()) % limit; }
    std::string_view device() { return DEVICES[below(DEVICES.size())]; }
    std::string name() { return "process " + std::to_string(below(3)); }
    std::vector<uint8_t> noise() { return std::vector<uint8_t>(below(200), static_cast<uint8_t>(random())); }
    Kind kind() { return REQUESTS[below(REQUESTS.size())]; }

    std::string text()
    {
        const std::array<std::string, 5> texts{std::string(device()), name(), "0,1,2", "fpgab", ""};
        return texts[below(texts.size())];
    }

    void sendGarbage(int fd) { wire::sendPacket(fd, noise(), below(2) == 0 ? fd : -1, MSG_DONTWAIT); }

    /// Leaves the answer unread, sometimes.
    void askAndGo(int fd)
    {
        wire::sendPacket(fd, wire::encodeRequest({.kind = kind(), .text = text()}), -1, MSG_DONTWAIT);
        if (below(2) == 0) {
            loggerclient::awaitReply(fd);
        }
    }

    void askAndSendWhatever(int fd)
    {
        askAndGo(fd);
        for (uint32_t i = below(100); i > 0; --i) {
            const uint32_t what = below(10);
            if (what == 0) {
                sendGarbage(fd);
            } else if (what == 1) {
                wire::sendPacket(fd, wire::encodeFinish(), -1, MSG_DONTWAIT);
            } else {
                std::array<uint8_t, wire::CAN_RECORD_MAX_BYTES> bytes;
                const size_t size = wire::encode(frame(static_cast<uint8_t>(below(32)), i), bytes);
                wire::sendPacket(fd, std::span(bytes).first(size), -1, MSG_DONTWAIT);
            }
        }
    }

    void write(Writer to)
    {
        for (uint32_t i = below(300); i > 0 && to.error() == 0; --i) {
            if (below(20) == 0) {
                sendGarbage(to.get());
            } else if (!to.tryWrite(frame(static_cast<uint8_t>(below(32)), i)) && below(2) == 0) {
                return;
            }
        }
    }

    void read(Reader from)
    {
        for (uint32_t i = below(5); i > 0 && from.error() == 0; --i) {
            std::array<uint8_t, 500> bytes;
            static_cast<void>(::recv(from.get(), bytes.data(), below(500), MSG_DONTWAIT));
            static_cast<void>(::send(from.get(), "?", below(2), MSG_DONTWAIT | MSG_NOSIGNAL));
            std::this_thread::yield();
        }
    }

    void talk(BusClient with)
    {
        for (uint32_t i = below(50); i > 0 && with.error() == 0; --i) {
            const uint32_t what = below(4);
            if (what == 0) {
                std::vector<uint8_t> record;
                wire::encodeSystemRecord(wire::SYSTEM_RECORD_TYPE, 0, 19,
                                         "1 1 1 " + std::to_string(i) + " " + name(), record, 0);
                with.trySend(wire::TRACE_LOGGER_NAME, record);
            } else if (what == 1) {
                sendGarbage(with.get());
            } else {
                with.trySend(name(), BusClient::record(i, 14 + below(3000)));
            }
        }
    }

    const std::string path;
    std::mt19937 random;
};

class DisorderTest : public LoggerTest
{
protected:
    DisorderTest()
    {
        std::thread([] {}).join(); // some runtimes keep a thread of their own from the first one on
        descriptorsBefore = processresources::openDescriptors();
        sut =
            std::make_unique<vlogger::VirtualLogger>(vlogger::Options{.board = vlogger::board::WITH_EXTENSION,
                                                                      .socketPath = directory.path("socket"),
                                                                      .streamQueueBytes = 4096,
                                                                      .busQueueMessages = 20,
                                                                      .stallLimit = std::chrono::milliseconds(10)});
    }

    /// Lets `threads` clients do `steps` things each, while this thread does the same to the devices.
    void createDisorder(uint32_t threads, uint32_t steps)
    {
        std::atomic<uint32_t> busy = threads;
        std::vector<std::thread> clients;
        for (uint32_t i = 0; i < threads; ++i) {
            clients.emplace_back([&, i] {
                RudeClient client(directory.path("socket"), 20250101 + i);
                for (uint32_t step = 0; step < steps; ++step) {
                    EXPECT_TRUE(client.doSomething());
                }
                --busy;
            });
        }
        std::mt19937 random(7);
        while (busy > 0) {
            disturb(DEVICES[random() % DEVICES.size()], random() % 8);
        }
        for (std::thread& client : clients) {
            client.join();
        }
    }

    void disturb(std::string_view device, size_t how)
    {
        switch (how) {
        case 0:
            sut->vanish(device);
            break;
        case 1:
            sut->cutNextRecord(device);
            break;
        case 2:
            sut->malformNextRecord(device);
            break;
        case 3:
            sut->failWrites(device, EIO, 3);
            break;
        default:
            sut->setDeviceMissing(device, false);
        }
    }

    bool everybodyIsGone()
    {
        return waitUntil([&] {
            const vlogger::Statistics now = sut->statistics();
            return now.readers == 0 && now.writers == 0 && now.busClients == 0;
        });
    }

    CapturedOutput output; // whose descriptors are no leak
    TemporaryDirectory directory;
    size_t descriptorsBefore = 0;
};

TEST_F(DisorderTest, RudeClientsAndFailingDevicesLeaveALoggerThatServesAndNothingElse)
{
    createDisorder(4, THREAD_SANITIZER || ADDRESS_SANITIZER ? 200 : 1000);

    EXPECT_TRUE(everybodyIsGone());
    for (const std::string_view device : DEVICES) {
        sut->setDeviceMissing(device, false);
    }
    auto to = reader();
    auto from = writer();
    ASSERT_EQ(to.error(), 0);
    ASSERT_EQ(from.error(), 0);
    while (from.takeFault()) { // a fault that waited for the next opener
    }
    ASSERT_EQ(from.write(frame(0, 0x123)), 0);
    const auto received = to.next();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->id, 0x123U);

    to.close();
    from.close();
    sut.reset();
    EXPECT_EQ(processresources::openDescriptors(), descriptorsBefore);
}

TEST_F(DisorderTest, LoggerMayEndInTheMiddleOfIt)
{
    std::atomic<bool> stop = false;
    std::vector<std::thread> clients;
    for (uint32_t i = 0; i < 4; ++i) {
        clients.emplace_back([&, i] {
            RudeClient client(directory.path("socket"), i);
            while (!stop && client.doSomething()) {
            }
        });
    }
    ASSERT_TRUE(waitUntil([&] { return sut->statistics().framesIn > 1000; }));
    stop = true;
    sut.reset();
    for (std::thread& client : clients) {
        client.join();
    }
    EXPECT_EQ(processresources::openDescriptors(), descriptorsBefore);
}

} // namespace
