#include <can/DispatcherTest.h>
#include <can/FrameRecord.h>
#include <support/LogLock.h>
#include <support/RecordingReceiver.h>
#include <support/SecondThread.h>

#include <algorithm>
#include <cerrno>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <system_error>
#include <thread>

using namespace dispatchertest;

REVEAL_MEMBER(ReceiverMutex, MsgRxHandler, receiverMutex);

namespace {

class MsgRxHandlerRegistryTest : public DispatcherTest
{
protected:
    static void dispatch(uint8_t channel, uint32_t idWord)
    {
        const std::vector<unsigned char> record = FrameRecord{.channel = channel, .idWord = idWord}.bytes();
        sut().processCanMessage(record.data(), record.data() + record.size());
    }

    using Book = std::map<unsigned char, std::map<unsigned int, std::set<MsgRxHandlerCb*>>>;
    static const Book& book() { return sut().*reveal(ChannelReceivers{}); }

    RecordingReceiver receiver;
    RecordingReceiver other;
};

TEST_F(MsgRxHandlerRegistryTest, FirstInstanceIsSilentAndOpensNothing)
{
    CapturedOutput output;
    sut();
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(effects::all(), Effects{});
}

TEST_F(MsgRxHandlerRegistryTest, ConcurrentFirstCallsGetOneDispatcher)
{
    std::vector<std::future<MsgRxHandler*>> callers;
    for (int i = 0; i < 8; ++i) {
        callers.push_back(std::async(std::launch::async, [] { return MsgRxHandler::getInstance(); }));
    }
    std::set<MsgRxHandler*> instances;
    for (auto& caller : callers) {
        instances.insert(caller.get());
    }
    EXPECT_EQ(instances.size(), 1U);
}

TEST_F(MsgRxHandlerRegistryTest, RegistrationLogsHexadecimalIdAndActivates)
{
    CapturedOutput output;
    sut().registerCanMessage(10, 0xABC, CAN_STANDARD, &receiver);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=10; _id=0xabc; type=standard\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_TRUE(isActive(MAIN));
}

TEST_F(MsgRxHandlerRegistryTest, RegistrationWritesTheIdAsGiven)
{
    CapturedOutput output;
    sut().registerCanMessage(0, 0xFFFFFFFF, CAN_EXTENDED, &receiver);
    sut().registerCanMessage(0, 0, CAN_FD_EXTENDED, &receiver);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0xffffffff; type=extended\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n"
                            "[INFO] MsgRxHandler::registerCanMessage() _channel=0; _id=0x0; type=FD extended\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=true\n");
}

TEST_F(MsgRxHandlerRegistryTest, RegistrationForAChannelWithoutDeviceLogsItsOwnLineOnly)
{
    CapturedOutput output;
    sut().registerCanMessage(14, 0x123, cantype_t{5}, &receiver);
    EXPECT_EQ(output.out(), "[INFO] MsgRxHandler::registerCanMessage() _channel=14; _id=0x123; "
                            "type=unknown type 5\n");
    EXPECT_FALSE(isActive(MAIN));
}

struct TypeAndKey
{
    uint32_t type;
    uint32_t key;
};

class MsgRxHandlerKeyTest : public MsgRxHandlerRegistryTest, public testing::WithParamInterface<TypeAndKey>
{
};

