#include "IsoTpSystemTest.h"

#include <support/Program.h>
#include <support/Sanitizer.h>
#include <support/Waiting.h>

#include <array>
#include <csignal>
#include <random>
#include <thread>

namespace {

/// How long an echo may take that nothing is in the way of. One that was lost at the peer costs this time.
constexpr std::chrono::seconds PATIENCE{5};

class IsoTpStressTest : public IsoTpSystemTest
{
protected:
    static std::vector<std::string> peerArguments(const std::string& kind, unsigned pair)
    {
        return {kind, std::to_string(2 * pair + 1), std::to_string(REQUEST_ID + pair),
                std::to_string(ANSWER_ID + pair)};
    }
};

/// A message that tells its number, and by it its length: 8 to 4095 bytes, mostly short.
Bytes numberedMessage(uint32_t number)
{
    std::mt19937 random(number);
    const size_t length = 8 + (number % 8 == 0 ? random() % 4088 : random() % 200);
    Bytes message = counting(length);
    for (size_t i = 0; i < 4; ++i) {
        message[i] = static_cast<uint8_t>(number >> 8 * i);
    }
    return message;
}

bool isNumberedMessage(const Bytes& message)
{
    uint32_t number = 0;
    for (size_t i = 0; i < 4 && i < message.size(); ++i) {
        number |= static_cast<uint32_t>(message[i]) << 8 * i;
    }
    return message == numberedMessage(number);
}

/// One tester and its peer in another process: exchanges with aborts, new handlers and a killed peer in between.
class Pair
{
public:
    Pair(unsigned pairNumber, std::vector<std::string> peerArguments)
        : number(pairNumber), arguments(std::move(peerArguments))
    {
    }

    void run(uint32_t exchanges)
    {
        startPeer();
        std::mt19937 random(number);
        for (uint32_t i = 1; i <= exchanges; ++i) {
            if (!handler || random() % 8 == 0) {
                handler.emplace(static_cast<uint8_t>(2 * number), ANSWER_ID + number, REQUEST_ID + number);
                handler->start();
            }
            exchange(i, random() % 8 == 0, i == exchanges / 2);
        }
        handler.reset();
        stopPeer();
    }

    unsigned pairNumber() const { return number; }

    uint32_t echoed = 0;
    uint32_t failed = 0;               ///< with a status of the own handler
    uint32_t lostAtPeer = 0;           ///< with a status of the peer's, or killed with it
    std::vector<uint32_t> unexplained; ///< numbers of the others
    bool onlyKnownMessages = true;

private:
    void exchange(uint32_t messageNumber, bool aborted, bool killed)
    {
        const Bytes message = numberedMessage(messageNumber);
        const size_t before = handler->callback.events.count();
        const size_t peerAborts = peer->count("aborted");
        handler->send(message);
        if (aborted) {
            handler->handler.abortProcessing(CanIsoTpHandler::ERR_BUG);
        }
        if (killed) {
            peer->signal(SIGKILL);
            peer->awaitEnd();
            startPeer();
        }
        bool isEchoed = false;
        const bool isDecided = handler->callback.events.waitUntil(
            [&](const std::vector<IsoTpEvent>& all) {
                for (size_t i = before; i < all.size(); ++i) {
                    isEchoed = isEchoed || all[i].message == message;
                    if (isEchoed || all[i].type == CanIsoTpHandlerCallback::STATUS_ERROR) {
                        return true;
                    }
                }
                return false;
            },
            PATIENCE);
        if (isEchoed) {
            ++echoed;
        } else if (isDecided) {
            ++failed;
        } else if (killed || becomesTrue([&] { return peer->count("aborted") > peerAborts; })) {
            ++lostAtPeer;
        } else {
            unexplained.push_back(messageNumber);
        }
        for (const Bytes& received : handler->messages()) {
            onlyKnownMessages = onlyKnownMessages && isNumberedMessage(received);
        }
    }

    void startPeer()
    {
        peer = std::make_unique<Program>(ISOTP_PEER_PROGRAM, arguments);
        EXPECT_TRUE(peer->awaitLine("ready"));
    }

    void stopPeer()
    {
        peer->closeInput();
        EXPECT_EQ(peer->awaitEnd(), 0);
        peer.reset();
    }

    const unsigned number;
    const std::vector<std::string> arguments;
    std::optional<TestHandler> handler;
    std::unique_ptr<Program> peer;
};

TEST_F(IsoTpStressTest, NothingIsLostWithoutAStatusAndNothingIsLeftBehind)
{
    constexpr uint32_t EXCHANGES = THREAD_SANITIZER ? 40 : 200;
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    {
        Pair first(0, peerArguments("echo", 0)); // opens the device and joins the process bus
        first.run(1);
    }
    ASSERT_TRUE(becomesTrue([this] { return logger->statistics().busClients == 1; }));
    const Census before = settledCensus();

    std::vector<std::unique_ptr<Pair>> pairs;
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 5; ++i) {
        pairs.push_back(std::make_unique<Pair>(i, peerArguments("echo", i)));
        threads.emplace_back([&pair = *pairs.back()] { pair.run(EXCHANGES); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    for (const auto& pair : pairs) {
        EXPECT_TRUE(pair->onlyKnownMessages);
        EXPECT_EQ(pair->unexplained, std::vector<uint32_t>{});
        EXPECT_EQ(pair->echoed + pair->failed + pair->lostAtPeer, EXCHANGES);
        EXPECT_GT(pair->echoed, 0U);
        RecordProperty("outcome" + std::to_string(pair->pairNumber()),
                       std::to_string(pair->echoed) + " echoed, " + std::to_string(pair->failed) + " failed, " +
                           std::to_string(pair->lostAtPeer) + " lost at the peer");
    }
    EXPECT_TRUE(becomesTrue([this] { return logger->statistics().busClients == 1; }));
    EXPECT_TRUE(becomesTrue([&] { return Census::take() == before; })) << Census::take() << ", was " << before;
}

TEST_F(IsoTpStressTest, SendersThatShareAHandlerLoseNothing)
{
    constexpr uint32_t MESSAGES = THREAD_SANITIZER ? 50 : 500;
    constexpr size_t SENDERS = 4;
    startLogger(vlogger::board::PLAIN);
    CapturedOutput output;
    Program peer(ISOTP_PEER_PROGRAM, peerArguments("sink", 0));
    ASSERT_TRUE(peer.awaitLine("ready"));
    TestHandler tester(0);
    tester.start();

    std::array<std::thread, SENDERS> senders;
    for (size_t sender = 0; sender < SENDERS; ++sender) {
        senders[sender] = std::thread([&tester, sender] {
            for (uint32_t i = 0; i < MESSAGES; ++i) {
                EXPECT_TRUE(tester.send(counting(1 + (i * SENDERS + sender) % 300)));
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    tester.stop();

    EXPECT_TRUE(peer.awaitLine("received " + std::to_string(SENDERS * MESSAGES)));
    peer.closeInput();
    EXPECT_EQ(peer.awaitEnd(), 0);
    EXPECT_EQ(countOf(peer.outputLines(), "aborted"), 0U);
}

} // namespace
