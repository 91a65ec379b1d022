#include <vqio/PIE.h>

#include <gtest/gtest.h>
#include <support/TextOf.h>

TEST(DeviceCodeTest, CodeIsWrittenAsADecimalNumber)
{
    EXPECT_EQ(textOf(PIE::DEVICE_NONE), "0");
    EXPECT_EQ(textOf(PIE::DEVICE_EXTENSION_BOARD), "4");
    EXPECT_EQ(textOf(static_cast<PIE::deviceCode_t>(0xFFFFFFFF)), "4294967295");
}

TEST(DeviceCodeTest, StreamFlagsHaveNoEffectAndStay)
{
    EXPECT_EQ(textOnOddStream(static_cast<PIE::deviceCode_t>(20)), "20 kept");
}
