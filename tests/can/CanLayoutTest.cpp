#include <CanInterface.h>
#include <CanTxHandler.h>
#include <InterfaceBase.h>
#include <MsgRxHandler.h>

#include <support/PrivateMember.h>
#include <support/VirtualSlot.h>

#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <type_traits>

// The binary interface of raw CAN: virtual slots, the order of members, and values. x86-64 and AArch64.

REVEAL_MEMBER(Configured, CanInterface, configured);
REVEAL_MEMBER(Channel, CanInterface, channel);
REVEAL_MEMBER(Id, CanInterface, id);
REVEAL_MEMBER(Type, CanInterface, type);
REVEAL_MEMBER(ReceiveIds, CanInterface, receiveIds);

REVEAL_MEMBER(DispatcherDebug, MsgRxHandler, debug);
REVEAL_MEMBER(ThreadHandle, MsgRxHandler, threadHandle);
REVEAL_MEMBER(Running, MsgRxHandler, running);
REVEAL_MEMBER(ReceiverMutex, MsgRxHandler, receiverMutex);
REVEAL_MEMBER(StateMutex, MsgRxHandler, stateMutex);
REVEAL_MEMBER(Devices, MsgRxHandler, devices);
REVEAL_MEMBER(FpgabOffset, MsgRxHandler, fpgabOffset);
REVEAL_MEMBER(FpgacOffset, MsgRxHandler, fpgacOffset);
REVEAL_MEMBER(Receivers, MsgRxHandler, receivers);
REVEAL_MEMBER(ChannelReceivers, MsgRxHandler, channelReceivers);

namespace {

using Configuration = CanInterface::Configuration;

// Members that several threads share are atomics in the place of the plain ones.
static_assert(sizeof(std::atomic<bool>) == sizeof(bool));
static_assert(sizeof(std::atomic<uint8_t>) == sizeof(uint8_t));
static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t));
static_assert(sizeof(std::atomic<cantype_t>) == sizeof(cantype_t));
static_assert(sizeof(std::atomic<pthread_t>) == sizeof(pthread_t));

TEST(CanLayoutTest, InterfaceBaseSlots)
{
    using Base = InterfaceBase<CANExtTraceMessage>;
    EXPECT_EQ(slotOf(static_cast<int (Base::*)(const uint8_t*, size_t)>(&Base::send)), 2U);
    EXPECT_EQ(slotOf(static_cast<int (Base::*)(CANExtTraceMessage&)>(&Base::send)), 3U);
    static_assert(std::has_virtual_destructor_v<Base>);
}

TEST(CanLayoutTest, InterfaceBaseCbSlots)
{
    EXPECT_EQ(slotOf(&InterfaceBaseCb::onDataReceived), 2U);
    EXPECT_EQ(slotOf(&InterfaceBaseCb::onInterfaceState), 3U);
    static_assert(std::has_virtual_destructor_v<InterfaceBaseCb>);
}

TEST(CanLayoutTest, MsgRxHandlerCbSlots)
{
    EXPECT_EQ(slotOf(&MsgRxHandlerCb::onStateChanged), 2U);
    EXPECT_EQ(slotOf(&MsgRxHandlerCb::onRawReceived), 3U);
    static_assert(std::has_virtual_destructor_v<MsgRxHandlerCb>);
}

TEST(CanLayoutTest, CanInterfaceSlots)
{
    EXPECT_EQ(slotOf(static_cast<int (CanInterface::*)(const uint8_t*, size_t)>(&CanInterface::send)), 2U);
    EXPECT_EQ(slotOf(static_cast<int (CanInterface::*)(CANExtTraceMessage&)>(&CanInterface::send)), 3U);
    // The receiver part's own table is MsgRxHandlerCb's; the class's table repeats its operations at the end.
    EXPECT_EQ(slotOf(&CanInterface::onStateChanged), 4U);
    EXPECT_EQ(slotOf(&CanInterface::onRawReceived), 5U);
}

TEST(CanLayoutTest, MsgRxHandlerSlots)
{
    EXPECT_EQ(slotOf(&MsgRxHandler::threadCode), 2U);
    static_assert(std::has_virtual_destructor_v<MsgRxHandler>);
}

TEST(CanLayoutTest, InterfaceBaseMembersFollowTheTable)
{
    struct Interface : InterfaceBase<int>
    {
        int send(const uint8_t* /*data*/, size_t /*size*/) override { return 0; }
        int send(int& /*msg*/) override { return 0; }
    } const interface;
    EXPECT_EQ(offsetIn(interface, &InterfaceBase<int>::debugLevel), 8U);
    EXPECT_EQ(offsetIn(interface, &InterfaceBase<int>::callbacks), 16U);
    EXPECT_EQ(interface.debugLevel, 0);
    EXPECT_TRUE(interface.callbacks.empty());
}

TEST(CanLayoutTest, ConfigurationFieldsLieInOrder)
{
    EXPECT_EQ(offsetof(Configuration, channel), 0U);
    EXPECT_EQ(offsetof(Configuration, id), 4U);
    EXPECT_EQ(offsetof(Configuration, type), 8U);
    EXPECT_EQ(offsetof(Configuration, receiveIds), 16U);
    EXPECT_EQ(sizeof(Configuration), 16U + sizeof(std::vector<Configuration::idPair_t>));
    EXPECT_EQ(offsetof(Configuration::idPair_t, id), 0U);
    EXPECT_EQ(offsetof(Configuration::idPair_t, type), 4U);
    EXPECT_EQ(sizeof(Configuration::idPair_t), 8U);
}

