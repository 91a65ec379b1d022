#include "vqtrace/MessageDecoder.h"

#include <vqtrace/CANExtTraceMessage.h>
#include <vqtrace/CANTransportTraceMessage.h>
#include <vqtrace/SystemMessage.h>

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t PAYLOAD[64] = {1, 2, 3, 4, 5, 6, 7, 8};

Bytes serialised(const MessageBase& message)
{
    Bytes out;
    message.createByteArray(out, true, false);
    return out;
}

/// Serialises, decodes, and says whether the same bytes come out again.
template <typename Message>
testing::AssertionResult comesBack(const Message& message)
{
    const Bytes record = serialised(message);
    const auto decoded = vqhost::decodeMessage(record);
    if (decoded == nullptr) {
        return testing::AssertionFailure() << "not decoded";
    }
    if (dynamic_cast<Message*>(decoded.get()) == nullptr) {
        return testing::AssertionFailure() << "another type";
    }
    return serialised(*decoded) == record ? testing::AssertionSuccess()
                                          : testing::AssertionFailure() << "another record";
}

} // namespace

TEST(MessageDecoderTest, CanFrameOfEveryTypeAndLengthComesBack)
{
    for (uint32_t type = 0; type < 6; ++type) {
        for (unsigned length = 0; length <= 64; ++length) {
            const CANExtTraceMessage message(11, 99, 7, CAN_FRAME_TX, static_cast<canstaterr_t>(200),
                                             static_cast<cantype_t>(type), static_cast<unsigned char>(length),
                                             0xFFFFFFFF, PAYLOAD);
            EXPECT_TRUE(comesBack(message)) << type << " " << length;
        }
    }
}

TEST(MessageDecoderTest, RemoteFrameComesBack)
{
    EXPECT_TRUE(comesBack(
        CANExtTraceMessage(11, 0, 7, CAN_FRAME_REMOTE, CAN_STATE_OK, CAN_EXTENDED, 8, 0x1234567, PAYLOAD)));
}

TEST(MessageDecoderTest, DecodedCanFrameHasTheFields)
{
    const CANExtTraceMessage message(11, 99, 7, CAN_FRAME_TX, static_cast<canstaterr_t>(200), CAN_FD_EXTENDED, 9,
                                     0x1ABCDEF0, PAYLOAD);

    const auto decoded = vqhost::decodeMessage(serialised(message));

    const auto* const frame = dynamic_cast<CANExtTraceMessage*>(decoded.get());
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->msgId, 11);
    EXPECT_EQ(frame->time, 99U);
    EXPECT_EQ(frame->channel, 7);
    EXPECT_EQ(frame->frame, CAN_FRAME_TX);
    EXPECT_EQ(frame->stateErr, 200);
    EXPECT_EQ(frame->type, CAN_FD_EXTENDED);
    EXPECT_EQ(frame->length, 9);
    EXPECT_EQ(frame->canId, 0x1ABCDEF0U);
    EXPECT_EQ(frame->data[7], 8);
}

TEST(MessageDecoderTest, SystemMessageComesBack)
{
    EXPECT_TRUE(comesBack(SystemMessage(128, 3, 19, "1 2 1 2024 diag")));
    EXPECT_TRUE(comesBack(SystemMessage(128, 3, 0xFFFF, "")));
    EXPECT_TRUE(comesBack(SystemMessage(128, 3, 0, std::string(65535 - 16, '\0'))));
}

TEST(MessageDecoderTest, TransportMessageComesBack)
{
    EXPECT_TRUE(comesBack(CANTransportTraceMessage(0x8014, 3, {}, 0xFFFFFFFF, static_cast<cantype_t>(0xFFFFFFFF))));
    EXPECT_TRUE(comesBack(CANTransportTraceMessage(0x8014, 3, Bytes(4095, 0x5A), 0x7E0, CAN_STANDARD)));
}

TEST(MessageDecoderTest, UnknownTypeBecomesABaseMessageThatCarriesItsRecord)
{
    const Bytes record{0, 16, 0x77, 0x01, 0, 0, 0, 0, 0, 0, 0, 0, 0, 5, 0xAA, 0xBB};

    const auto decoded = vqhost::decodeMessage(record);

    ASSERT_NE(decoded, nullptr);
    EXPECT_EQ(decoded->msgId, 0x7701);
    EXPECT_EQ(decoded->time, 5U);
    EXPECT_EQ(decoded->byteArray, record);
}

TEST(MessageDecoderTest, TooLongMessageIsRefused)
{
    EXPECT_EQ(vqhost::decodeMessage(serialised(SystemMessage(128, 0, 19, std::string(65536, 'x')))), nullptr);
    EXPECT_EQ(vqhost::decodeMessage(serialised(CANTransportTraceMessage(0x8014, 0, Bytes(65536), 0, CAN_STANDARD))),
              nullptr);
}

TEST(MessageDecoderTest, CutRecordIsRefusedWhereverItIsCut)
{
    const SystemMessage system(128, 3, 19, "text");
    const CANTransportTraceMessage transport(0x8014, 3, {1, 2, 3}, 5, CAN_STANDARD);
    const CANExtTraceMessage frame(11, 0, 7, CAN_FRAME_TX, CAN_STATE_OK, CAN_STANDARD, 8, 1, PAYLOAD);
    for (const MessageBase* message :
         {static_cast<const MessageBase*>(&system), static_cast<const MessageBase*>(&transport),
          static_cast<const MessageBase*>(&frame)}) {
        const Bytes record = serialised(*message);
        for (size_t size = 0; size < record.size(); ++size) {
            EXPECT_EQ(vqhost::decodeMessage(std::span(record).first(size)), nullptr) << size;
        }
    }
}

TEST(MessageDecoderTest, BytesBehindTheRecordAreRefused)
{
    Bytes record = serialised(SystemMessage(128, 3, 19, "text"));
    record.push_back(0);

    EXPECT_EQ(vqhost::decodeMessage(record), nullptr);
}

TEST(MessageDecoderTest, RecordTooShortForItsTypeIsRefused)
{
    EXPECT_EQ(vqhost::decodeMessage(Bytes{0, 15, 0, 128, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr);
    EXPECT_EQ(vqhost::decodeMessage(Bytes{0, 14, 0x80, 0x14, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr);
    EXPECT_EQ(vqhost::decodeMessage(Bytes{0, 14, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}), nullptr);
}
