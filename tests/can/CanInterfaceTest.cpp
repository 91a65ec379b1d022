#include <CanInterface.h>

#include <CanTxHandler.h>
#include <can/DispatcherTest.h>
#include <support/RecordingCallback.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <future>
#include <limits>
#include <memory>
#include <thread>
#include <utility>

#include <sys/socket.h>
#include <unistd.h>

using namespace dispatchertest;

namespace {

using Book = std::map<unsigned char, std::map<unsigned int, std::set<MsgRxHandlerCb*>>>;

class CanInterfaceTest : public DispatcherTest
{
protected:
    CanInterfaceTest()
    {
        int ends[2] = {-1, -1};
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);
        fakedevices::provideAs(MAIN, ends[0], 201);
        bus = ends[1];
        CapturedOutput ignored;
        CanTxHandler::getInstance(true);
        sut.callbacks.insert(&callback);
    }
    ~CanInterfaceTest() override { ::close(bus); }

    void configureQuietly(CanInterface& interface, const CanInterface::Configuration& configuration)
    {
        CapturedOutput ignored;
        EXPECT_EQ(interface.configure(configuration), 0);
    }

    void configureForType(cantype_t type) { configureQuietly(sut, {5, 0x123, type, {}}); }

    /// The next frame on the bus, from channel to payload; empty if none was sent.
    std::vector<uint8_t> nextFrame() const
    {
        std::vector<uint8_t> record(200);
        const ssize_t size = recv(bus, record.data(), record.size(), MSG_DONTWAIT);
        if (size < 14) {
            return {};
        }
        return {record.begin() + 14, record.begin() + size};
    }

    static const Book& book() { return MsgRxHandler::getInstance()->*reveal(ChannelReceivers{}); }

    int bus = -1;
    RecordingCallback callback;
    CanInterface sut;
};

const std::vector<uint8_t> BYTES(300, 0x5A);

/// 300 bytes of which no two neighbours, and no two 64 apart, are alike.
std::vector<uint8_t> countingBytes()
{
    std::vector<uint8_t> bytes(300);
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(7 * i + 1);
    }
    return bytes;
}

TEST_F(CanInterfaceTest, ConfigureRegistersReceiveIdsInOrderAndThePrimaryLast)
{
    CapturedOutput output;
    EXPECT_EQ(sut.configure({7, 0x100, CAN_FD_STANDARD, {{0x300, CAN_STANDARD}, {0x200, CAN_EXTENDED}}}), 0);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=7; _id=0x300; type=standard\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n"
                            "[INFO] MsgRxHandler::registerCanMessage() _channel=7; _id=0x200; type=extended\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n"
                            "[INFO] MsgRxHandler::registerCanMessage() _channel=7; _id=0x100; type=FD standard\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanInterfaceTest, ConfiguringAgainAddsUp)
{
    configureQuietly(sut, {7, 0x100, CAN_STANDARD, {{0x200, CAN_STANDARD}}});
    configureQuietly(sut, {8, 0x101, CAN_STANDARD, {}});
    ASSERT_EQ(book().size(), 2U);
    EXPECT_EQ(book().at(7).size(), 2U);
    EXPECT_EQ(book().at(8).size(), 1U);
    EXPECT_EQ(sut.send(BYTES.data(), 1), 0);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{8, 2, 0, 0, 0, 0, 1, 1, 1, 0x5A}));
}

TEST_F(CanInterfaceTest, FramesSentWhileItIsConfiguredAgainAreMadeOfOldAndNewValues)
{
    configureQuietly(sut, {5, 0x123, CAN_STANDARD, {}});
    CapturedOutput output;
    std::atomic<bool> done{false};
    std::vector<std::vector<uint8_t>> sent;
    std::promise<void> sending;
    std::thread sender([&] {
        bool first = true;
        while (!done) {
            if (sut.send(BYTES.data(), 1) != 0) {
                return;
            }
            sent.push_back(nextFrame());
            if (first) {
                first = false;
                sending.set_value();
            }
        }
    });
    sending.get_future().wait();
    for (int round = 0; round < 1000; ++round) {
        if (round % 2 == 0) {
            sut.configure({6, 0x456, CAN_FD_STANDARD, {}});
        } else {
            sut.configure({5, 0x123, CAN_STANDARD, {}});
        }
    }
    done = true;
    sender.join();
    for (const std::vector<uint8_t>& frame : sent) {
        ASSERT_EQ(frame.size(), 10U);
        EXPECT_TRUE(frame[0] == 5 || frame[0] == 6) << "channel " << unsigned{frame[0]};
        EXPECT_TRUE(frame[3] == CAN_STANDARD || frame[3] == CAN_FD_STANDARD) << "type " << unsigned{frame[3]};
        const unsigned id = frame[6] * 256U + frame[7];
        EXPECT_TRUE(id == 0x123 || id == 0x456) << "identifier " << id;
    }
    // The first frame was sent before the second configuration, so the loop above has looked at something.
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.front(), (std::vector<uint8_t>{5, 2, 0, 0, 0, 0, 1, 0x23, 1, 0x5A}));
}

