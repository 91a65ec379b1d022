#include <capture/PcapngEncoder.h>
#include <capture/PcapngReader.h>

#include <gtest/gtest.h>

#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

namespace {

CaptureFrame frameOf(const std::string& line, Direction direction = Direction::UNKNOWN, uint64_t droppedBefore = 0)
{
    CaptureFrame frame;
    frame.direction = direction;
    frame.droppedBefore = droppedBefore;
    EXPECT_TRUE(parseCandumpLine(line, frame.frame));
    return frame;
}

/// Builds the bytes of a file in either byte order.
class FileBuilder
{
public:
    explicit FileBuilder(bool bigEndian) : isBig(bigEndian) {}

    FileBuilder& u8(unsigned value)
    {
        bytes += static_cast<char>(value);
        return *this;
    }
    FileBuilder& u16(unsigned value)
    {
        return isBig ? u8(value >> 8).u8(value & 255) : u8(value & 255).u8(value >> 8);
    }
    FileBuilder& u32(uint32_t value)
    {
        return isBig ? u16(value >> 16).u16(value & 0xFFFF) : u16(value & 0xFFFF).u16(value >> 16);
    }
    FileBuilder& u64(uint64_t value)
    {
        const auto high = static_cast<uint32_t>(value >> 32);
        const auto low = static_cast<uint32_t>(value);
        return isBig ? u32(high).u32(low) : u32(low).u32(high);
    }
    FileBuilder& text(std::string_view value)
    {
        bytes += value;
        bytes.resize((bytes.size() + 3) / 4 * 4);
        return *this;
    }
    /// A whole block around what `body` builds.
    template <typename Body>
    FileBuilder& block(uint32_t type, Body body)
    {
        FileBuilder inner(isBig);
        body(inner);
        const auto length = static_cast<uint32_t>(inner.bytes.size() + 12);
        u32(type).u32(length);
        bytes += inner.bytes;
        return u32(length);
    }
    FileBuilder& section()
    {
        return block(0x0A0D0D0A, [](FileBuilder& b) { b.u32(0x1A2B3C4D).u16(1).u16(2).u64(~uint64_t{0}); });
    }
    FileBuilder& interface(std::string_view name, unsigned linkType = 227, int resolution = -1)
    {
        return block(1, [&](FileBuilder& b) {
            b.u16(linkType).u16(0).u32(0);
            if (!name.empty()) {
                b.u16(2).u16(static_cast<unsigned>(name.size())).text(name);
            }
            if (resolution >= 0) {
                b.u16(9).u16(1).u8(static_cast<unsigned>(resolution)).u8(0).u16(0);
            }
            b.u32(0);
        });
    }
    FileBuilder& packet(uint32_t interfaceNumber, uint64_t time, std::string_view data)
    {
        return block(6, [&](FileBuilder& b) {
            b.u32(interfaceNumber).u32(static_cast<uint32_t>(time >> 32)).u32(static_cast<uint32_t>(time));
            b.u32(static_cast<uint32_t>(data.size())).u32(static_cast<uint32_t>(data.size())).text(data);
        });
    }

    std::string bytes;

private:
    bool isBig;
};

constexpr std::string_view PACKET_123_AA{"\0\0\x01\x23\x01\0\0\0\xAA", 9};

std::vector<CaptureFrame> framesOf(const std::string& bytes)
{
    std::istringstream input(bytes);
    PcapngReader reader(input);
    std::vector<CaptureFrame> frames;
    CaptureFrame frame;
    while (reader.next(frame)) {
        frames.push_back(frame);
    }
    return frames;
}

struct Refusal
{
    std::string text;
    bool canContinue = false;

    bool operator==(const Refusal&) const = default;
};

std::ostream& operator<<(std::ostream& stream, const Refusal& refusal)
{
    return stream << refusal.text << (refusal.canContinue ? " (goes on)" : " (ends)");
}

/// The first error that reading meets; empty if there is none.
Refusal refusalOf(const std::string& bytes)
{
    try {
        framesOf(bytes);
    } catch (const CaptureError& error) {
        return {error.what(), error.canContinue()};
    }
    return {};
}

std::string fileOf(const std::vector<CaptureFrame>& frames)
{
    PcapngEncoder encoder("test");
    std::vector<uint8_t> bytes;
    encoder.begin(bytes);
    for (const CaptureFrame& frame : frames) {
        encoder.encode(frame, bytes);
    }
    encoder.finish(bytes);
    return {bytes.begin(), bytes.end()};
}

} // namespace

