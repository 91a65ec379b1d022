#include "LoggerTest.h"

#include <support/CapturedOutput.h>

#include <string>
#include <thread>

using loggerclient::BusClient;
using loggerclient::frame;

namespace board = vlogger::board;

namespace {

class TraceLoggerPeerTest : public LoggerTest
{
protected:
    BusClient client(std::string_view name) { return {sut->connect(), name}; }

    /// Registers, and waits until that is done.
    void registerFor(BusClient& process, std::string_view text)
    {
        const uint64_t before = sut->statistics().busMessagesIn;
        ASSERT_EQ(process.registerFor(text), 0);
        ASSERT_TRUE(waitUntil([&] { return sut->statistics().busMessagesIn > before; }));
    }

    bool staysQuiet(const BusClient& to)
    {
        sut->statistics();
        sut->statistics();
        return to.isQuiet();
    }

    /// What is written on standard error for a message to the logger.
    std::string lineFor(std::string_view text, uint16_t command = 19)
    {
        CapturedOutput output;
        auto process = client("diag");
        EXPECT_EQ(process.command(command, text), 0);
        ++messages;
        EXPECT_TRUE(waitUntil([&] { return sut->statistics().busMessagesIn >= messages; }));
        return output.err();
    }

    uint64_t messages = 0;
};

TEST_F(TraceLoggerPeerTest, ARegisteredFrameThatTheChannelReceivesComesWhole)
{
    start();
    clock->advance(std::chrono::microseconds(77));
    auto process = client("diag");
    auto from = writer();
    registerFor(process, "1 3 1 2024 diag");
    ASSERT_EQ(from.write(frame(2, 2024, {0x02, 0x3E, 0x00})), 0);
    const auto event = process.next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->source, "TraceLogger");
    EXPECT_EQ(event->destination, "diag");
    const auto received = event->frame();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->channel, 3);
    EXPECT_EQ(received->id, 2024U);
    EXPECT_EQ(received->timestampUs, 77U);
    EXPECT_EQ(received->frameKind, 0);
    EXPECT_TRUE(std::ranges::equal(received->data(), std::vector<uint8_t>{0x02, 0x3E, 0x00}));
}

TEST_F(TraceLoggerPeerTest, OnlyTheRegisteredIdentifierOfTheRegisteredChannelComes)
{
    start();
    auto process = client("diag");
    auto from = writer();
    registerFor(process, "1 3 1 2024 diag");
    ASSERT_EQ(from.write(frame(2, 2023)), 0);
    ASSERT_EQ(from.write(frame(0, 2024)), 0);        // received on channel 1
    ASSERT_EQ(from.write(frame(3, 2024)), 0);        // sent by the channel, not received
    ASSERT_EQ(from.write(frame(2, 2024, {}, 1)), 0); // the same number with 29 bits
    ASSERT_TRUE(waitForFramesIn(4));
    EXPECT_TRUE(staysQuiet(process));
}

TEST_F(TraceLoggerPeerTest, Bit31StandsForIdentifiersOf29Bits)
{
    start();
    auto process = client("diag");
    auto from = writer();
    registerFor(process, "1 3 1 " + std::to_string(0x80000000U | 0x18DA00F1U) + " diag");
    ASSERT_EQ(from.write(frame(2, 0x18DA00F1, {1}, 1)), 0);
    ASSERT_EQ(from.write(frame(2, 0x18DA00F1, {2}, 3)), 0);
    EXPECT_EQ(process.next()->frame()->type, 1);
    EXPECT_EQ(process.next()->frame()->type, 3);
}

TEST_F(TraceLoggerPeerTest, ANodesFramesComeToo)
{
    start();
    auto process = client("diag");
    registerFor(process, "1 2 1 2024 diag");
    sut->sendFromNode(frame(2, 2024));
    EXPECT_EQ(process.next()->frame()->channel, 2);
}

TEST_F(TraceLoggerPeerTest, EachConnectionGetsAFrameOnceHoweverManyRegistrationsMatch)
{
    start({.buses = {{0, 1, 2}}});
    auto process = client("diag");
    auto other = client("other");
    auto from = writer();
    registerFor(process, "1 2 1 2024 diag");
    registerFor(process, "1 1 1 2024 diag");
    registerFor(process, "1 1 1 2024 diag");
    registerFor(other, "1 1 1 2024 diag");
    ASSERT_EQ(from.write(frame(0, 2024)), 0);
    EXPECT_EQ(process.next()->frame()->channel, 1);
    EXPECT_TRUE(staysQuiet(process));
    EXPECT_TRUE(staysQuiet(other)) << "it has registered for somebody else";
}

TEST_F(TraceLoggerPeerTest, ARegistrationForOnesOwnNameIsForThisConnectionAlone)
{
    start();
    auto first = client("diag");
    auto second = client("diag");
    auto from = writer();
    registerFor(first, "1 3 1 2024 diag");
    ASSERT_EQ(from.write(frame(2, 2024)), 0);
    EXPECT_TRUE(first.next());
    EXPECT_TRUE(staysQuiet(second));
}

TEST_F(TraceLoggerPeerTest, ARegistrationForAnotherNameIsForEveryConnectionOfIt)
{
    start();
    auto registrar = client("registrar");
    auto first = client("diag");
    auto second = client("diag");
    auto from = writer();
    registerFor(registrar, "1 3 1 2024 diag");
    auto later = client("diag");
    ASSERT_EQ(from.write(frame(2, 2024)), 0);
    for (BusClient* const process : {&first, &second, &later}) {
        const auto event = process->next();
        ASSERT_TRUE(event);
        EXPECT_EQ(event->destination, "diag");
    }
    EXPECT_TRUE(staysQuiet(registrar));
}