TEST_F(CanInterfaceTest, UnconfiguredInterfaceSendsNoBytes)
{
    CapturedOutput output;
    EXPECT_EQ(sut.send(BYTES.data(), 1), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanInterface::send() Interface is not configured.\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(nextFrame(), std::vector<uint8_t>{});
}

TEST_F(CanInterfaceTest, UnconfiguredInterfaceSendsNoMessageAndLeavesItUnchanged)
{
    CANExtTraceMessage msg(11, 4711, 9, CAN_FRAME_DATA, CAN_STATE_OK, CAN_EXTENDED, 1, 0x1000, BYTES.data());
    sut.debugLevel = 1;
    CapturedOutput output;
    EXPECT_EQ(sut.send(msg), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanInterface::send() Interface is not configured.\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(nextFrame(), std::vector<uint8_t>{});
    EXPECT_EQ(msg.time, 4711U);
    EXPECT_EQ(msg.channel, 9);
    EXPECT_EQ(msg.frame, CAN_FRAME_DATA);
    EXPECT_EQ(msg.canId, 0x1000U);
    EXPECT_EQ(msg.type, CAN_EXTENDED);
}

TEST_F(CanInterfaceTest, BytesAreSentWithTheConfiguredChannelIdAndType)
{
    configureQuietly(sut, {5, 0x1ABCDEF0, CAN_EXTENDED, {}});
    const uint8_t payload[] = {1, 2, 3};
    CapturedOutput output;
    EXPECT_EQ(sut.send(payload, 3), 0);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 1, 0x9A, 0xBC, 0xDE, 0xF0, 3, 1, 2, 3}));
}

TEST_F(CanInterfaceTest, NullPayloadOfLengthZeroMakesAnEmptyFrame)
{
    configureForType(CAN_STANDARD);
    EXPECT_EQ(sut.send(nullptr, 0), 0);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 0, 0, 0, 1, 0x23, 0}));
}

TEST_F(CanInterfaceTest, NullPayloadWithALengthMakesAFrameOfZeros)
{
    configureForType(CAN_STANDARD);
    EXPECT_EQ(sut.send(nullptr, 3), 0);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 0, 0, 0, 1, 0x23, 3, 0, 0, 0}));
}

struct SizeCase
{
    uint32_t type;
    size_t size;
    int sentLength; ///< payload length on the bus; -1: rejected
};

class CanInterfaceSizeTest : public CanInterfaceTest, public testing::WithParamInterface<SizeCase>
{
};

TEST_P(CanInterfaceSizeTest, TypeDecidesWhichSizesAreSent)
{
    configureForType(static_cast<cantype_t>(GetParam().type));
    const std::vector<uint8_t> bytes = countingBytes();
    CapturedOutput output;
    const int result = sut.send(bytes.data(), GetParam().size);
    const std::vector<uint8_t> frame = nextFrame();
    if (GetParam().sentLength < 0) {
        EXPECT_EQ(result, -1);
        EXPECT_EQ(output.out(),
                  "[ERROR] CanInterface::send() Invalid _dataSize=" + std::to_string(GetParam().size) + "\n");
        EXPECT_EQ(frame, std::vector<uint8_t>{});
    } else {
        EXPECT_EQ(result, 0);
        EXPECT_EQ(output.out(), "");
        ASSERT_EQ(frame.size(), 9U + static_cast<size_t>(GetParam().sentLength));
        EXPECT_EQ(frame[8], GetParam().sentLength);
        EXPECT_TRUE(std::equal(frame.begin() + 9, frame.end(), bytes.begin())) << "payload";
    }
    EXPECT_EQ(output.err(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, CanInterfaceSizeTest,
    testing::Values(SizeCase{0, 0, 0}, SizeCase{0, 8, 8}, SizeCase{0, 9, -1}, SizeCase{0, 64, -1},
                    SizeCase{0, 256, -1}, SizeCase{1, 8, 8}, SizeCase{1, 9, -1}, SizeCase{1, 64, -1},
                    SizeCase{1, 256, -1}, SizeCase{2, 8, 8}, SizeCase{2, 9, 9}, SizeCase{2, 64, 64},
                    SizeCase{2, 65, -1}, SizeCase{2, 256, -1}, SizeCase{3, 8, 8}, SizeCase{3, 9, 9},
                    SizeCase{3, 64, 64}, SizeCase{3, 65, -1}, SizeCase{4, 8, 8}, SizeCase{4, 9, 9},
                    SizeCase{4, 64, 64}, SizeCase{4, 65, 64}, SizeCase{4, 255, 64}, SizeCase{4, 256, 0},
                    SizeCase{4, 257, 1}, SizeCase{4, 300, 44}, SizeCase{5, 65, 64}, SizeCase{5, 256, 0}),
    [](const auto& tested) {
        return "Type" + std::to_string(tested.param.type) + "Size" + std::to_string(tested.param.size);
    });

TEST_F(CanInterfaceTest, Size256OfType4MayComeWithoutPayload)
{
    configureForType(cantype_t{4});
    EXPECT_EQ(sut.send(nullptr, 256), 0);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 4, 0, 0, 1, 0x23, 0}));
}

