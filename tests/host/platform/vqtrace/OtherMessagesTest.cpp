#include <vqtrace/CANTransportTraceMessage.h>
#include <vqtrace/SystemMessage.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

namespace {

using Bytes = std::vector<uint8_t>;
using namespace std::string_literals;

Bytes serialised(const MessageBase& message)
{
    Bytes out;
    message.createByteArray(out, true, false);
    return out;
}

std::string stripped(std::string text)
{
    SystemMessage message(128, 0, 19, std::move(text));
    message.stripNullChar();
    return message.text;
}

} // namespace

TEST(SystemMessageTest, RecordIsCommandAndText)
{
    const SystemMessage sut(128, 1, 19, "1 2");

    EXPECT_EQ(serialised(sut), (Bytes{0, 19, 0, 128, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 19, '1', ' ', '2'}));
}

TEST(SystemMessageTest, StripNullCharRemovesThoseAtTheEndOnly)
{
    EXPECT_EQ(stripped("1 2\0\0"s), "1 2");
    EXPECT_EQ(stripped("1\0002\0"s), "1\0002"s);
    EXPECT_EQ(stripped("1 2"), "1 2");
}

TEST(SystemMessageTest, StripNullCharOfNothingElseLeavesNothing)
{
    EXPECT_EQ(stripped("\0\0\0"s), "");
    EXPECT_EQ(stripped(""), "");
}

TEST(SystemMessageTest, TextNamesCommandAndText)
{
    EXPECT_EQ(textOf(SystemMessage(128, 0, 19, "1 2 1 2024 diag")), "command=19; text=1 2 1 2024 diag");
}

TEST(SystemMessageTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(SystemMessage(128, 0, 19, "x")), "command=19; text=x kept");
}

TEST(SystemMessageTest, CloneKeepsDynamicTypeAndFields)
{
    const SystemMessage sut(128, 5, 19, "text");

    const auto clone = sut.clone();

    ASSERT_NE(dynamic_cast<SystemMessage*>(clone.get()), nullptr);
    EXPECT_EQ(serialised(*clone), serialised(sut));
}

TEST(SystemMessageTest, RecordLongerThanItsLengthFieldSays65535)
{
    const Bytes longest = serialised(SystemMessage(128, 0, 19, std::string(65535 - 16, 'x')));
    const Bytes tooLong = serialised(SystemMessage(128, 0, 19, std::string(65536 - 16, 'x')));

    EXPECT_EQ(longest.size(), 65535U);
    EXPECT_EQ(tooLong.size(), 65536U);
    for (const Bytes& record : {longest, tooLong}) {
        EXPECT_EQ(record[0], 0xFF);
        EXPECT_EQ(record[1], 0xFF);
    }
}

TEST(CANTransportTraceMessageTest, ConstructorTakesItsArgumentsInOrder)
{
    const CANTransportTraceMessage sut(0x8014, 7, {1, 2, 3}, 0xFFFFFFFF, CAN_EXTENDED);

    EXPECT_EQ(sut.msgId, 0x8014);
    EXPECT_EQ(sut.time, 7U);
    EXPECT_EQ(sut.data, (Bytes{1, 2, 3}));
    EXPECT_EQ(sut.canId, 0xFFFFFFFF);
    EXPECT_EQ(sut.type, CAN_EXTENDED);
}

TEST(CANTransportTraceMessageTest, RecordIsIdentifierTypeAndPayload)
{
    const CANTransportTraceMessage sut(0x8014, 1, {0xAA, 0xBB}, 0x18DA00F1, CAN_EXTENDED);

    EXPECT_EQ(serialised(sut), (Bytes{0, 24, 0x80, 0x14, 0,    0,    0, 0, 0, 0, 0,    0,
                                      0, 1,  0x18, 0xDA, 0x00, 0xF1, 0, 0, 0, 1, 0xAA, 0xBB}));
}

TEST(CANTransportTraceMessageTest, TextNamesTheFields)
{
    EXPECT_EQ(textOf(CANTransportTraceMessage(0x8014, 0, {0x22, 0xF1, 0x90}, 0x7E0, CAN_STANDARD)),
              "id=0x7e0; type=standard; length=3; data= 22 f1 90");
}

TEST(CANTransportTraceMessageTest, TextOfALongPayloadHasAllOfIt)
{
    const std::string text = textOf(CANTransportTraceMessage(0x8014, 0, Bytes(4095, 0xAB), 1, CAN_STANDARD));

    const std::string start = "id=0x1; type=standard; length=4095; data=";
    EXPECT_EQ(text.substr(0, start.size()), start);
    EXPECT_EQ(text.size(), start.size() + 4095 * 3);
}

TEST(CANTransportTraceMessageTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(CANTransportTraceMessage(0x8014, 0, {}, 0xAB, CAN_STANDARD)),
              "id=0xab; type=standard; length=0; data= kept");
}

TEST(CANTransportTraceMessageTest, CloneKeepsDynamicTypeAndFields)
{
    const CANTransportTraceMessage sut(0x8014, 7, {1, 2, 3}, 5, CAN_EXTENDED);

    const auto clone = sut.clone();

    ASSERT_NE(dynamic_cast<CANTransportTraceMessage*>(clone.get()), nullptr);
    EXPECT_EQ(serialised(*clone), serialised(sut));
}
