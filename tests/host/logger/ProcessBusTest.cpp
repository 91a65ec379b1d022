#include "LoggerTest.h"

#include <support/CapturedOutput.h>

#include <cerrno>
#include <string>
#include <thread>

using loggerclient::BusClient;
using loggerclient::frame;

namespace board = vlogger::board;

namespace {

class ProcessBusTest : public LoggerTest
{
protected:
    BusClient client(std::string_view name) { return {sut->connect(), name}; }

    /// True once the logger has taken this many messages off the bus.
    bool waitForMessages(uint64_t count)
    {
        return waitUntil([&] { return sut->statistics().busMessagesIn >= count; });
    }

    /// True if nothing more comes after everything that was sent has been served.
    bool staysQuiet(const BusClient& to)
    {
        sut->statistics();
        sut->statistics();
        return to.isQuiet();
    }

    /// Takes messages numbered first, first + 1, ... before `end`.
    static void expectNumbers(BusClient& from, uint32_t first, uint32_t end)
    {
        for (uint32_t i = first; i < end; ++i) {
            const auto event = from.next();
            ASSERT_TRUE(event);
            ASSERT_EQ(BusClient::numberOf(*event), i);
        }
    }

    /// Sends numbered messages until the logger takes none any more.
    /// @return number of messages sent
    uint32_t sendUntilHeld(BusClient& from, std::string_view destination, size_t sizeBytes = 32)
    {
        uint32_t sent = 0;
        uint64_t taken = 0;
        for (int roundsWithoutChange = 0; roundsWithoutChange < 3;) {
            while (from.trySend(destination, BusClient::record(sent, sizeBytes))) {
                ++sent;
                roundsWithoutChange = 0;
            }
            const uint64_t now = sut->statistics().busMessagesIn;
            roundsWithoutChange = now == taken ? roundsWithoutChange + 1 : 0;
            taken = now;
        }
        return sent;
    }

    static constexpr std::chrono::milliseconds LIMIT{1000};
};

/// A process "ecu" that takes nothing, and a sender that its full queue holds back.
class HeldSenderTest : public ProcessBusTest
{
protected:
    BusClient clientOfASmallQueue()
    {
        start({.busQueueMessages = 100, .stallLimit = LIMIT});
        return client("ecu");
    }

    /// The process has taken nothing for so long that what was sent to it comes through or is dropped.
    void stall()
    {
        clock->advance(LIMIT);
        ASSERT_TRUE(waitForMessages(sent));
    }

    BusClient to = clientOfASmallQueue();
    BusClient from = client("tester");
    uint32_t sent = sendUntilHeld(from, "ecu");
    uint32_t kept = static_cast<uint32_t>(sut->statistics().busMessagesQueued); ///< by the queue, before any stall
};

TEST_F(ProcessBusTest, NamesOfOneTo255BytesAreTaken)
{
    start();
    EXPECT_EQ(client("a").error(), 0);
    EXPECT_EQ(client(std::string(255, 'n')).error(), 0);
    EXPECT_EQ(client("").error(), EINVAL);
    EXPECT_EQ(client(std::string(256, 'n')).error(), EINVAL);
    EXPECT_EQ(client(std::string_view("a\0b", 3)).error(), EINVAL);
}

TEST_F(ProcessBusTest, TheNameOfTheLoggerItselfIsTaken)
{
    start();
    EXPECT_EQ(client("TraceLogger").error(), EADDRINUSE);
}

TEST_F(ProcessBusTest, AMessageReachesTheNamedProcessAsItWasSent)
{
    start();
    auto to = client("ecu");
    auto other = client("other");
    auto from = client("tester");
    const auto record = BusClient::record(7, 100);
    ASSERT_EQ(from.send("ecu", record), 0);
    const auto event = to.next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->source, "tester") << "what the sender says of itself does not count";
    EXPECT_EQ(event->destination, "ecu");
    EXPECT_EQ(event->record, record);
    EXPECT_TRUE(staysQuiet(other));
    EXPECT_TRUE(staysQuiet(from));
}