TEST_F(CanInterfaceTest, HugeSizeIsLoggedInFull)
{
    configureForType(CAN_STANDARD);
    CapturedOutput output;
    EXPECT_EQ(sut.send(nullptr, std::numeric_limits<size_t>::max()), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanInterface::send() Invalid _dataSize=18446744073709551615\n");
}

TEST_F(CanInterfaceTest, MessageFieldsAreReplaced)
{
    configureForType(CAN_FD_STANDARD);
    CANExtTraceMessage msg(11, 4711, 9, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 2, 0x7FF, BYTES.data());
    EXPECT_EQ(sut.send(msg), 0);
    EXPECT_EQ(msg.time, 0U);
    EXPECT_EQ(msg.frame, CAN_FRAME_TX);
    EXPECT_EQ(msg.channel, 5);
    EXPECT_EQ(msg.canId, 0x123U);
    EXPECT_EQ(msg.type, CAN_FD_STANDARD);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 2, 0, 0, 1, 0x23, 2, 0x5A, 0x5A}));
}

TEST_F(CanInterfaceTest, StandardMessageOnAnExtendedInterfaceLosesTheUpperIdentifierBits)
{
    configureQuietly(sut, {5, 0x1ABCDEF0, CAN_EXTENDED, {}});
    CANExtTraceMessage msg(11, 0, 0, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 0, 0, nullptr);
    EXPECT_EQ(sut.send(msg), 0);
    EXPECT_EQ(msg.canId, 0x6F0U);
    EXPECT_EQ(msg.type, CAN_EXTENDED);
    EXPECT_EQ(nextFrame(), (std::vector<uint8_t>{5, 2, 0, 1, 0x80, 0, 0x06, 0xF0, 0}));
}

TEST_F(CanInterfaceTest, ExtendedMessageOnAStandardInterfaceKeepsTheUpperIdentifierBits)
{
    configureQuietly(sut, {5, 0x1ABCDEF0, CAN_STANDARD, {}});
    CANExtTraceMessage msg(11, 0, 0, CAN_FRAME_TX, CAN_STATE_OK, CAN_EXTENDED, 0, 0, nullptr);
    EXPECT_EQ(sut.send(msg), 0);
    EXPECT_EQ(msg.canId, 0x1ABCDEF0U);
    EXPECT_EQ(msg.type, CAN_STANDARD);
}

struct MaskCase
{
    uint32_t incomingType;
    uint32_t id;
};

class CanInterfaceMaskTest : public CanInterfaceTest, public testing::WithParamInterface<MaskCase>
{
};

TEST_P(CanInterfaceMaskTest, TypeThatTheMessageBroughtDecidesTheMask)
{
    configureQuietly(sut, {5, 0xFFFFFFFF, CAN_EXTENDED, {}});
    CANExtTraceMessage msg(11, 0, 0, CAN_FRAME_TX, CAN_STATE_OK, static_cast<cantype_t>(GetParam().incomingType), 0,
                           0, nullptr);
    EXPECT_EQ(sut.send(msg), 0);
    EXPECT_EQ(msg.canId, GetParam().id);
}

