#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/PipeCalls.h>
#include <support/ProcessResources.h>
#include <support/Waiting.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <utility>

namespace {

/// 1 in the everyday run; the long run asks for more.
unsigned factor()
{
    const char* const wanted = std::getenv("ISOTP_STRESS_ROUNDS");
    return wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : 1;
}

constexpr unsigned MESSAGES_PER_SENDER = 10;
constexpr unsigned MESSAGES_PER_ROUND = 100; ///< room in the numbering
constexpr uint8_t SENDERS = 3;
constexpr uint32_t DISTURBED_IDS = 0x200; ///< the bus loses frames of this identifier and above

/// Neither end can know of a single frame that is lost. Without its first frame, what follows a message that was
/// aborted may complete that one: both would look like a loss in silence. The loss of the flow control leaves the
/// sender of a first frame where its own loss would.
bool mayBeLost(const CANExtTraceMessage& frame)
{
    constexpr uint8_t FIRST_FRAME = 1; // below: single frame
    return frame.canId >= DISTURBED_IDS && frame.data[0] >> 4 > FIRST_FRAME;
}

/// A CAN bus with one bus thread, like that of the process bus: frames arrive in order, after their transmission.
class BusThread
{
public:
    BusThread() : thread([this] { run(); })
    {
        FakeTransmitter::instance().records = false;
        FakeTransmitter::instance().onFrame = [this](const CANExtTraceMessage& frame) {
            const std::lock_guard lock(mutex);
            queue.push_back(frame);
            changed.notify_all();
            return 0;
        };
    }
    ~BusThread()
    {
        {
            const std::lock_guard lock(mutex);
            ending = true;
            changed.notify_all();
        }
        thread.join();
        FakeTransmitter::instance().onFrame = nullptr;
    }
    BusThread(const BusThread&) = delete;
    BusThread& operator=(const BusThread&) = delete;

    /// Returns when no frame is on its way.
    void drain()
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return queue.empty() && !delivering; });
    }