TEST_F(ProcessBusTest, EveryConnectionOfANameGetsTheMessage)
{
    start();
    auto first = client("ecu");
    auto second = client("ecu");
    auto from = client("tester");
    ASSERT_EQ(from.send("ecu", BusClient::record(1)), 0);
    EXPECT_TRUE(first.next());
    EXPECT_TRUE(second.next());
}

TEST_F(ProcessBusTest, AProcessReachesItsOwnName)
{
    start();
    auto self = client("ecu");
    ASSERT_EQ(self.send("ecu", BusClient::record(1)), 0);
    EXPECT_TRUE(self.next());
}

TEST_F(ProcessBusTest, AMessageToNobodyIsLostInSilence)
{
    CapturedOutput output;
    start();
    auto from = client("tester");
    ASSERT_EQ(from.send("nobody", BusClient::record(1)), 0);
    EXPECT_TRUE(waitForMessages(1));
    EXPECT_EQ(sut->statistics().busMessagesQueued, 0U);
    EXPECT_EQ(output.err(), "");
}

TEST_F(ProcessBusTest, TheLongestRecordTravels)
{
    start();
    auto to = client(std::string(255, 't'));
    auto from = client(std::string(255, 'f'));
    const auto record = BusClient::record(1, wire::RECORD_MAX_BYTES);
    for (int i = 0; i < 20; ++i) {
        ASSERT_EQ(from.send(std::string(255, 't'), record), 0);
        const auto event = to.next();
        ASSERT_TRUE(event);
        EXPECT_EQ(event->source, std::string(255, 'f'));
        EXPECT_EQ(event->record, record);
    }
}

TEST_F(ProcessBusTest, OrderHoldsOverManyMessages)
{
    start();
    auto to = client("ecu");
    auto from = client("tester");
    constexpr uint32_t MESSAGES = 20000;
    std::thread sender([&] {
        for (uint32_t i = 0; i < MESSAGES; ++i) {
            ASSERT_EQ(from.send("ecu", BusClient::record(i)), 0);
        }
    });
    expectNumbers(to, 0, MESSAGES);
    sender.join();
    EXPECT_EQ(sut->statistics().busMessagesDropped, 0U);
}

TEST_F(ProcessBusTest, PacketsThatAreNoMessageAreCountedAndIgnored)
{
    start();
    auto to = client("ecu");
    auto from = client("tester");
    std::vector<uint8_t> good;
    ASSERT_TRUE(wire::appendBusMessage(good, {.source = "", .destination = "ecu", .record = BusClient::record(1)}));
    std::vector<std::vector<uint8_t>> bad{
        {0}, {'V', 'Q', 1, 0x20}, wire::encodeBusDropped(3), wire::encodeFault(5)};
    bad.push_back(good);
    bad.back()[2] = 2; // another version
    bad.push_back(good);
    bad.back().push_back(0); // behind the record
    bad.push_back(good);
    bad.back().pop_back();
    bad.push_back(std::vector<uint8_t>(wire::BUS_PACKET_MAX_BYTES + 1, 0x20));
    for (const auto& packet : bad) {
        ASSERT_EQ(wire::sendPacket(from.get(), packet), 0);
    }
    ASSERT_EQ(wire::sendPacket(from.get(), good), 0);
    EXPECT_TRUE(to.next());
    EXPECT_EQ(sut->statistics().busMessagesMalformed, bad.size());
}

TEST_F(ProcessBusTest, MessagesOfAProcessThatEndsAtOnceAllArrive)
{
    start();
    auto to = client("ecu");
    {
        auto from = client("tester");
        ASSERT_EQ(to.send("tester", BusClient::record(99)), 0); // it never reads this
        ASSERT_TRUE(waitForMessages(1));
        ASSERT_TRUE(waitUntil([&] { return !from.isQuiet(); }));
        for (uint32_t i = 0; i < 50; ++i) {
            ASSERT_EQ(from.send("ecu", BusClient::record(i)), 0);
        }
    }
    expectNumbers(to, 0, 50);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().busClients == 1; }));
}

