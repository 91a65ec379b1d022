#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/PipeCalls.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <thread>

namespace {

size_t entriesOf(const char* directory)
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

/// 1 in the everyday run; the long run asks for more.
unsigned rounds()
{
    const char* const wanted = std::getenv("ISOTP_STRESS_ROUNDS");
    return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : 1;
}

/// A CAN bus with one bus thread, like that of the process bus: frames arrive in order, after their transmission.
/// With loss, silence on the bus makes the protocol's time pass, so that no peer waits for ever.
class BusThread
{
public:
    explicit BusThread(unsigned lossPerMille) : loss(lossPerMille), thread([this] { run(); })
    {
        FakeTransmitter::instance().records = false;
        FakeTransmitter::instance().onFrame = [this](const CANExtTraceMessage& frame) {
            const std::lock_guard lock(mutex);
            queue.push_back(frame);
            changed.notify_one();
            return 0;
        };
    }
    ~BusThread()
    {
        {
            const std::lock_guard lock(mutex);
            ending = true;
            changed.notify_one();
        }
        thread.join();
        FakeTransmitter::instance().onFrame = nullptr;
    }
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

private:
    void run()
    {
        std::mt19937 random(1);
        for (;;) {
            std::unique_lock lock(mutex);
            if (!changed.wait_for(lock, SILENCE, [this] { return ending || !queue.empty(); })) {
                if (loss != 0) {
                    PipeCalls::instance().expire();
                }
                continue;
            }
            if (queue.empty()) {
                return;
            }
            const CANExtTraceMessage frame = queue.front();
            queue.pop_front();
            lock.unlock();
            if (random() % 1000 >= loss) {
                FakeBus::instance().deliver(&frame);
            }
        }
    }

    static constexpr std::chrono::milliseconds SILENCE{1};

    const unsigned loss;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<CANExtTraceMessage> queue;
    bool ending = false;
    std::thread thread;
};

/// One end of a connection: counts what it accepted for sending, received and reported as errors.
class End : public CanIsoTpHandlerCallback
{
public:
    End(uint32_t rxId, uint32_t txId)
        : handler("TraceLogger", "Diagnostic", 0, rxId, CAN_STANDARD, txId, CAN_STANDARD)
    {
        handler.setCallback(*this);
        EXPECT_EQ(handler.start(), 0);
    }

    /// A message whose first four bytes number it within its sender, the fifth names the sender.
    void send(uint32_t number, uint8_t sender, size_t length)
    {
        Bytes payload(std::max<size_t>(length, 5), sender);
        for (size_t i = 0; i < 4; ++i) {
            payload[i] = static_cast<uint8_t>(number >> (8 * i));
        }
        if (handler.sendTxID(payload.data(), payload.size())) {
            ++accepted;
        }
    }

    void canIsoTpHandlerCb(const CANTransportTraceMessage* msg) override
    {
        ASSERT_GE(msg->data.size(), 5U);
        uint32_t number = 0;
        for (size_t i = 0; i < 4; ++i) {
            number |= uint32_t{msg->data[i]} << (8 * i);
        }
        const uint8_t sender = msg->data[4];
        for (size_t i = 5; i < msg->data.size(); ++i) {
            ASSERT_EQ(msg->data[i], sender);
        }
        const std::lock_guard lock(mutex);
        const auto [place, isFirst] = last.try_emplace(sender, number);
        ASSERT_TRUE(isFirst || place->second < number) << "out of order or twice";
        place->second = number;
        ++received;
        changed.notify_all();
    }

    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string&) override
    {
        if (type == STATUS_ERROR) {
            ++errors;
        }
    }

    bool waitForReceived(unsigned wanted)
    {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, std::chrono::seconds(60), [&] { return received >= wanted; });
    }

    std::atomic<unsigned> accepted{0};
    std::atomic<unsigned> received{0};
    std::atomic<unsigned> errors{0};
    Handler handler;

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::map<uint8_t, uint32_t> last;
};

struct Connection
{
    explicit Connection(uint32_t id) : left(id, id + 1), right(id + 1, id) {}
    End left;
    End right;
};

class CanIsoTpHandlerStressTest : public testing::Test
{
protected:
    static constexpr uint32_t CONNECTIONS = 6;
    static constexpr uint8_t SENDERS = 3;

