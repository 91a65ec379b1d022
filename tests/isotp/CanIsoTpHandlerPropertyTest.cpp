#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/IsoTpModel.h>

#include <deque>
#include <random>

namespace {

class IsoTpRoundTripTest : public IsoTpTest, public testing::WithParamInterface<std::tuple<uint8_t, uint8_t>>
{
protected:
    IsoTpRoundTripTest()
    {
        sut.removeCallback(callback);
        peer.setCallback(callback);
        for (Handler* const handler : {&sut, &peer}) {
            handler->extAddressLength = std::get<0>(GetParam());
            handler->extAddress = 0xA5;
            handler->useMinimalDlc = std::get<1>(GetParam());
        }
        transmitter.records = false;
        transmitter.onFrame = [this](const CANExtTraceMessage& frame) {
            line.push_back(frame);
            return 0;
        };
    }

    /// Frames and commands, until nothing is left to do.
    void settle()
    {
        do {
            while (!line.empty()) {
                const CANExtTraceMessage frame = line.front();
                line.pop_front();
                sut.vqpBusProxyCb(&frame, "", "");
                peer.vqpBusProxyCb(&frame, "", "");
            }
            carryOutCommands(sut);
            carryOutCommands(peer);
        } while (!line.empty());
    }

    std::deque<CANExtTraceMessage> line;
    Handler peer{"TraceLogger", "Diagnostic", CHANNEL, TX_ID, CAN_STANDARD, RX_ID, CAN_STANDARD};
};

TEST_P(IsoTpRoundTripTest, PayloadOfAnyLengthComesBackEqual)
{
    std::mt19937 random(20260101);
    for (size_t length = 1; length <= 4095; ++length) {
        Bytes payload(length);
        std::generate(payload.begin(), payload.end(), [&] { return static_cast<uint8_t>(random()); });
        ASSERT_TRUE(send(payload));
        settle();
        ASSERT_EQ(callback.events.all(), Events{messageEvent(payload)}) << length;
        callback.events.clear();
        callback.messages.clear();
    }
    EXPECT_TRUE(sut.sendQueueEmpty());
}

INSTANTIATE_TEST_SUITE_P(AddressingAndDlcMode, IsoTpRoundTripTest,
                         testing::Combine(testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Values(uint8_t{0}, uint8_t{1})));

/// Whatever arrives: the handler does what the model does.
class IsoTpModelTest : public IsoTpTest, public testing::WithParamInterface<std::tuple<uint8_t, uint8_t, unsigned>>
{
protected:
    static constexpr uint8_t ADDRESS = 0xA5;

    IsoTpModelTest()
    {
        sut.extAddressLength = std::get<0>(GetParam());
        sut.extAddress = ADDRESS;
        sut.useMinimalDlc = std::get<1>(GetParam());
    }

    IsoTpModel::Settings settings() const
    {
        return {std::get<0>(GetParam()) != 0, std::get<1>(GetParam()) != 0, ADDRESS};
    }

    unsigned upTo(unsigned last) { return std::uniform_int_distribution<unsigned>(0, last)(random); }