TEST_F(TraceLoggerPeerTest, ARegistrationForANameThatNobodyCarriesWaitsForIt)
{
    start();
    auto registrar = client("registrar");
    auto from = writer();
    registerFor(registrar, "1 3 1 2024 diag");
    ASSERT_EQ(from.write(frame(2, 2024)), 0);
    ASSERT_TRUE(waitForFramesIn(1));
    auto process = client("diag");
    ASSERT_EQ(from.write(frame(2, 2024, {2})), 0);
    EXPECT_EQ(process.next()->frame()->lengthBytes, 1);
}

TEST_F(TraceLoggerPeerTest, RegistrationsGoWithTheirConnection)
{
    start();
    auto registrar = client("registrar");
    auto process = client("diag");
    auto from = writer();
    registerFor(registrar, "1 3 1 2024 diag");
    registrar.close();
    ASSERT_TRUE(waitUntil([&] { return sut->statistics().busClients == 1; }));
    ASSERT_EQ(from.write(frame(2, 2024)), 0);
    ASSERT_TRUE(waitForFramesIn(1));
    EXPECT_TRUE(staysQuiet(process));
}

TEST_F(TraceLoggerPeerTest, AFrameReachesTraceReadersAndRegisteredProcessesAlike)
{
    start();
    auto to = reader();
    auto process = client("diag");
    auto from = writer();
    registerFor(process, "1 3 1 2024 diag");
    ASSERT_EQ(from.write(frame(2, 2024)), 0);
    EXPECT_TRUE(process.next());
    EXPECT_EQ(to.next()->channel, 3);
}

TEST_F(TraceLoggerPeerTest, ARegisteredProcessThatDoesNotReadHoldsTheBusBackUpToTheLimit)
{
    CapturedOutput output;
    start({.busQueueMessages = 100});
    auto asleep = client("diag");
    auto to = reader();
    auto from = writer();
    for (uint32_t id = 0; id < 0x800; ++id) { // writeUntilHeld() counts the identifier up
        ASSERT_EQ(asleep.registerFor("1 1 1 " + std::to_string(id) + " diag"), 0);
    }
    ASSERT_TRUE(waitUntil([&] { return sut->statistics().busMessagesIn == 0x800; }));
    const uint32_t written = writeUntilHeld(from);
    clock->advance(vlogger::Options{}.stallLimit);
    EXPECT_EQ(to.take(written).size(), written) << "the trace reader loses nothing";
    EXPECT_GT(sut->statistics().busMessagesDropped, 0U);
    EXPECT_EQ(sut->statistics().framesDropped, 0U);
}

TEST_F(TraceLoggerPeerTest, AHundredThousandFramesAllArrive)
{
    start();
    auto process = client("diag");
    auto from = writer();
    registerFor(process, "1 1 1 256 diag");
    constexpr uint32_t FRAMES = 100000;
    std::thread sender([&] {
        for (uint32_t i = 0; i < FRAMES; ++i) {
            ASSERT_EQ(from.write(frame(0, 256, numbered(i))), 0);
        }
    });
    for (uint32_t i = 0; i < FRAMES; ++i) {
        const auto event = process.next();
        ASSERT_TRUE(event);
        ASSERT_EQ(numberOf(*event->frame()), i);
    }
    sender.join();
}

TEST_F(TraceLoggerPeerTest, ARegistrationThatCannotBeReadIsSaid)
{
    start();
    EXPECT_EQ(lineFor("1 2 1 x diag"),
              "[ERROR] VirtualLogger: a registration of \"diag\" cannot be read: \"1 2 1 x "
              "diag\": the identifier is no number of 32 bits\n");
}

TEST_F(TraceLoggerPeerTest, ForeignTextsAreShownInOneShortPrintableLine)
{
    start();
    EXPECT_EQ(lineFor(std::string("1 2\n\x1b") + std::string(300, 'a')),
              "[ERROR] VirtualLogger: a registration of \"diag\" cannot be read: \"1 2??" + std::string(195, 'a') +
                  "...\": it has not five fields with single blanks between\n");
}

TEST_F(TraceLoggerPeerTest, AMessageThatIsNoRegistrationIsSaid)
{
    start();
    const std::string line =
        "[WARNING] VirtualLogger: a message of \"diag\" to \"TraceLogger\" is no registration; ignored\n";
    EXPECT_EQ(lineFor("1 2 1 3 diag", 20), line);
    CapturedOutput output;
    auto process = client("diag");
    ASSERT_EQ(process.send("TraceLogger", BusClient::record(1)), 0);
    ASSERT_TRUE(waitUntil([&] { return sut->statistics().busMessagesIn == 2; }));
    EXPECT_EQ(output.err(), line);
}

TEST_F(TraceLoggerPeerTest, AGoodRegistrationIsTakenInSilence)
{
    start();
    EXPECT_EQ(lineFor("1 3 1 2024 diag"), "");
}

TEST_F(TraceLoggerPeerTest, AChannelThatTheBoardDoesNotReceiveIsSaid)
{
    start();
    EXPECT_EQ(lineFor("1 14 1 2024 diag"), "[WARNING] VirtualLogger: \"diag\" has registered for channel 14, which "
                                           "this board does not receive\n");
}

} // namespace
