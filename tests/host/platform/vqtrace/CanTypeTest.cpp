#include <vqtrace/cantype.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

namespace {

constexpr uint32_t ALL_BITS = 0xFFFFFFFF;

} // namespace

TEST(CanTypeTest, TypesAreWrittenAsTheirNames)
{
    EXPECT_EQ(textOf(CAN_STANDARD), "standard");
    EXPECT_EQ(textOf(CAN_EXTENDED), "extended");
    EXPECT_EQ(textOf(CAN_FD_STANDARD), "FD standard");
    EXPECT_EQ(textOf(CAN_FD_EXTENDED), "FD extended");
}

TEST(CanTypeTest, UnknownTypeIsWrittenWithItsDecimalValue)
{
    EXPECT_EQ(textOf(static_cast<cantype_t>(4)), "unknown type 4");
    EXPECT_EQ(textOf(static_cast<cantype_t>(ALL_BITS)), "unknown type 4294967295");
}

TEST(CanTypeTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(CAN_EXTENDED), "extended kept");
    EXPECT_EQ(textOnOddStream(static_cast<cantype_t>(20)), "unknown type 20 kept");
}

TEST(CanTypeTest, OnlyOneAndThreeAreExtended)
{
    for (uint32_t value = 0; value < 300; ++value) {
        EXPECT_EQ(isExtendedType(static_cast<cantype_t>(value)), value == 1 || value == 3) << value;
    }
    EXPECT_FALSE(isExtendedType(static_cast<cantype_t>(ALL_BITS)));
}

TEST(CanTypeTest, IdentifierKeepsTheBitsOfItsType)
{
    EXPECT_EQ(maskedCanId(ALL_BITS, CAN_STANDARD), 0x7FFU);
    EXPECT_EQ(maskedCanId(ALL_BITS, CAN_EXTENDED), 0x1FFFFFFFU);
    EXPECT_EQ(maskedCanId(ALL_BITS, CAN_FD_STANDARD), 0x7FFU);
    EXPECT_EQ(maskedCanId(ALL_BITS, CAN_FD_EXTENDED), 0x1FFFFFFFU);
    EXPECT_EQ(maskedCanId(ALL_BITS, static_cast<cantype_t>(5)), 0x7FFU);
}
