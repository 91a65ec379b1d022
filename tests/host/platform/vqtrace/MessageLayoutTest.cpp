#include <vqio/PIE.h>
#include <vqpbus/VQPBusProxyCallback.h>
#include <vqproc/IPConfig.h>
#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/CANTransportTraceMessage.h>
#include <vqtrace/SystemMessage.h>
#include <vqutil/hexdump.h>

#include <gtest/gtest.h>
#include <support/PrivateMember.h>

#include <cstddef>
#include <type_traits>
#include <vector>

// What the library, compiled apart from the platform, relies on: the order, place and width of the public fields
// and the values of the enumerations.

namespace {

template <typename Enumeration, typename Underlying>
constexpr bool isStoredAs = std::is_same_v<std::underlying_type_t<Enumeration>, Underlying>;

static_assert(isStoredAs<cantype_t, uint32_t>);
static_assert(CAN_STANDARD == 0 && CAN_EXTENDED == 1 && CAN_FD_STANDARD == 2 && CAN_FD_EXTENDED == 3);
static_assert(CAN_STANDARD_ID_MASK == 2047 && CAN_EXTENDED_ID_MASK == 0x1FFFFFFF);

static_assert(isStoredAs<canframe_t, uint32_t>);
static_assert(CAN_FRAME_DATA == 0 && CAN_FRAME_REMOTE == 1 && CAN_FRAME_TX == 2);

static_assert(isStoredAs<canstaterr_t, uint8_t>);
static_assert(CAN_STATE_OK == 0);

static_assert(isStoredAs<PIE::deviceCode_t, uint32_t>);
static_assert(PIE::DEVICE_NONE == 0 && PIE::DEVICE_EXTENSION_BOARD == 4);

static_assert(isStoredAs<VQPBusProxyCallback::StatusCBType_t, uint32_t>);
static_assert(VQPBusProxyCallback::STATUS_INFO == 0 && VQPBusProxyCallback::STATUS_WARNING == 1 &&
              VQPBusProxyCallback::STATUS_ERROR == 2);

static_assert(isStoredAs<hexdumpPrefix_t, unsigned int>);
static_assert(HEXDUMP_PREFIX_TEXT == 0 && HEXDUMP_PREFIX_TEXT_OFFSET == 1);

static_assert(std::is_same_v<msgid_t, uint16_t>);
static_assert(CANExtTraceMessage::MESSAGE_ID == 11);
static_assert(CANTransportTraceMessage::MESSAGE_ID == 0x8014);
static_assert(SystemMessage::MESSAGE_ID == 128);
static_assert(SystemMessage::COMMAND_REGISTER == 19);

static_assert(std::is_base_of_v<MessageBase, CANTraceMessageBase>);
static_assert(std::is_base_of_v<CANTraceMessageBase, CANExtTraceMessage>);
static_assert(std::is_base_of_v<MessageBase, CANTransportTraceMessage>);
static_assert(std::is_base_of_v<MessageBase, SystemMessage>);

static_assert(std::is_same_v<decltype(CANTraceMessageBase::channel), uint8_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::frame), canframe_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::stateErr), canstaterr_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::type), cantype_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::length), uint8_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::canId), uint32_t>);
static_assert(std::is_same_v<decltype(CANTraceMessageBase::data), uint8_t[64]>);

using Offsets = std::vector<size_t>;

/// Where the fields of an object begin, in the order in which they are named.
template <typename Object, typename... Fields>
Offsets offsetsIn(const Object& object, Fields... fields)
{
    return {static_cast<size_t>(offsetIn(object, fields))...};
}

} // namespace

TEST(MessageLayoutTest, MessageBase)
{
    const MessageBase message(1, 2);

    EXPECT_EQ(offsetsIn(message, &MessageBase::msgId, &MessageBase::time, &MessageBase::byteArray),
              (Offsets{8, 16, 24}));
    EXPECT_EQ(sizeof(MessageBase), 48U);
    EXPECT_EQ(sizeof(message.msgId), 2U);
    EXPECT_EQ(sizeof(message.time), 8U);
}

TEST(MessageLayoutTest, CANTraceMessageBase)
{
    const CANTraceMessageBase message(11, 0, 0, CAN_FRAME_DATA, CAN_STATE_OK, CAN_STANDARD, 0, 0, nullptr);

    EXPECT_EQ(offsetsIn(message, &CANTraceMessageBase::channel, &CANTraceMessageBase::frame,
                        &CANTraceMessageBase::stateErr, &CANTraceMessageBase::type, &CANTraceMessageBase::length,
                        &CANTraceMessageBase::canId, &CANTraceMessageBase::data),
              (Offsets{48, 52, 56, 60, 64, 68, 72}));
    EXPECT_EQ(sizeof(CANTraceMessageBase), 136U);
}

TEST(MessageLayoutTest, CANExtTraceMessageAddsNothing)
{
    EXPECT_EQ(sizeof(CANExtTraceMessage), sizeof(CANTraceMessageBase));
}

TEST(MessageLayoutTest, CANTransportTraceMessage)
{
    const CANTransportTraceMessage message(0x8014, 0, {}, 0, CAN_STANDARD);

    EXPECT_EQ(offsetsIn(message, &CANTransportTraceMessage::data, &CANTransportTraceMessage::canId,
                        &CANTransportTraceMessage::type),
              (Offsets{48, 72, 76}));
    EXPECT_EQ(sizeof(CANTransportTraceMessage), 80U);
}

TEST(MessageLayoutTest, SystemMessage)
{
    const SystemMessage message(128, 0, 19, "");

    EXPECT_EQ(offsetsIn(message, &SystemMessage::command, &SystemMessage::text), (Offsets{48, 56}));
    EXPECT_EQ(sizeof(SystemMessage), 88U);
}

TEST(MessageLayoutTest, EthernetConfigFieldsFollowEachOtherInTheStatedOrder)
{
    const ethernetConfig_t config;

    EXPECT_EQ(offsetsIn(config, &ethernetConfig_t::reserved0, &ethernetConfig_t::interfaceName,
                        &ethernetConfig_t::reserved1, &ethernetConfig_t::serverIp, &ethernetConfig_t::port,
                        &ethernetConfig_t::reserved2, &ethernetConfig_t::loggerIp, &ethernetConfig_t::subnet,
                        &ethernetConfig_t::gatewayIp),
              (Offsets{0, 8, 40, 48, 80, 88, 128, 160, 192}));
}
