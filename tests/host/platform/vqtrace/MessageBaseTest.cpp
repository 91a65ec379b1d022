#include <vqtrace/MessageBase.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

namespace {

using Bytes = std::vector<uint8_t>;

} // namespace

TEST(MessageBaseTest, ConstructorKeepsIdentifierAndTime)
{
    const MessageBase sut(0x8014, 0xFFFFFFFFFFFFFFFF);

    EXPECT_EQ(sut.msgId, 0x8014);
    EXPECT_EQ(sut.time, 0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(sut.byteArray.empty());
}

TEST(MessageBaseTest, ByteArrayIsTheBigEndianRecordStart)
{
    const MessageBase sut(0x1234, 0x0102030405060708);
    Bytes out;

    sut.createByteArray(out, true, false);

    EXPECT_EQ(out, (Bytes{0, 14, 0x12, 0x34, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(MessageBaseTest, WithoutHeaderTheFirstSixBytesAreLeftOut)
{
    const MessageBase sut(0x1234, 0x0102030405060708);
    Bytes out{9, 9, 9};

    sut.createByteArray(out, false, false);

    EXPECT_EQ(out, (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(MessageBaseTest, WithoutAppendTheOldBytesAreReplaced)
{
    const MessageBase sut(1, 0);
    Bytes out(100, 0xEE);

    sut.createByteArray(out, true, false);

    EXPECT_EQ(out, (Bytes{0, 14, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST(MessageBaseTest, AppendKeepsTheOldBytesInFront)
{
    const MessageBase sut(1, 2);
    Bytes out{0xAA};

    sut.createByteArray(out, true, true);

    EXPECT_EQ(out, (Bytes{0xAA, 0, 14, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2}));
}

TEST(MessageBaseTest, AppendWithoutHeaderKeepsTheOldBytesInFront)
{
    const MessageBase sut(1, 2);
    Bytes out{0xAA, 0xBB};

    sut.createByteArray(out, false, true);

    EXPECT_EQ(out, (Bytes{0xAA, 0xBB, 0, 0, 0, 0, 0, 0, 0, 2}));
}

TEST(MessageBaseTest, TextNamesIdentifierAndTime)
{
    EXPECT_EQ(textOf(MessageBase(11, 1234567)), "message=11; time=1234567");
}

TEST(MessageBaseTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(MessageBase(11, 10)), "message=11; time=10 kept");
}

TEST(MessageBaseTest, CloneIsAnEqualMessageOfItsOwn)
{
    MessageBase sut(11, 10);
    sut.byteArray = {1, 2};

    const auto clone = sut.clone();
    sut.byteArray.clear();

    EXPECT_EQ(clone->msgId, 11);
    EXPECT_EQ(clone->time, 10U);
    EXPECT_EQ(clone->byteArray, (Bytes{1, 2}));
}
