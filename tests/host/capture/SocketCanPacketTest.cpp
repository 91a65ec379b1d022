#include <capture/SocketCanPacket.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

namespace capture {

namespace {

using Bytes = std::vector<uint8_t>;

CandumpFrame frameOf(const std::string& text)
{
    CandumpFrame frame;
    EXPECT_TRUE(parseCandumpLine("(0.000000) can0 " + text, frame));
    return frame;
}

Bytes packetOf(const std::string& text)
{
    std::array<uint8_t, SOCKETCAN_MAX_BYTES> out{};
    const size_t length = encodeSocketCan(frameOf(text), out);
    return {out.begin(), out.begin() + static_cast<std::ptrdiff_t>(length)};
}

std::string refusalOf(const Bytes& packet)
{
    CandumpFrame frame;
    return decodeSocketCan(packet, frame);
}

} // namespace

TEST(SocketCanPacketTest, EachKindOfFrameHasItsBytes)
{
    const std::vector<std::pair<std::string, Bytes>> cases{
        {"123#DEAD", {0, 0, 0x01, 0x23, 2, 0, 0, 0, 0xDE, 0xAD}},
        {"1F334455#11", {0x9F, 0x33, 0x44, 0x55, 1, 0, 0, 0, 0x11}},
        {"123#R4", {0x40, 0, 0x01, 0x23, 4, 0, 0, 0}},
        {"00000123#R", {0xC0, 0, 0x01, 0x23, 0, 0, 0, 0}},
        {"123#R8_9", {0x40, 0, 0x01, 0x23, 8, 0, 0, 9}},
        {"123#1122334455667788_F", {0, 0, 0x01, 0x23, 8, 0, 0, 15, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}},
        {"20000004#00", {0x20, 0, 0, 0x04, 1, 0, 0, 0, 0}},
        {"123##1AA", {0, 0, 0x01, 0x23, 1, 5, 0, 0, 0xAA}},
        {"1F334455##2", {0x9F, 0x33, 0x44, 0x55, 0, 6, 0, 0}},
        {"123##B", {0, 0, 0x01, 0x23, 0, 15, 0, 0}},
    };
    for (const auto& [text, bytes] : cases) {
        EXPECT_EQ(packetOf(text), bytes) << text;
        CandumpFrame frame = frameOf("7FF#0102030405060708");
        EXPECT_EQ(decodeSocketCan(bytes, frame), "") << text;
        EXPECT_EQ(frame, frameOf(text)) << text;
    }
}

TEST(SocketCanPacketTest, EveryLengthComesBack)
{
    for (const bool isFd : {false, true}) {
        for (uint8_t length = 0; length <= (isFd ? 64 : 8); ++length) {
            CandumpFrame frame;
            frame.isFd = isFd;
            frame.id = 0x7FF;
            frame.lengthBytes = length;
            std::fill_n(frame.payload.begin(), length, uint8_t{0x5A});
            std::array<uint8_t, SOCKETCAN_MAX_BYTES> out{};
            const size_t size = encodeSocketCan(frame, out);
            CandumpFrame back;
            EXPECT_EQ(decodeSocketCan(std::span(out).first(size), back), "");
            EXPECT_EQ(back, frame) << int{length};
        }
    }
}

TEST(SocketCanPacketTest, PaddingOfTheKernelIsAccepted)
{
    CandumpFrame frame = frameOf("7FF#");
    EXPECT_EQ(decodeSocketCan(Bytes{0, 0, 1, 0x23, 1, 0, 0, 0, 0xAA, 0, 0, 0, 0, 0, 0, 0}, frame), "");
    EXPECT_EQ(frame, frameOf("123#AA"));
}

TEST(SocketCanPacketTest, LengthCodeThatCannotBeIsIgnored)
{
    CandumpFrame frame;
    for (const Bytes& packet :
         {Bytes{0, 0, 1, 0x23, 8, 0, 0, 16, 1, 2, 3, 4, 5, 6, 7, 8},
          Bytes{0, 0, 1, 0x23, 8, 0, 0, 8, 1, 2, 3, 4, 5, 6, 7, 8}, Bytes{0, 0, 1, 0x23, 1, 0, 0, 15, 1},
          Bytes{0, 0, 1, 0x23, 8, 4, 0, 15, 1, 2, 3, 4, 5, 6, 7, 8}}) {
        EXPECT_EQ(decodeSocketCan(packet, frame), "");
        EXPECT_EQ(frame.lengthCode, 0);
    }
}

TEST(SocketCanPacketTest, FullSizedPacketWithoutTheFlagIsStillFd)
{
    Bytes packet(72);
    packet[3] = 0x10;
    packet[4] = 2;
    CandumpFrame frame;
    EXPECT_EQ(decodeSocketCan(packet, frame), "");
    EXPECT_TRUE(frame.isFd);
    EXPECT_EQ(frame.lengthBytes, 2);
}

TEST(SocketCanPacketTest, MalformedPacketIsRefusedWithItsReason)
{
    EXPECT_EQ(refusalOf({}), "the packet is shorter than the header of a CAN frame");
    EXPECT_EQ(refusalOf(Bytes(7)), "the packet is shorter than the header of a CAN frame");
    EXPECT_EQ(refusalOf({0, 0, 1, 0x23, 3, 0, 0, 0, 1, 2}), "the packet ends before its payload does");
    EXPECT_EQ(refusalOf({0, 0, 1, 0x23, 65, 4, 0, 0}), "the payload is longer than its kind of frame allows");
    EXPECT_EQ(refusalOf({0x40, 0, 1, 0x23, 9, 0, 0, 0}), "the payload is longer than its kind of frame allows");
    EXPECT_EQ(refusalOf({0, 0, 1, 0x23, 0x80, 0, 0, 0, 0, 0, 0, 0}), "the packet is a CAN XL frame");
}

} // namespace capture