TEST(PcapngEncoderTest, FileOfOneFrameHasExactlyTheseBytes)
{
    FileBuilder expected(false);
    expected.block(0x0A0D0D0A, [](FileBuilder& b) {
        b.u32(0x1A2B3C4D).u16(1).u16(0).u64(~uint64_t{0}).u16(4).u16(4).text("test").u32(0);
    });
    expected.interface("can3", 227, 9);
    expected.block(6, [](FileBuilder& b) {
        const uint64_t time = 1700000000000250007;
        b.u32(0).u32(static_cast<uint32_t>(time >> 32)).u32(static_cast<uint32_t>(time)).u32(9).u32(9);
        b.text(PACKET_123_AA);
        b.u16(2).u16(4).u32(1).u16(4).u16(8).u64(5).u32(0);
    });
    expected.block(5, [](FileBuilder& b) {
        const uint64_t time = 1700000000000250007;
        b.u32(0).u32(static_cast<uint32_t>(time >> 32)).u32(static_cast<uint32_t>(time));
        b.u16(4).u16(8).u64(6).u16(5).u16(8).u64(5).u32(0);
    });
    CaptureFrame frame = frameOf("(1700000000.000250) can3 123#AA", Direction::RECEIVED, 5);
    frame.nanoseconds = 7;
    EXPECT_EQ(fileOf({frame}), expected.bytes);
}

TEST(PcapngEncoderTest, TimeBeyondNanosecondsIsRefusedAndNothingAppended)
{
    PcapngEncoder sut("");
    std::vector<uint8_t> bytes;
    try {
        sut.encode(frameOf("(18446744073708.999999) can0 123#"), bytes);
        FAIL() << "a stamp that does not fit was written";
    } catch (const CaptureError& error) {
        EXPECT_STREQ(error.what(), "the time stamp is beyond what pcapng can hold in nanoseconds");
        EXPECT_TRUE(error.canContinue());
    }
    EXPECT_TRUE(bytes.empty());
}

TEST(PcapngEncoderTest, FlagsThatEveryFdFrameHasAreToldAsALoss)
{
    PcapngEncoder sut("");
    std::vector<uint8_t> bytes;
    sut.encode(frameOf("(1.0) can0 123##B"), bytes);
    sut.encode(frameOf("(1.0) can0 123#AA"), bytes);
    EXPECT_TRUE(sut.losses().empty());
    sut.encode(frameOf("(1.0) can0 123##5"), bytes);
    sut.encode(frameOf("(1.0) can0 123##4"), bytes);
    EXPECT_EQ(sut.losses(), std::vector<std::string>{"pcapng sets bit 2 of the flags of every CAN FD frame; that 2 "
                                                     "frames had it in their digit is not kept"});
}

TEST(PcapngReaderTest, WhatTheEncoderWritesComesBackWithEveryField)
{
    std::vector<CaptureFrame> frames{
        frameOf("(1700000000.000250) can0 1A4#0102030405060708", Direction::SENT),
        frameOf("(1700000000.000300) can1 18FEF100#FFFF", Direction::RECEIVED),
        frameOf("(1700000000.000350) can2 2B0##1AABBCC", Direction::RECEIVED, 1000000),
        frameOf("(1700000000.000400) can0 1A4#R8"),
        frameOf("(1700000000.000400) can0 1A4#R8_9"),
        frameOf("(1700000000.000400) can0 1A4#1122334455667788_F"),
        frameOf("(1700000000.000400) can0 1A4##A1122334455667788"),
        frameOf("(1700000000.000450) can0 20000004#0008000000000000"),
        frameOf("(1700000000.000500) can2 00000001##0" + std::string(128, '5'), Direction::SENT),
    };
    frames[1].nanoseconds = 999;
    EXPECT_EQ(framesOf(fileOf(frames)), frames);
}

TEST(PcapngReaderTest, EmptyFileAndFileWithoutFramesHaveNoFrame)
{
    EXPECT_TRUE(framesOf("").empty());
    EXPECT_TRUE(framesOf(fileOf({})).empty());
}

TEST(PcapngReaderTest, BothByteOrdersMeanTheSame)
{
    for (const bool isBig : {false, true}) {
        FileBuilder file(isBig);
        file.section().interface("vcan 7").packet(0, 0x100000002, PACKET_123_AA);
        const CaptureFrame expected = frameOf("(4294.967298) vcan_7 123#AA");
        EXPECT_EQ(framesOf(file.bytes), std::vector{expected}) << isBig;
    }
}

TEST(PcapngReaderTest, EveryResolutionGivesTheSameTime)
{
    struct Case
    {
        int resolution;
        uint64_t time;
    };
    for (const auto& [resolution, time] :
         {Case{-1, 2500000}, Case{6, 2500000}, Case{9, 2500000000}, Case{1, 25}, Case{12, 2500000000000},
          Case{0x80 | 1, 5}, Case{0x80 | 32, 5ULL << 31}}) {
        FileBuilder file(false);
        file.section().interface("can0", 227, resolution).packet(0, time, PACKET_123_AA);
        EXPECT_EQ(framesOf(file.bytes), std::vector{frameOf("(2.500000) can0 123#AA")}) << resolution;
    }
}