private:
    void run()
    {
        constexpr unsigned LOST_PER_MILLE = 2;
        std::mt19937 random(1);
        for (;;) {
            std::unique_lock lock(mutex);
            delivering = false;
            changed.notify_all();
            changed.wait(lock, [this] { return ending || !queue.empty(); });
            if (queue.empty()) {
                return;
            }
            const CANExtTraceMessage frame = queue.front();
            queue.pop_front();
            delivering = true;
            lock.unlock();
            if (!mayBeLost(frame) || random() % 1000 >= LOST_PER_MILLE) {
                FakeBus::instance().deliver(&frame);
            }
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::deque<CANExtTraceMessage> queue;
    bool delivering = false;
    bool ending = false;
    std::thread thread;
};

/// What is known of the messages of one direction that have not arrived.
class MissingMessages
{
public:
    using Name = std::pair<uint8_t, uint32_t>; ///< sender and number

    /// @param errorsBefore  errors of the connection so far
    void add(const Name& name, unsigned errorsBefore)
    {
        const std::lock_guard lock(mutex);
        missing.emplace(name, errorsBefore);
    }
    /// @return false if the message was not missing
    bool remove(const Name& name)
    {
        const std::lock_guard lock(mutex);
        return missing.erase(name) == 1;
    }
    bool empty() const
    {
        const std::lock_guard lock(mutex);
        return missing.empty();
    }
    /// True if the connection has seen an error after the acceptance of each of them.
    bool areAllExplained(unsigned errors) const
    {
        const std::lock_guard lock(mutex);
        return std::all_of(missing.begin(), missing.end(),
                           [errors](const auto& message) { return message.second < errors; });
    }

private:
    mutable std::mutex mutex;
    std::map<Name, unsigned> missing;
};

/// What the ends of a connection share.
struct Record
{
    std::atomic<unsigned> errors{0}; ///< that either end has reported
    MissingMessages toLeft;
    MissingMessages toRight;
};

/// One end of a connection: records what it accepts for sending, receives and reports as errors.
class End : public CanIsoTpHandlerCallback
{
public:
    End(uint32_t rxId, uint32_t txId, std::atomic<unsigned>& connectionErrors, MissingMessages& toThis,
        MissingMessages& toPeer)
        : handler("TraceLogger", "Diagnostic", 0, rxId, CAN_STANDARD, txId, CAN_STANDARD), errors(connectionErrors),
          incoming(toThis), outgoing(toPeer)
    {
        handler.setCallback(*this);
        EXPECT_EQ(handler.start(), 0);
    }

    /// A message whose first four bytes number it within its sender, the fifth names the sender.
    void send(unsigned round, unsigned index, uint8_t sender, size_t length)
    {
        Bytes payload(std::max<size_t>(length, 5), sender);
        const uint32_t number = round * MESSAGES_PER_ROUND + index;
        for (size_t i = 0; i < 4; ++i) {
            payload[i] = static_cast<uint8_t>(number >> (8 * i));
        }
        outgoing.add({sender, number}, errors); // before it is sent: it may arrive before the call returns
        EXPECT_TRUE(handler.sendTxID(payload.data(), payload.size()));
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
        // The callback lock of the handler serialises these calls.
        const auto [place, isFirst] = last.try_emplace(sender, number);
        ASSERT_TRUE(isFirst || place->second < number) << "out of order or twice";
        place->second = number;
        ASSERT_TRUE(incoming.remove({sender, number})) << "never sent";
        ++events;
    }

    void canIsoTpHandlerStatusCb(StatusCBType_t type, int, const std::string&) override
    {
        if (type == STATUS_ERROR) {
            ++errors;
        }
        ++events;
    }

    /// True if nothing is being sent or received and nothing is queued.
    bool isIdle() { return handler.sendQueueEmpty() && expectationOf(handler) == Handler::EXPECT_SF_OR_FF; }

    std::atomic<unsigned> events{0};
    Handler handler;

private:
    std::atomic<unsigned>& errors;
    MissingMessages& incoming;
    MissingMessages& outgoing;
    std::map<uint8_t, uint32_t> last;
};

struct Connection
{
    explicit Connection(uint32_t id)
        : left(id, id + 1, record.errors, record.toLeft, record.toRight),
          right(id + 1, id, record.errors, record.toRight, record.toLeft)
    {
    }

    /// True if both ends are at rest and no message is missing without an error since it was accepted.
    bool isSettled()
    {
        const unsigned errors = record.errors;
        return left.isIdle() && right.isIdle() && record.toLeft.areAllExplained(errors) &&
               record.toRight.areAllExplained(errors);
    }

    Record record;
    End left;
    End right;
};

class Watcher : public CanIsoTpHandlerCallback
{
    void canIsoTpHandlerCb(const CANTransportTraceMessage*) override {}
    void canIsoTpHandlerStatusCb(StatusCBType_t, int, const std::string&) override {}
};

/// Stops and starts a worker, adds and removes a callback, while the handler is in use.
void stopAndStart(End& end, unsigned times)
{
    Watcher watcher;
    for (unsigned i = 0; i < times; ++i) {
        EXPECT_EQ(end.handler.stop(), 0);
        EXPECT_TRUE(end.handler.setCallback(watcher));
        EXPECT_EQ(end.handler.start(), 0);
        EXPECT_EQ(end.handler.removeCallback(watcher), 1);
    }
}

/// Several senders at one end, each with its messages of one round, the first of them of this size.
std::vector<std::thread> startSenders(End& end, unsigned round, size_t firstLength,
                                      const std::function<void(unsigned)>& afterEach)
{
    std::vector<std::thread> threads;
    for (uint8_t sender = 0; sender < SENDERS; ++sender) {
        threads.emplace_back([&end, round, sender, firstLength, afterEach] {
            std::mt19937 random(sender + round * SENDERS);
            for (unsigned index = 0; index < MESSAGES_PER_SENDER; ++index) {
                end.send(round, index, sender, index == 0 ? firstLength : random() % 120);
                afterEach(static_cast<unsigned>(random()));
            }
        });
    }
    return threads;
}

void join(std::vector<std::thread>& threads)
{
    for (std::thread& thread : threads) {
        thread.join();
    }
    threads.clear();
}

/// Lets time pass for the handlers of connections that are stuck, since the test owns the waits of the workers: a
/// second is over for an end that has had nothing to report since the last look.
class Clockwork
{
public:
    explicit Clockwork(std::vector<End*> allEnds) : ends(std::move(allEnds)), thread([this] { run(); }) {}
    ~Clockwork()
    {
        ending = true;
        thread.join();
    }
    Clockwork(const Clockwork&) = delete;
    Clockwork& operator=(const Clockwork&) = delete;

private:
    void run()
    {
        std::map<End*, unsigned> seen;
        while (!ending) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            for (End* const end : ends) {
                const unsigned events = end->events;
                if (std::exchange(seen[end], events) == events) {
                    end->handler.handleTimeout();
                }
            }
        }
    }

    const std::vector<End*> ends;
    std::atomic<bool> ending{false};
    std::thread thread;
};

/// One way and undisturbed: everything arrives, round for round.
void sendOneWay(Connection& connection, unsigned rounds)
{
    for (unsigned round = 0; round < rounds; ++round) {
        std::vector<std::thread> threads =
            startSenders(connection.left, round, round % 5 == 0 ? 4095 : 5, [](unsigned) {});
        threads.emplace_back([&] { stopAndStart(connection.left, 3); });
        threads.emplace_back([&] { stopAndStart(connection.right, 3); });
        join(threads);
        EXPECT_TRUE(becomesTrue([&] { return connection.record.toRight.empty(); }));
    }
}