INSTANTIATE_TEST_SUITE_P(Types, CanInterfaceMaskTest,
                         testing::Values(MaskCase{0, 0x7FF}, MaskCase{1, 0x1FFFFFFF}, MaskCase{2, 0x7FF},
                                         MaskCase{3, 0x1FFFFFFF}, MaskCase{4, 0x7FF}, MaskCase{5, 0x7FF}),
                         [](const auto& tested) { return "Type" + std::to_string(tested.param.incomingType); });

TEST_F(CanInterfaceTest, DebugLevelAboveZeroPrintsTheMessageThatIsSent)
{
    configureForType(CAN_STANDARD);
    sut.debugLevel = 1;
    const uint8_t payload[] = {0x0A, 0xFF};
    CapturedOutput output;
    EXPECT_EQ(sut.send(payload, 2), 0);
    EXPECT_EQ(output.out(), "[DEBUG] CanInterface::send() channel=5; id=0x123; type=standard; length=2; "
                            "data= 0a ff\n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(CanInterfaceTest, DebugLineShowsTheMessageAsItGoesOut)
{
    configureForType(CAN_STANDARD);
    sut.debugLevel = 1;
    const uint8_t payload[] = {0x0A};
    CANExtTraceMessage msg(11, 99, 7, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 1, 0x456, payload);
    CapturedOutput output;
    EXPECT_EQ(sut.send(msg), 0);
    EXPECT_EQ(output.out(), "[DEBUG] CanInterface::send() channel=5; id=0x123; type=standard; length=1; "
                            "data= 0a\n");
}

TEST_F(CanInterfaceTest, TimeIsClearedBeforeTheTransmitterIsAsked)
{
    configureForType(CAN_STANDARD);
    CapturedOutput output;
    CanTxHandler::getInstance(true)->close();
    CANExtTraceMessage msg(11, 99, 7, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 0, 0x456, nullptr);
    EXPECT_EQ(sut.send(msg), -1);
    EXPECT_EQ(msg.time, 0U);
}

/// Without a transmitter from elsewhere.
class CanInterfaceFirstSendTest : public DispatcherTest
{
};

TEST_F(CanInterfaceFirstSendTest, OpensTheTransmitterWithOSync)
{
    fakedevices::provideNull(MAIN, 201);
    CanInterface sut;
    CapturedOutput output;
    ASSERT_EQ(sut.configure({5, 0x123, CAN_STANDARD, {}}), 0);
    EXPECT_EQ(sut.send(BYTES.data(), 1), 0);
    EXPECT_EQ(effects::all(), (Effects{"open /dev/vqlog-fpgab O_WRONLY|O_SYNC"}));
}

TEST_F(CanInterfaceTest, DebugLevelZeroOrBelowPrintsNothing)
{
    configureForType(CAN_STANDARD);
    EXPECT_EQ(sut.debugLevel, 0);
    sut.debugLevel = -1;
    CapturedOutput output;
    EXPECT_EQ(sut.send(BYTES.data(), 2), 0);
    EXPECT_EQ(output.out(), "");
}

TEST_F(CanInterfaceTest, SendingBytesGoesThroughTheVirtualMessageSend)
{
    struct Derived : CanInterface
    {
        using CanInterface::send;
        int send(CANExtTraceMessage& msg) override
        {
            ids.push_back(msg.canId);
            return -7;
        }
        std::vector<uint32_t> ids;
    } derived;
    configureQuietly(derived, {5, 0x123, CAN_STANDARD, {}});
    CanInterface& base = derived;
    EXPECT_EQ(base.send(BYTES.data(), 1), -7);
    EXPECT_EQ(derived.ids, std::vector<uint32_t>{0x123});
    CapturedOutput ignored;
}

TEST_F(CanInterfaceTest, TransmitterFailureIsReturnedAndLoggedOnce)
{
    configureForType(CAN_STANDARD);
    CanTxHandler::getInstance(true)->close();
    CapturedOutput output;
    EXPECT_EQ(sut.send(BYTES.data(), 1), -1);
    EXPECT_EQ(output.out(), "[ERROR] CanTxHandler::send() FGPAB/M-Device is not open!\n");
}

struct StateCase
{
    uint32_t state;
    int status;
    const char* text;
};

class CanInterfaceStateTest : public CanInterfaceTest, public testing::WithParamInterface<StateCase>
{
};

TEST_P(CanInterfaceStateTest, StateIsLoggedAndTranslated)
{
    RecordingCallback second;
    sut.callbacks.insert(&second);
    CapturedOutput output;
    sut.onStateChanged(static_cast<MsgRxHandlerCb::handlerState_t>(GetParam().state), "some text");
    EXPECT_EQ(output.out(), "[INFO] CanInterface::onStateChanged() _newState=" + std::string(GetParam().text) +
                                "; _text=some text\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(callback.statuses.all(), std::vector<int>{GetParam().status});
    EXPECT_EQ(second.statuses.all(), std::vector<int>{GetParam().status});
}

INSTANTIATE_TEST_SUITE_P(States, CanInterfaceStateTest,
                         testing::Values(StateCase{0, 0, "UNDEFINED"}, StateCase{1, 1, "ONLINE"},
                                         StateCase{2, 2, "OFFLINE"}, StateCase{3, 4, "ERROR"},
                                         StateCase{4, 0, "invalid handler state"},
                                         StateCase{0xFFFFFFFF, 0, "invalid handler state"}),
                         [](const auto& tested) { return "State" + std::to_string(tested.param.state); });

TEST_F(CanInterfaceTest, ReceivedRecordIsPassedOnUnchangedToEveryCallback)
{
    RecordingCallback second;
    sut.callbacks.insert(&second);
    const std::vector<uint8_t> record{1, 2, 3};
    CapturedOutput output;
    sut.onRawReceived(record.data(), record.size());
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(callback.data.all(), std::vector<std::vector<uint8_t>>{record});
    EXPECT_EQ(second.data.all(), std::vector<std::vector<uint8_t>>{record});
    EXPECT_EQ(callback.lastPointer, record.data());
}

TEST_F(CanInterfaceTest, WithoutCallbacksEveryEventIsTakenInSilence)
{
    sut.callbacks.clear();
    CapturedOutput output;
    sut.onRawReceived(BYTES.data(), 30);
    sut.onStateChanged(MsgRxHandlerCb::ONLINE, "");
    EXPECT_EQ(output.out(), "[INFO] CanInterface::onStateChanged() _newState=ONLINE; _text=\n");
    EXPECT_EQ(callback.statuses.count(), 0U);
    EXPECT_EQ(callback.data.count(), 0U);
}

TEST_F(CanInterfaceTest, CallbacksAreCalledInPointerOrder)
{
    struct Ordered : InterfaceBaseCb
    {
        void onDataReceived(const uint8_t* /*data*/, size_t /*size*/) override { calls->push_back(this); }
        void onInterfaceState(int /*status*/) override { calls->push_back(this); }
        std::vector<InterfaceBaseCb*>* calls = nullptr;
    };
    std::vector<InterfaceBaseCb*> calls;
    std::vector<Ordered> several(3);
    sut.callbacks.clear();
    for (size_t i : {2U, 0U, 1U}) {
        several[i].calls = &calls;
        sut.callbacks.insert(&several[i]);
    }
    const std::vector<InterfaceBaseCb*> ascending{&several[0], &several[1], &several[2]};
    sut.onRawReceived(BYTES.data(), 30);
    EXPECT_EQ(calls, ascending);
    calls.clear();
    CapturedOutput ignored;
    sut.onStateChanged(MsgRxHandlerCb::ONLINE, "");
    EXPECT_EQ(calls, ascending);
}

TEST_F(CanInterfaceTest, DestructionUnregisters)
{
    auto interface = std::make_unique<CanInterface>();
    configureQuietly(*interface, {5, 0x123, CAN_STANDARD, {}});
    CapturedOutput output;
    interface.reset();
    EXPECT_EQ(output.out(), "[DEBUG] MsgRxHandler::unregisterReceiver() \n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=false\n");
    EXPECT_EQ((MsgRxHandler::getInstance()->*reveal(Receivers{})).size(), 0U);
}

TEST_F(CanInterfaceTest, DestructionWithoutConfigureStillUnregisters)
{
    auto interface = std::make_unique<CanInterface>();
    configureForType(CAN_STANDARD);
    CapturedOutput output;
    interface.reset();
    // It never listened anywhere, and yet the channels of the others fall silent.
    EXPECT_EQ(output.out(), "[DEBUG] MsgRxHandler::unregisterReceiver() \n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=false\n");
    EXPECT_EQ((MsgRxHandler::getInstance()->*reveal(Receivers{})).size(), 1U);
}

TEST_F(CanInterfaceTest, DestructionDoesNotTouchTheTransmitter)
{
    const std::vector<std::string> before = effects::all();
    {
        CapturedOutput ignored;
        auto interface = std::make_unique<CanInterface>();
        interface.reset();
    }
    EXPECT_EQ(effects::all(), before);
}

} // namespace