TEST(PcapngReaderTest, ExtremeResolutionsGiveTimeZeroOrAreOutOfRange)
{
    for (const int resolution : {127, 0xFF}) {
        FileBuilder file(false);
        file.section().interface("can0", 227, resolution).packet(0, ~uint64_t{0}, PACKET_123_AA);
        EXPECT_EQ(framesOf(file.bytes), std::vector{frameOf("(0.000000) can0 123#AA")}) << resolution;
    }
    FileBuilder file(false);
    file.section().interface("can0", 227, 0).packet(0, ~uint64_t{0}, PACKET_123_AA);
    EXPECT_EQ(refusalOf(file.bytes), (Refusal{"byte 68: the time stamp is out of range", true}));
}

TEST(PcapngReaderTest, OffsetMovesTheTimeBothWays)
{
    for (const int64_t seconds : {int64_t{10}, int64_t{-1}, int64_t{-3}}) {
        FileBuilder file(false);
        file.section().block(1, [&](FileBuilder& b) {
            b.u16(227).u16(0).u32(0).u16(14).u16(8).u64(static_cast<uint64_t>(seconds)).u32(0);
        });
        file.packet(0, 2500000, PACKET_123_AA);
        if (seconds == -3) {
            EXPECT_EQ(refusalOf(file.bytes), (Refusal{"byte 64: the time stamp is out of range", true}));
        } else {
            EXPECT_EQ(framesOf(file.bytes),
                      std::vector{frameOf(seconds == 10 ? "(12.500000) can0 123#AA" : "(1.500000) can0 123#AA")});
        }
    }
}

TEST(PcapngReaderTest, SectionsBeginAnewAndNamelessInterfacesAreCountedOn)
{
    FileBuilder file(false);
    file.section().interface("").packet(0, 1, PACKET_123_AA);
    FileBuilder second(true);
    second.section().interface("").packet(0, 2, PACKET_123_AA);
    EXPECT_EQ(framesOf(file.bytes + second.bytes),
              (std::vector{frameOf("(0.000001) can0 123#AA"), frameOf("(0.000002) can1 123#AA")}));
}

TEST(PcapngReaderTest, SimpleAndObsoletePacketsAreRead)
{
    FileBuilder file(false);
    file.section().interface("can0");
    file.block(3, [](FileBuilder& b) { b.u32(9).text(PACKET_123_AA); });
    file.block(2, [](FileBuilder& b) { b.u16(0).u16(7).u32(0).u32(5).u32(9).u32(9).text(PACKET_123_AA); });
    file.block(2, [](FileBuilder& b) { b.u16(0).u16(0xFFFF).u32(0).u32(6).u32(9).u32(9).text(PACKET_123_AA); });
    EXPECT_EQ(framesOf(file.bytes), (std::vector{frameOf("(0.000000) can0 123#AA"),
                                                 frameOf("(0.000005) can0 123#AA", Direction::UNKNOWN, 7),
                                                 frameOf("(0.000006) can0 123#AA")}));
}

TEST(PcapngReaderTest, UnknownBlocksAndOptionsAreSkipped)
{
    FileBuilder file(false);
    file.section().block(0x0BAD, [](FileBuilder& b) { b.text(std::string(3000000, 'x')); });
    file.interface("can0").block(6, [](FileBuilder& b) {
        b.u32(0).u32(0).u32(5).u32(9).u32(9).text(PACKET_123_AA);
        b.u16(1).u16(5).text("hello").u16(2).u16(4).u32(2).u32(0);
    });
    EXPECT_EQ(framesOf(file.bytes), std::vector{frameOf("(0.000005) can0 123#AA", Direction::SENT)});
}

TEST(PcapngReaderTest, RemarksCountForeignPacketsAndLostFrames)
{
    FileBuilder file(false);
    file.section().interface("eth0", 1).interface("can0");
    file.packet(0, 1, "an Ethernet frame").packet(1, 2, PACKET_123_AA).packet(0, 3, "another");
    file.block(5, [](FileBuilder& b) { b.u32(1).u32(0).u32(9).u16(5).u16(8).u64(12).u32(0); });
    file.block(5, [](FileBuilder& b) { b.u32(0).u32(0).u32(9).u16(5).u16(8).u64(99).u32(0); });
    std::istringstream input(file.bytes + fileOf({frameOf("(1.0) can0 123#", Direction::UNKNOWN, 3)}));
    PcapngReader sut(input);
    CaptureFrame frame;
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.frame.interfaceName, "can0");
    ASSERT_TRUE(sut.next(frame));
    ASSERT_FALSE(sut.next(frame));
    EXPECT_EQ(sut.remarks(), (std::vector<std::string>{"2 packets of interfaces other than CAN were skipped",
                                                       "15 frames were lost when this was recorded"}));
}

