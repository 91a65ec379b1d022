#include <can/DispatcherTest.h>
#include <can/FrameRecord.h>
#include <support/FakeTrace.h>
#include <support/RecordingReceiver.h>

#include <vqtrace/TraceMessageBuffer.h>
#include <vqutil/VQException.h>

#include <stdexcept>
#include <utility>

using namespace dispatchertest;

namespace {

using faketrace::Failure;
using faketrace::Step;
using Frame = RecordingReceiver::Frame;
using Frames = std::vector<Frame>;

class MsgRxHandlerDispatchTest : public DispatcherTest
{
protected:
    MsgRxHandlerDispatchTest() { buffer.name = MAIN; }
    ~MsgRxHandlerDispatchTest() override { ::close(feed.deviceEnd()); }

    /// Lets the device deliver records and the dispatcher take them.
    void arrive(std::vector<Step> steps)
    {
        feed.arrives(std::move(steps));
        ASSERT_GT(buffer.read(), 0);
        sut().processMessages(buffer);
    }

    faketrace::Feed feed;
    TraceMessageBuffer buffer{feed.deviceEnd(), 65536, nullptr};
    RecordingReceiver receiver;
    RecordingReceiver other;
};

TEST_F(MsgRxHandlerDispatchTest, WholeRecordReachesTheReceiver)
{
    registerQuietly(3, 0x123, CAN_STANDARD, receiver);
    const Frame record{0, 25, 0, 11, 0, 0, 0, 0, 0, 0, 0, 0, 0, 9, 3, 1, 2, 0, 0, 0, 1, 0x23, 2, 0xAA, 0xBB};
    CapturedOutput output;
    arrive({record});
    EXPECT_EQ(receiver.frames.all(), Frames{record});
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

class MsgRxHandlerRecordTypeTest : public MsgRxHandlerDispatchTest, public testing::WithParamInterface<uint16_t>
{
};

TEST_P(MsgRxHandlerRecordTypeTest, OtherTypesAreSkippedAndTheNextFrameIsDelivered)
{
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    const FrameRecord frame{.idWord = 1};
    const FrameRecord skipped{.type = GetParam(), .idWord = 1};
    arrive({skipped.bytes(), frame.bytes()});
    EXPECT_EQ(receiver.frames.all(), Frames{frame.bytes()});
}

INSTANTIATE_TEST_SUITE_P(Types, MsgRxHandlerRecordTypeTest, testing::Values(0, 10, 12, 0x0B00, 0x010B, 0xFFFF));

TEST_F(MsgRxHandlerDispatchTest, Bit31MarksTheExtendedIdentifier)
{
    registerQuietly(3, 0x123, CAN_EXTENDED, receiver);
    registerQuietly(3, 0x123, CAN_STANDARD, other);
    arrive({FrameRecord{.channel = 3, .idWord = 0x80000123}.bytes()});
    EXPECT_EQ(receiver.frames.count(), 1U);
    EXPECT_EQ(other.frames.count(), 0U);
}

TEST_F(MsgRxHandlerDispatchTest, Bits29And30AreIgnored)
{
    registerQuietly(3, 0x123, CAN_EXTENDED, receiver);
    registerQuietly(3, 0x123, CAN_STANDARD, other);
    const FrameRecord extended{.channel = 3, .idWord = 0xE0000123};
    const FrameRecord standard{.channel = 3, .idWord = 0x60000123};
    arrive({extended.bytes(), standard.bytes()});
    // The record itself keeps its bits.
    EXPECT_EQ(receiver.frames.all(), Frames{extended.bytes()});
    EXPECT_EQ(other.frames.all(), Frames{standard.bytes()});
}

TEST_F(MsgRxHandlerDispatchTest, FrameNobodyRegisteredForIsDroppedSilently)
{
    registerQuietly(3, 0x123, CAN_STANDARD, receiver);
    CapturedOutput output;
    arrive(
        {FrameRecord{.channel = 4, .idWord = 0x123}.bytes(), FrameRecord{.channel = 3, .idWord = 0x124}.bytes()});
    EXPECT_EQ(receiver.frames.count(), 0U);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

struct OffsetCase
{
    const char* name;
    const char* device;
    uint64_t corrected;
};

class MsgRxHandlerOffsetTest : public MsgRxHandlerDispatchTest, public testing::WithParamInterface<OffsetCase>
{
};

TEST_P(MsgRxHandlerOffsetTest, DeviceNameDecidesTheOffset)
{
    sut().*reveal(FpgabOffset{}) = 0x0102030405060708;
    sut().*reveal(FpgacOffset{}) = 0xFFFFFFFFFFFFFFFF;
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    buffer.name = GetParam().device;
    arrive({FrameRecord{.time = 0x10, .idWord = 1}.bytes()});
    EXPECT_EQ(receiver.frames.all(), (Frames{FrameRecord{.time = GetParam().corrected, .idWord = 1}.bytes()}));
}

// The offset of the extension device is all ones: the sum is taken modulo 2^64.
INSTANTIATE_TEST_SUITE_P(Devices, MsgRxHandlerOffsetTest,
                         testing::Values(OffsetCase{"Main", MAIN, 0x0102030405060718},
                                         OffsetCase{"Combined", COMBINED, 0x0102030405060718},
                                         OffsetCase{"CombinedFd", COMBINED_FD, 0x0102030405060718},
                                         OffsetCase{"Unnamed", "", 0x0102030405060718},
                                         OffsetCase{"Extension", EXTENSION, 0x0F},
                                         OffsetCase{"ExtensionAnywhere", "my fpgac here", 0x0F}),
                         [](const auto& tested) { return std::string(tested.param.name); });

class MsgRxHandlerShortRecordTest : public MsgRxHandlerDispatchTest, public testing::WithParamInterface<size_t>
{
};

TEST_P(MsgRxHandlerShortRecordTest, RecordTooShortForItsFieldsIsSkippedSilently)
{
    registerQuietly(0, 0, CAN_STANDARD, receiver);
    Frame record = FrameRecord{}.bytes();
    record.resize(GetParam());
    record.shrink_to_fit(); // so that a read behind its end is found
    CapturedOutput output;
    arrive({record});
    sut().processCanMessage(record.data(), record.data() + record.size());
    EXPECT_EQ(receiver.frames.count(), 0U);
    EXPECT_EQ(output.out(), "");
    EXPECT_EQ(output.err(), "");
}

INSTANTIATE_TEST_SUITE_P(Sizes, MsgRxHandlerShortRecordTest, testing::Values(0, 1, 3, 4, 5, 13, 14, 17, 18, 21));

TEST_F(MsgRxHandlerDispatchTest, ShortestRecordWithAllFieldsIsDelivered)
{
    registerQuietly(0, 0, CAN_STANDARD, receiver);
    Frame record = FrameRecord{}.bytes();
    record.resize(22);
    record.shrink_to_fit();
    arrive({record});
    EXPECT_EQ(receiver.frames.all(), Frames{record});
}

TEST_F(MsgRxHandlerDispatchTest, EmptyRangeIsNoFrame)
{
    registerQuietly(0, 0, CAN_STANDARD, receiver);
    sut().processCanMessage(nullptr, nullptr);
    EXPECT_EQ(receiver.frames.count(), 0U);
}

TEST_F(MsgRxHandlerDispatchTest, EmptyBufferDeliversNothing)
{
    registerQuietly(0, 0, CAN_STANDARD, receiver);
    sut().processMessages(buffer);
    EXPECT_EQ(receiver.frames.count(), 0U);
}

TEST_F(MsgRxHandlerDispatchTest, DecodingFailureIsLoggedAndTheRestWaits)
{
    registerQuietly(0, 1, CAN_STANDARD, receiver);
    const FrameRecord first{.idWord = 1, .payload = {1}};
    const FrameRecord second{.idWord = 1, .payload = {2}};
    CapturedOutput output;
    arrive({first.bytes(), Failure{"position 25: no record"}, second.bytes()});
    EXPECT_EQ(output.out(), "[ERROR] MsgRxHandler::processMessages() position 25: no record\n");
    EXPECT_EQ(output.err(), "");
    EXPECT_EQ(receiver.frames.all(), Frames{first.bytes()});
    sut().processMessages(buffer);
    EXPECT_EQ(receiver.frames.all(), (Frames{first.bytes(), second.bytes()}));
}

/// A receiver that throws what it is told to.
template <typename Exception>
class ThrowingReceiver : public RecordingReceiver
{
public:
    void onRawReceived(const uint8_t* /*data*/, size_t /*size*/) override { throw Exception("receiver failed"); }
};

TEST_F(MsgRxHandlerDispatchTest, PlatformExceptionOfAReceiverIsLoggedAndTheRestWaits)
{
    ThrowingReceiver<VQException> throwing;
    registerQuietly(0, 1, CAN_STANDARD, throwing);
    registerQuietly(0, 2, CAN_STANDARD, receiver);
    CapturedOutput output;
    arrive({FrameRecord{.idWord = 1}.bytes(), FrameRecord{.idWord = 2}.bytes()});
    EXPECT_EQ(output.out(), "[ERROR] MsgRxHandler::processMessages() receiver failed\n");
    EXPECT_EQ(receiver.frames.count(), 0U);
    // The registry lock is free again.
    sut().processMessages(buffer);
    EXPECT_EQ(receiver.frames.count(), 1U);
}

TEST_F(MsgRxHandlerDispatchTest, OtherExceptionsAreNotCaught)
{
    ThrowingReceiver<std::runtime_error> throwing;
    registerQuietly(0, 1, CAN_STANDARD, throwing);
    CapturedOutput output;
    feed.arrives({FrameRecord{.idWord = 1}.bytes()});
    ASSERT_GT(buffer.read(), 0);
    EXPECT_THROW(sut().processMessages(buffer), std::runtime_error);
    EXPECT_EQ(output.out(), "");
}

} // namespace