    CanIsoTpHandlerStressTest()
    {
        PipeCalls::instance().ownTime();
        // The thread sanitizer starts a thread of its own with the first one: before anything is counted.
        std::thread([] {}).join();
    }

    static std::vector<std::unique_ptr<Connection>> connect()
    {
        std::vector<std::unique_ptr<Connection>> all;
        for (uint32_t i = 0; i < CONNECTIONS; ++i) {
            all.push_back(std::make_unique<Connection>(0x100 + 2 * i));
        }
        return all;
    }
};

TEST_F(CanIsoTpHandlerStressTest, NothingIsLostFromManySendersToManyReceivers)
{
    const size_t threadsBefore = entriesOf("/proc/self/task");
    const size_t descriptorsBefore = entriesOf("/proc/self/fd");
    {
        const unsigned perSender = 40 * rounds();
        BusThread bus(0);
        const auto connections = connect();
        std::vector<std::thread> threads;
        for (const auto& connection : connections) {
            for (uint8_t sender = 0; sender < SENDERS; ++sender) {
                threads.emplace_back([&connection, sender, perSender] {
                    std::mt19937 random(sender);
                    for (unsigned number = 0; number < perSender; ++number) {
                        // At most this many on their way: the control pipe must not run full.
                        constexpr unsigned WINDOW = 30;
                        const unsigned sent = connection->left.accepted;
                        ASSERT_TRUE(connection->right.waitForReceived(sent > WINDOW ? sent - WINDOW : 0));
                        connection->left.send(number, sender, random() % 200);
                    }
                });
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& connection : connections) {
            EXPECT_TRUE(connection->right.waitForReceived(SENDERS * perSender));
            EXPECT_EQ(connection->left.handler.stop(), 0);
            EXPECT_EQ(connection->right.handler.stop(), 0);
            EXPECT_EQ(connection->right.received, SENDERS * perSender);
            EXPECT_EQ(connection->left.errors + connection->right.errors, 0U);
        }
    }
    EXPECT_EQ(entriesOf("/proc/self/task"), threadsBefore);
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptorsBefore);
}

TEST_F(CanIsoTpHandlerStressTest, NothingIsLostWithoutAStatusAmongAbortsStopsAndLoss)
{
    CapturedOutput output; // error lines without number
    const size_t threadsBefore = entriesOf("/proc/self/task");
    const size_t descriptorsBefore = entriesOf("/proc/self/fd");
    unsigned received = 0;
    {
        BusThread bus(2);
        const auto connections = connect();
        std::vector<std::thread> threads;
        for (const auto& connection : connections) {
            for (End* const end : {&connection->left, &connection->right}) {
                for (uint8_t sender = 0; sender < SENDERS; ++sender) {
                    threads.emplace_back([end, sender] {
                        std::mt19937 random(sender);
                        for (unsigned number = 0; number < 100 * rounds(); ++number) {
                            end->send(number, sender, random() % 60);
                            if (random() % 20 == 0) {
                                end->handler.abortProcessing(Handler::ERR_OVERFLOW);
                            }
                        }
                    });
                }
                threads.emplace_back([end] {
                    for (unsigned i = 0; i < 5 * rounds(); ++i) {
                        EXPECT_EQ(end->handler.stop(), 0);
                        EXPECT_EQ(end->handler.start(), 0);
                    }
                });
            }
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        for (const auto& connection : connections) {
            EXPECT_EQ(connection->left.handler.stop(), 0);
            EXPECT_EQ(connection->right.handler.stop(), 0);
        }
        for (const auto& connection : connections) {
            const unsigned errors = connection->left.errors + connection->right.errors;
            EXPECT_GT(errors, 0U);
            EXPECT_TRUE(connection->left.handler.sendQueueEmpty());
            EXPECT_TRUE(connection->right.handler.sendQueueEmpty());
            EXPECT_LE(connection->left.received, connection->right.accepted);
            EXPECT_LE(connection->right.received, connection->left.accepted);
            received += connection->left.received + connection->right.received;
        }
    }
    EXPECT_GT(received, 0U);
    EXPECT_EQ(entriesOf("/proc/self/task"), threadsBefore);
    EXPECT_EQ(entriesOf("/proc/self/fd"), descriptorsBefore);
}

} // namespace
