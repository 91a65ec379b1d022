#include <logger/node/IsoTpPdu.h>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using vlogger::separationCodeOf;
using vlogger::separationTimeOf;

} // namespace

TEST(IsoTpPduTest, EverySeparationTimeCodeHasItsTime)
{
    for (unsigned code = 0; code <= 0x7F; ++code) {
        EXPECT_EQ(separationTimeOf(static_cast<uint8_t>(code)), std::chrono::milliseconds(code));
    }
    for (unsigned code = 0xF1; code <= 0xF9; ++code) {
        EXPECT_EQ(separationTimeOf(static_cast<uint8_t>(code)), (code - 0xF0) * 100us);
    }
}

TEST(IsoTpPduTest, ReservedSeparationTimeCodesAreTheLongest)
{
    for (unsigned code = 0x80; code <= 0xFF; ++code) {
        if (code < 0xF1 || code > 0xF9) {
            EXPECT_EQ(separationTimeOf(static_cast<uint8_t>(code)), 127ms) << code;
        }
    }
}

TEST(IsoTpPduTest, SeparationTimesAreCodedAndRoundedUp)
{
    EXPECT_EQ(separationCodeOf(0us), 0x00);
    EXPECT_EQ(separationCodeOf(1us), 0xF1);
    EXPECT_EQ(separationCodeOf(100us), 0xF1);
    EXPECT_EQ(separationCodeOf(101us), 0xF2);
    EXPECT_EQ(separationCodeOf(900us), 0xF9);
    EXPECT_EQ(separationCodeOf(901us), 0x01);
    EXPECT_EQ(separationCodeOf(1ms), 0x01);
    EXPECT_EQ(separationCodeOf(1001us), 0x02);
    EXPECT_EQ(separationCodeOf(127ms), 0x7F);
    EXPECT_EQ(separationCodeOf(1s), 0x7F);
}

TEST(IsoTpPduTest, FrameOfMoreThanEightBytesIsNone)
{
    EXPECT_FALSE(vlogger::decodeIsoTp(vlogger::Bytes(9), {}));
}