TEST_F(HeldSenderTest, AFullQueueHoldsTheSenderBackAndNothingIsLost)
{
    EXPECT_LT(sut->statistics().busMessagesIn, sent);
    expectNumbers(to, 0, sent);
    EXPECT_EQ(sut->statistics().busMessagesDropped, 0U);
}

TEST_F(ProcessBusTest, AQueueIsFullByItsBytesToo)
{
    start({.busQueueBytes = 1U << 20, .stallLimit = LIMIT});
    auto to = client("ecu");
    auto from = client("tester");
    const uint32_t sent = sendUntilHeld(from, "ecu", 65535);
    EXPECT_LT(sut->statistics().busMessagesIn, 40U) << "a mebibyte, and what the system holds";
    for (uint32_t i = 0; i < sent; ++i) {
        ASSERT_TRUE(to.next());
    }
}

TEST_F(HeldSenderTest, AStalledProcessLosesItsNewestMessagesAndIsTold)
{
    CapturedOutput output;
    stall();
    EXPECT_EQ(sut->statistics().busMessagesDropped, sent - kept);
    expectNumbers(to, 0, kept);
    EXPECT_EQ(to.next()->dropped, sent - kept);
    EXPECT_TRUE(staysQuiet(to));
    EXPECT_EQ(output.err(),
              "[WARNING] VirtualLogger: the process \"ecu\" has taken nothing from the process bus for "
              "1000 ms: the newest messages for it are dropped until it reads again; return from its "
              "callbacks sooner, or end the process\n");
}

TEST_F(HeldSenderTest, TheLossIsToldWhereTheMessagesAreMissing)
{
    CapturedOutput output;
    stall();
    // Room for one message: what comes now is queued behind the gap.
    expectNumbers(to, 0, kept - 50);
    clock->advance(LIMIT);
    ASSERT_EQ(from.send("ecu", BusClient::record(sent)), 0);
    ASSERT_TRUE(waitForMessages(sent + 1));
    expectNumbers(to, kept - 50, kept);
    EXPECT_EQ(to.next()->dropped, sent - kept);
    EXPECT_EQ(BusClient::numberOf(*to.next()), sent);
}

TEST_F(ProcessBusTest, TwoProcessesThatFloodEachOtherComeFree)
{
    CapturedOutput output;
    start({.busQueueMessages = 100, .stallLimit = LIMIT});
    auto first = client("first");
    auto second = client("second");
    sendUntilHeld(first, "second");
    uint32_t sent = 0;
    while (second.trySend("first", BusClient::record(sent))) {
        ++sent;
    }
    clock->advance(LIMIT);
    EXPECT_TRUE(waitUntil([&] { return first.trySend("second", BusClient::record(0)); }));
    EXPECT_TRUE(waitUntil([&] {
        clock->advance(LIMIT);
        return second.trySend("first", BusClient::record(0));
    }));
}

TEST_F(HeldSenderTest, AHeldProcessThatEndsStillGetsEverythingThrough)
{
    from.close();
    sut->statistics();
    expectNumbers(to, 0, sent);
    EXPECT_TRUE(waitUntil([&] { return sut->statistics().busClients == 1; }));
}

TEST_F(HeldSenderTest, AStalledProcessThatEndsLetsItsSendersGo)
{
    to.close();
    EXPECT_TRUE(waitForMessages(sent));
}

TEST_F(HeldSenderTest, TheEndOfTheLoggerIsTheEndOfTheConnection)
{
    sut.reset();
    EXPECT_TRUE(loggerclient::reachesEnd(to.get()));
    EXPECT_NE(from.send("ecu", BusClient::record(1)), 0);
}

} // namespace