TEST_P(MsgRxHandlerKeyTest, TypeDecidesTheKey)
{
    registerQuietly(3, 0x123, static_cast<cantype_t>(GetParam().type), receiver);
    EXPECT_EQ(book(), (Book{{3, {{GetParam().key, {&receiver}}}}}));
    dispatch(3, GetParam().key);
    EXPECT_EQ(receiver.frames.count(), 1U);
    dispatch(3, GetParam().key ^ 0x80000000);
    EXPECT_EQ(receiver.frames.count(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Types, MsgRxHandlerKeyTest,
                         testing::Values(TypeAndKey{0, 0x123}, TypeAndKey{1, 0x80000123}, TypeAndKey{2, 0x123},
                                         TypeAndKey{3, 0x80000123}, TypeAndKey{4, 0x123}, TypeAndKey{5, 0x123}),
                         [](const auto& tested) { return "Type" + std::to_string(tested.param.type); });

TEST_F(MsgRxHandlerRegistryTest, SecondRegistrationLeavesOneEntryAndOneCall)
{
    registerQuietly(0, 0x123, CAN_STANDARD, receiver);
    registerQuietly(0, 0x123, CAN_STANDARD, receiver);
    EXPECT_EQ(book(), (Book{{0, {{0x123, {&receiver}}}}}));
    EXPECT_EQ((sut().*reveal(Receivers{})).size(), 1U);
    dispatch(0, 0x123);
    EXPECT_EQ(receiver.frames.count(), 1U);
}

TEST_F(MsgRxHandlerRegistryTest, IdentifierIsNotMaskedAtRegistration)
{
    registerQuietly(0, 0xFFF, CAN_STANDARD, receiver);
    EXPECT_EQ(book(), (Book{{0, {{0xFFF, {&receiver}}}}}));
}

TEST_F(MsgRxHandlerRegistryTest, IdentifierWithBit29Or30NeverMatches)
{
    registerQuietly(0, 0x20000123, CAN_EXTENDED, receiver);
    registerQuietly(0, 0x40000123, CAN_EXTENDED, receiver);
    EXPECT_EQ(book(), (Book{{0, {{0xA0000123, {&receiver}}, {0xC0000123, {&receiver}}}}}));
    dispatch(0, 0xA0000123);
    dispatch(0, 0xC0000123);
    EXPECT_EQ(receiver.frames.count(), 0U);
}

TEST_F(MsgRxHandlerRegistryTest, ReceiversOfOneFrameAreCalledInPointerOrder)
{
    struct Ordered : MsgRxHandlerCb
    {
        void onStateChanged(handlerState_t /*state*/, const std::string& /*text*/) override
        {
            calls->push_back(this);
        }
        void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override { calls->push_back(this); }
        std::vector<MsgRxHandlerCb*>* calls = nullptr;
    };
    std::vector<MsgRxHandlerCb*> calls;
    std::vector<Ordered> several(5);
    for (size_t i : {3U, 0U, 4U, 1U, 2U}) {
        several[i].calls = &calls;
        registerQuietly(0, 1, CAN_STANDARD, several[i]);
    }
    const std::vector<MsgRxHandlerCb*> ascending{&several[0], &several[1], &several[2], &several[3], &several[4]};
    dispatch(0, 1);
    EXPECT_EQ(calls, ascending);
    calls.clear();
    sut().informStateChangedReceivers(MsgRxHandlerCb::ONLINE, "");
    EXPECT_EQ(calls, ascending);
}

TEST_F(MsgRxHandlerRegistryTest, StateChangesReachEveryReceiverOfEveryChannelOnce)
{
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    registerQuietly(0, 2, CAN_STANDARD, receiver);
    registerQuietly(200, 1, CAN_STANDARD, other);
    sut().informStateChangedReceivers(MsgRxHandlerCb::ERROR, "why");
    EXPECT_EQ(receiver.states.all(), (std::vector<RecordingReceiver::State>{{MsgRxHandlerCb::ERROR, "why"}}));
    EXPECT_EQ(other.states.all(), (std::vector<RecordingReceiver::State>{{MsgRxHandlerCb::ERROR, "why"}}));
}

TEST_F(MsgRxHandlerRegistryTest, MessageGoesToTheGivenSetOnly)
{
    registerQuietly(0, 1, CAN_STANDARD, other);
    const uint8_t bytes[] = {1, 2, 3};
    sut().informMessageReceivers({&receiver}, bytes, sizeof(bytes));
    EXPECT_EQ(receiver.frames.all(), (std::vector<RecordingReceiver::Frame>{{1, 2, 3}}));
    EXPECT_EQ(other.frames.count(), 0U);
}

TEST_F(MsgRxHandlerRegistryTest, UnregisteringSilencesEveryChannelEverRegistered)
{
    fitExtensionBoard();
    registerQuietly(20, 1, CAN_STANDARD, receiver);
    registerQuietly(2, 1, CAN_STANDARD, other);
    CapturedOutput output;
    sut().unregisterReceiver(&receiver);
    // Channel 2 falls silent although only `other` listens there.
    EXPECT_EQ(output.out(), "[DEBUG] MsgRxHandler::unregisterReceiver() \n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=false\n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgac, active=false\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_FALSE(isActive(MAIN));
    EXPECT_FALSE(isActive(EXTENSION));
}

TEST_F(MsgRxHandlerRegistryTest, NewRegistrationOnTheChannelWakesItsDeviceForTheOthersToo)
{
    registerQuietly(2, 1, CAN_STANDARD, receiver);
    registerQuietly(2, 1, CAN_STANDARD, other);
    {
        CapturedOutput ignored;
        sut().unregisterReceiver(&receiver);
    }
    EXPECT_FALSE(isActive(MAIN));
    registerQuietly(2, 7, CAN_STANDARD, receiver);
    EXPECT_TRUE(isActive(MAIN));
    dispatch(2, 1);
    EXPECT_EQ(other.frames.count(), 1U);
    EXPECT_EQ(receiver.frames.count(), 0U);
}

TEST_F(MsgRxHandlerRegistryTest, UnregisteredReceiverHearsNothingMoreAndEntriesStay)
{
    registerQuietly(1, 1, CAN_STANDARD, receiver);
    registerQuietly(1, 2, CAN_EXTENDED, receiver);
    registerQuietly(9, 1, CAN_STANDARD, receiver);
    CapturedOutput output;
    sut().unregisterReceiver(&receiver);
    EXPECT_EQ(book(), (Book{{1, {{1, {}}, {0x80000002, {}}}}, {9, {{1, {}}}}}));
    EXPECT_EQ((sut().*reveal(Receivers{})).size(), 0U);
    dispatch(1, 1);
    dispatch(1, 0x80000002);
    dispatch(9, 1);
    sut().informStateChangedReceivers(MsgRxHandlerCb::ONLINE, "");
    EXPECT_EQ(receiver.frames.count(), 0U);
    EXPECT_EQ(receiver.states.count(), 0U);
}

TEST_F(MsgRxHandlerRegistryTest, UnregisteringAnUnknownReceiverStillSilencesTheChannels)
{
    registerQuietly(0, 1, CAN_STANDARD, other);
    CapturedOutput output;
    sut().unregisterReceiver(&receiver);
    EXPECT_EQ(output.out(), "[DEBUG] MsgRxHandler::unregisterReceiver() \n"
                            "[INFO] MsgRxHandler::activateDeviceByCanChannel() Set device, "
                            "name=/dev/vqlog-fpgab, active=false\n");
    EXPECT_EQ((sut().*reveal(Receivers{})), (std::set<MsgRxHandlerCb*>{&other}));
    dispatch(0, 1);
    EXPECT_EQ(other.frames.count(), 1U);
}

TEST_F(MsgRxHandlerRegistryTest, UnregisteringFromAnEmptyRegistryWritesItsLineOnly)
{
    CapturedOutput output;
    sut().unregisterReceiver(&receiver);
    EXPECT_EQ(output.out(), "[DEBUG] MsgRxHandler::unregisterReceiver() \n");
    EXPECT_EQ(output.err(), "");
}

TEST_F(MsgRxHandlerRegistryTest, UnregisteringAReceiverTwiceDoesNoHarm)
{
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    CapturedOutput output;
    sut().unregisterReceiver(&receiver);
    sut().unregisterReceiver(&receiver);
    EXPECT_EQ((sut().*reveal(Receivers{})).size(), 0U);
}

/// Whether another thread could take the registry lock.
bool registryIsFree()
{
    return std::async(std::launch::async,
                      [] {
                          Mutex& lock = MsgRxHandler::getInstance()->*reveal(ReceiverMutex{});
                          const bool taken = lock.tryLock();
                          if (taken) {
                              lock.unlock();
                          }
                          return taken;
                      })
        .get();
}

TEST_F(MsgRxHandlerRegistryTest, RefusedLogLockLeavesRegistrationWithTheRegistryFreeAndUnchanged)
{
    const SecondThread second; // without one the log lock is not asked for
    sut();
    CapturedOutput output;
    {
        const loglock::Refusal refusal(EINVAL);
        EXPECT_THROW(sut().registerCanMessage(0, 1, CAN_STANDARD, &receiver), std::system_error);
    }
    EXPECT_TRUE(registryIsFree());
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(book(), Book{});
    EXPECT_EQ((sut().*reveal(Receivers{})).size(), 0U);
}

TEST_F(MsgRxHandlerRegistryTest, RefusedLogLockLeavesUnregistrationWithTheRegistryFreeAndUnchanged)
{
    const SecondThread second;
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    CapturedOutput output;
    {
        const loglock::Refusal refusal(EINVAL);
        EXPECT_THROW(sut().unregisterReceiver(&receiver), std::system_error);
    }
    EXPECT_TRUE(registryIsFree());
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(book(), (Book{{0, {{1, {&receiver}}}}}));
}

TEST_F(MsgRxHandlerRegistryTest, FramesMeetReceiversThatComeAndGoOnOtherThreads)
{
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    CapturedOutput ignored;
    std::atomic<bool> done{false};
    std::thread application([&] {
        for (unsigned round = 0; round < 200; ++round) {
            RecordingReceiver visitor;
            sut().registerCanMessage(0, 1, CAN_STANDARD, &visitor);
            sut().registerCanMessage(static_cast<unsigned char>(round), round, CAN_EXTENDED, &visitor);
            sut().unregisterReceiver(&visitor); // and is gone: no call may come any more
        }
        done = true;
    });
    unsigned frames = 0;
    while (!done) {
        dispatch(0, 1);
        dispatch(static_cast<uint8_t>(frames), 0x80000000 | (frames & 0xFF));
        ++frames;
    }
    application.join();
    EXPECT_GE(receiver.frames.count(), frames);
}

} // namespace