TEST(PcapngReaderTest, UnreadablePacketIsNamedAndTheNextOneStillRead)
{
    FileBuilder file(false);
    file.section().interface("can0").packet(0, 1, "short").packet(0, 2, PACKET_123_AA);
    std::istringstream input(file.bytes);
    PcapngReader sut(input);
    CaptureFrame frame;
    try {
        sut.next(frame);
        FAIL() << "the packet was accepted";
    } catch (const CaptureError& error) {
        EXPECT_STREQ(error.what(), "byte 60: the packet is shorter than the header of a CAN frame");
        EXPECT_TRUE(error.canContinue());
    }
    ASSERT_TRUE(sut.next(frame));
    EXPECT_EQ(frame.frame.timestampUs, 2U);
}

TEST(PcapngReaderTest, FileCutAnywhereGivesTheFramesBeforeTheCut)
{
    const std::vector<CaptureFrame> frames{frameOf("(1.0) can0 123#AA"), frameOf("(2.0) can0 123#BB")};
    const std::string whole = fileOf(frames);
    for (size_t size = 1; size < whole.size(); ++size) {
        std::istringstream input(whole.substr(0, size));
        PcapngReader sut(input);
        CaptureFrame frame;
        size_t read = 0;
        try {
            while (sut.next(frame)) {
                ASSERT_LT(read, frames.size());
                EXPECT_EQ(frame, frames[read]);
                ++read;
            }
        } catch (const CaptureError& error) {
            EXPECT_FALSE(error.canContinue());
            EXPECT_TRUE(std::string_view(error.what()).ends_with("the file ends in the middle of a block"));
            EXPECT_FALSE(sut.next(frame)) << "the end stays the end";
        }
    }
}

TEST(PcapngReaderTest, EveryMalformedFileIsRefusedWithPlaceAndReason)
{
    const auto file = [](auto build) {
        FileBuilder builder(false);
        builder.section().interface("can0");
        build(builder);
        return builder.bytes;
    };
    const auto raw = [](auto build) {
        FileBuilder builder(false);
        build(builder);
        return builder.bytes;
    };
    const std::vector<std::pair<std::string, Refusal>> cases{
        {raw([](FileBuilder& b) { b.u32(1).u32(20); }),
         {"byte 0: the file does not begin with a section header", false}},
        {raw([](FileBuilder& b) { b.u32(0x0A0D0D0A).u32(28).u32(0x11223344); }),
         {"byte 0: the section has no byte-order mark", false}},
        {raw([](FileBuilder& b) { b.u32(0x0A0D0D0A).u32(12).u32(0x1A2B3C4D); }),
         {"byte 0: a block of 12 bytes cannot be", false}},
        {raw([](FileBuilder& b) { b.block(0x0A0D0D0A, [](FileBuilder& c) { c.u32(0x1A2B3C4D); }); }),
         {"byte 0: the section header is too short", false}},
        {raw([](FileBuilder& b) {
             b.block(0x0A0D0D0A, [](FileBuilder& c) { c.u32(0x1A2B3C4D).u16(2).u16(0).u64(0); });
         }),
         {"byte 0: the section is of version 2, not 1", false}},
        {file([](FileBuilder& b) { b.u32(6).u32(8); }), {"byte 60: a block of 8 bytes cannot be", false}},
        {file([](FileBuilder& b) { b.u32(6).u32(33); }), {"byte 60: a block of 33 bytes cannot be", false}},
        {file([](FileBuilder& b) { b.u32(6).u32(0x10000000); }),
         {"byte 60: a block of 268435456 bytes is too long", false}},
        {file([](FileBuilder& b) { b.u32(99).u32(12).u32(16); }),
         {"byte 60: the lengths before and behind a block differ", false}},
        {file([](FileBuilder& b) { b.u32(99).u32(16); }),
         {"byte 60: the file ends in the middle of a block", false}},
        {file([](FileBuilder& b) { b.block(1, [](FileBuilder& c) { c.u32(227); }); }),
         {"byte 60: the interface description is too short", false}},
        {file([](FileBuilder& b) { b.block(6, [](FileBuilder& c) { c.u32(0); }); }),
         {"byte 60: the packet block is too short", true}},
        {file([](FileBuilder& b) { b.packet(1, 0, PACKET_123_AA); }),
         {"byte 60: the packet's interface 1 was not described", true}},
        {file([](FileBuilder& b) {
             b.block(6, [](FileBuilder& c) { c.u32(0).u32(0).u32(0).u32(13).u32(13).text(PACKET_123_AA); });
         }),
         {"byte 60: the packet is longer than its block", true}},
    };
    for (const auto& [bytes, refusal] : cases) {
        EXPECT_EQ(refusalOf(bytes), refusal);
    }
}

} // namespace capture