TEST(CanLayoutTest, CanInterfaceBasesAndMembersLieInOrder)
{
    static_assert(std::is_convertible_v<CanInterface*, InterfaceBase<CANExtTraceMessage>*>);
    static_assert(!std::is_convertible_v<CanInterface*, MsgRxHandlerCb*>, "the receiver part is nobody else's");
    const CanInterface sut;
    const size_t bases = sizeof(InterfaceBase<CANExtTraceMessage>) + sizeof(MsgRxHandlerCb);
    EXPECT_EQ(offsetIn(sut, reveal(Configured{})), bases);
    EXPECT_EQ(offsetIn(sut, reveal(Channel{})), bases + 1);
    EXPECT_EQ(offsetIn(sut, reveal(Id{})), bases + 4);
    EXPECT_EQ(offsetIn(sut, reveal(Type{})), bases + 8);
    EXPECT_EQ(offsetIn(sut, reveal(ReceiveIds{})), bases + 16);
    EXPECT_EQ(sizeof(CanInterface), bases + 16 + sizeof(std::vector<Configuration::idPair_t>));
}

TEST(CanLayoutTest, NewCanInterfaceIsUnconfiguredAndEmpty)
{
    const CanInterface sut;
    EXPECT_FALSE(sut.*reveal(Configured{}));
    EXPECT_TRUE((sut.*reveal(ReceiveIds{})).empty());
}

TEST(CanLayoutTest, MsgRxHandlerMembersLieInOrder)
{
    static_assert(std::is_base_of_v<Thread, MsgRxHandler>);
    const MsgRxHandler& sut = *MsgRxHandler::getInstance();
    size_t expected = sizeof(void*);
    EXPECT_EQ(offsetIn(sut, reveal(ThreadHandle{})), expected);
    EXPECT_EQ(offsetIn(sut, reveal(Running{})), expected += sizeof(pthread_t));
    EXPECT_EQ(offsetIn(sut, reveal(ReceiverMutex{})), expected += 8);
    EXPECT_EQ(offsetIn(sut, reveal(StateMutex{})), expected += sizeof(Mutex));
    EXPECT_EQ(offsetIn(sut, reveal(Devices{})), expected += sizeof(Mutex));
    EXPECT_EQ(offsetIn(sut, reveal(FpgabOffset{})), expected += sizeof(std::map<int, int>));
    EXPECT_EQ(offsetIn(sut, reveal(FpgacOffset{})), expected += 8);
    EXPECT_EQ(offsetIn(sut, reveal(Receivers{})), expected += 8);
    EXPECT_EQ(offsetIn(sut, reveal(ChannelReceivers{})), expected += sizeof(std::set<int>));
}

TEST(CanLayoutTest, DispatcherDebugLevelIsOne)
{
    EXPECT_EQ(*reveal(DispatcherDebug{}), 1);
}

TEST(CanLayoutTest, NewDispatcherIsOfflineWithoutOffsets)
{
    const MsgRxHandler& sut = *MsgRxHandler::getInstance();
    EXPECT_EQ(sut.*reveal(ThreadHandle{}), static_cast<pthread_t>(-1));
    EXPECT_FALSE(sut.*reveal(Running{}));
    EXPECT_EQ(sut.*reveal(FpgabOffset{}), 0U);
    EXPECT_EQ(sut.*reveal(FpgacOffset{}), 0U);
    EXPECT_TRUE((sut.*reveal(Receivers{})).empty());
    EXPECT_TRUE((sut.*reveal(ChannelReceivers{})).empty());
}

struct StateText
{
    uint32_t value;
    const char* text;
};

class HandlerStateTest : public testing::TestWithParam<StateText>
{
};

TEST_P(HandlerStateTest, WritesItsNameAndNothingElse)
{
    std::ostringstream stream;
    stream << static_cast<MsgRxHandlerCb::handlerState_t>(GetParam().value);
    EXPECT_EQ(stream.str(), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(States, HandlerStateTest,
                         testing::Values(StateText{0, "UNDEFINED"}, StateText{1, "ONLINE"}, StateText{2, "OFFLINE"},
                                         StateText{3, "ERROR"}, StateText{4, "invalid handler state"},
                                         StateText{0xFFFFFFFF, "invalid handler state"}),
                         [](const auto& tested) { return "State" + std::to_string(tested.param.value); });

TEST(CanLayoutTest, HandlerStateValues)
{
    static_assert(std::is_same_v<std::underlying_type_t<MsgRxHandlerCb::handlerState_t>, uint32_t>);
    EXPECT_EQ(MsgRxHandlerCb::UNDEFINED, 0U);
    EXPECT_EQ(MsgRxHandlerCb::ONLINE, 1U);
    EXPECT_EQ(MsgRxHandlerCb::OFFLINE, 2U);
    EXPECT_EQ(MsgRxHandlerCb::ERROR, 3U);
}

} // namespace