    Bytes anyBytes(size_t length)
    {
        Bytes bytes(length);
        std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(upTo(255)); });
        return bytes;
    }

    Bytes anyPayload()
    {
        constexpr unsigned LIMITS[] = {0, 8, 30, 300, 4095, 4200};
        return anyBytes(upTo(LIMITS[upTo(5)]));
    }

    /// The frames that a peer would send for a message, by the model's own segmentation.
    std::deque<Bytes> framesOf(const Bytes& payload)
    {
        IsoTpModel sender(settings());
        sender.send(payload);
        sender.workerCatchesUp();
        if (sender.state != IsoTpModel::State::IDLE) {
            sender.receive(flowControl(0, 0));
            sender.workerCatchesUp();
        }
        return {sender.frames.begin(), sender.frames.end()};
    }

    Bytes flowControl(uint8_t status, uint8_t blockSize)
    {
        Bytes frame(settings().extended ? 1 : 0, ADDRESS);
        for (const uint8_t byte : {static_cast<uint8_t>(0x30 + status), blockSize, uint8_t{0}}) {
            frame.push_back(byte);
        }
        frame.resize(settings().minimalDlc ? frame.size() : 8);
        return frame;
    }

    void receiveBoth(const Bytes& frame)
    {
        model.receive(frame);
        peerSends(frame);
    }

    void sendBoth(const Bytes& payload)
    {
        model.send(payload);
        send(payload);
    }

    /// A frame of what the peer is about to send, or what a disturbed bus makes of it.
    void disturbedFrame()
    {
        if (pending.empty()) {
            pending = framesOf(anyPayload());
            if (pending.empty()) {
                return;
            }
        }
        Bytes frame = pending.front();
        switch (upTo(60)) {
        case 0: // dropped
            pending.pop_front();
            return;
        case 1: // duplicated
            break;
        case 2: // reordered
            if (pending.size() > 1) {
                std::swap(pending[0], pending[1]);
            }
            return;
        case 3: // mutated
            frame[upTo(static_cast<unsigned>(frame.size()) - 1)] ^= static_cast<uint8_t>(1U << upTo(7));
            pending.pop_front();
            break;
        case 4: // cut short
            frame.resize(upTo(8));
            pending.pop_front();
            break;
        case 5: // the peer gives up
            pending.clear();
            break;
        default:
            pending.pop_front();
        }
        receiveBoth(frame);
    }

    void anyStep()
    {
        switch (model.state == IsoTpModel::State::WAITING_FOR_FLOW_CONTROL ? upTo(9) : 10 + upTo(39)) {
        case 0:
        case 1:
        case 2:
        case 3:
        case 4:
            return receiveBoth(flowControl(0, 0));
        case 5:
            return receiveBoth(flowControl(0, static_cast<uint8_t>(1 + upTo(9))));
        case 6:
            return receiveBoth(flowControl(1, 0));
        case 7:
            return receiveBoth(flowControl(static_cast<uint8_t>(upTo(15)), 0));
        case 8:
        case 10:
            return sendBoth(anyPayload());
        case 9:
        case 11:
            return receiveBoth(anyBytes(upTo(8)));
        case 12:
            model.secondPasses();
            return sut.handleTimeout();
        case 13:
        case 14: // commands and messages pile up
            for (unsigned more = 1 + upTo(3); more != 0; --more) {
                sendBoth(anyPayload());
            }
            return;
        default:
            return disturbedFrame();
        }
    }

    void workerCatchesUp()
    {
        model.workerCatchesUp();
        carryOut();
    }

    /// How far the worker comes before something else happens.
    void anyProgressOfTheWorker()
    {
        switch (upTo(3)) {
        case 0:
            return;
        case 1:
            if (carryOutCommand(sut) == 's') {
                model.workerLooks();
            }
            return;
        default:
            return workerCatchesUp();
        }
    }

    void expectSame()
    {
        ASSERT_EQ(events(), model.events);
        ASSERT_EQ(sentFrames(), model.frames);
        ASSERT_EQ(expectation(), IsoTpModel::expectationIn(model.state));
        const std::string commands = pendingCommands(sut);
        ASSERT_EQ(static_cast<size_t>(std::count(commands.begin(), commands.end(), 's')), model.looks);
        ASSERT_EQ(sut.sendQueueEmpty(), model.queued() == 0);
        callback.events.clear();
        callback.messages.clear();
        transmitter.frames.clear();
        model.events.clear();
        model.frames.clear();
    }

    std::mt19937 random{std::get<2>(GetParam())};
    IsoTpModel model{settings()};
    std::deque<Bytes> pending;
};

TEST_P(IsoTpModelTest, AnySequenceGivesWhatTheRulesGive)
{
    constexpr int STEPS = 4000;
    CapturedOutput output; // thousands of error lines
    for (int step = 0; step < STEPS; ++step) {
        anyStep();
        expectSame(); // the worker was slow
        ASSERT_FALSE(HasFatalFailure()) << "step " << step;
        anyProgressOfTheWorker();
        expectSame();
        ASSERT_FALSE(HasFatalFailure()) << "step " << step;
    }
    // Usable afterwards.
    workerCatchesUp();
    model.secondPasses();
    sut.handleTimeout();
    sendBoth(counting(3));
    receiveBoth(framesOf(counting(2)).front());
    workerCatchesUp();
    expectSame();
}

INSTANTIATE_TEST_SUITE_P(AddressingDlcModeAndSeed, IsoTpModelTest,
                         testing::Combine(testing::Values(uint8_t{0}, uint8_t{1}),
                                          testing::Values(uint8_t{0}, uint8_t{1}), testing::Range(1U, 11U)));

} // namespace