void abortSometimes(End& end, unsigned chance)
{
    if (chance % 60 == 0) {
        end.handler.abortProcessing(Handler::ERR_OVERFLOW);
    }
}

/// Both ways, among aborts: every message that is missing after a round comes with an error status of its own time.
void sendBothWays(Connection& connection, unsigned rounds)
{
    for (unsigned round = 0; round < rounds; ++round) {
        std::vector<std::thread> threads;
        for (End* const end : {&connection.left, &connection.right}) {
            for (std::thread& sender :
                 startSenders(*end, round, 300, [end](unsigned chance) { abortSometimes(*end, chance); })) {
                threads.push_back(std::move(sender));
            }
            threads.emplace_back([end] { stopAndStart(*end, 3); });
        }
        join(threads);
        EXPECT_TRUE(becomesTrue([&] { return connection.isSettled(); })) << "round " << round;
    }
}

/// Drives every connection from a thread of its own.
void driveAll(const std::vector<std::unique_ptr<Connection>>& connections, unsigned rounds,
              void (*drive)(Connection&, unsigned))
{
    std::vector<std::thread> drivers;
    drivers.reserve(connections.size());
    for (const auto& connection : connections) {
        drivers.emplace_back(drive, std::ref(*connection), rounds);
    }
    join(drivers);
}

/// Every end of the connections.
std::vector<End*> endsOf(const std::vector<std::unique_ptr<Connection>>& connections)
{
    std::vector<End*> ends;
    for (const auto& connection : connections) {
        ends.insert(ends.end(), {&connection->left, &connection->right});
    }
    return ends;
}

class CanIsoTpHandlerStressTest : public testing::Test
{
protected:
    static constexpr uint32_t CONNECTIONS = 5;

    CanIsoTpHandlerStressTest()
    {
        FakeTransmitter::instance().reset();
        PipeCalls::instance().reset();
        PipeCalls::instance().ownTime();
        // The thread sanitizer starts a thread of its own with the first one: before anything is counted.
        std::thread([] {}).join();
        threadsBefore = processresources::threads();
        descriptorsBefore = processresources::openDescriptors();
    }

    ~CanIsoTpHandlerStressTest() override
    {
        // A thread that was joined may stay listed for a moment.
        EXPECT_TRUE(becomesTrue([this] { return processresources::threads() == threadsBefore; }));
        EXPECT_EQ(processresources::openDescriptors(), descriptorsBefore);
    }

    static std::vector<std::unique_ptr<Connection>> connect(uint32_t firstId)
    {
        std::vector<std::unique_ptr<Connection>> all;
        for (uint32_t i = 0; i < CONNECTIONS; ++i) {
            all.push_back(std::make_unique<Connection>(firstId + 2 * i));
        }
        return all;
    }

    static void expectStopped(End& end)
    {
        EXPECT_EQ(end.handler.stop(), 0);
        EXPECT_TRUE(end.handler.sendQueueEmpty());
    }

private:
    size_t threadsBefore = 0;
    size_t descriptorsBefore = 0;
};

TEST_F(CanIsoTpHandlerStressTest, NothingIsLostOneWayWhileWorkersAreStoppedAndStarted)
{
    const unsigned rounds = 20 * factor();
    BusThread bus;
    const auto connections = connect(0x100);
    driveAll(connections, rounds, &sendOneWay);
    for (End* const end : endsOf(connections)) {
        expectStopped(*end);
    }
    for (const auto& connection : connections) {
        EXPECT_TRUE(connection->record.toRight.empty());
        EXPECT_EQ(connection->record.errors, 0U);
    }
}

TEST_F(CanIsoTpHandlerStressTest, NothingIsLostWithoutAStatusAmongAbortsStopsAndLoss)
{
    CapturedOutput output; // error lines without number
    const unsigned rounds = 20 * factor();
    BusThread bus;
    const auto connections = connect(DISTURBED_IDS);
    {
        const Clockwork clockwork(endsOf(connections));
        driveAll(connections, rounds, &sendBothWays);
        for (End* const end : endsOf(connections)) {
            expectStopped(*end);
        }
    }
    // Whatever happened: every connection works.
    bus.drain();
    for (const auto& connection : connections) {
        connection->left.handler.abortProcessing(Handler::ERR_NONE);
        connection->right.handler.abortProcessing(Handler::ERR_NONE);
        EXPECT_EQ(connection->left.handler.start(), 0);
        const unsigned errors = connection->record.errors;
        connection->left.send(rounds, 0, 0, 5);
        EXPECT_TRUE(becomesTrue([&] { return connection->isSettled(); }));
        EXPECT_EQ(connection->record.errors, errors);
        expectStopped(connection->left);
    }
}

} // namespace
