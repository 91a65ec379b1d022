#include "IsoTpFixture.h"

#include <support/CapturedOutput.h>
#include <support/GroupedDigits.h>

#include <iomanip>
#include <sstream>

namespace {

class CanIsoTpHandlerTextTest : public IsoTpTest
{
protected:
    std::string frameType(uint32_t value)
    {
        auto type = static_cast<Handler::frameType_t>(value);
        return sut.toString(type);
    }
    std::string expectedType(uint32_t value)
    {
        auto type = static_cast<Handler::expFrameType_t>(value);
        return sut.toString(type);
    }
    std::string error(uint32_t value) { return sut.toString(static_cast<Handler::errorCode_t>(value)); }
    static std::string print(const Handler::rawCANMsg_t& frame)
    {
        std::ostringstream stream;
        stream << frame;
        return stream.str();
    }
};

TEST_F(CanIsoTpHandlerTextTest, FrameTypesHaveTheirNames)
{
    EXPECT_EQ(frameType(Handler::FRAME_SF), "single frame (SF)");
    EXPECT_EQ(frameType(Handler::FRAME_FF), "first frame (FF)");
    EXPECT_EQ(frameType(Handler::FRAME_CF), "consecutive frame (CF)");
    EXPECT_EQ(frameType(Handler::FRAME_FC), "flow control frame (FC)");
    EXPECT_EQ(frameType(Handler::FRAME_UNKNOWN), "unknown frame");
    EXPECT_EQ(frameType(4), "invalid frame type");
    EXPECT_EQ(frameType(256), "invalid frame type");
}

TEST_F(CanIsoTpHandlerTextTest, ExpectedFrameTypesHaveTheirNames)
{
    EXPECT_EQ(expectedType(Handler::EXPECT_SF_OR_FF), "single (SF) or first frame (FF)");
    EXPECT_EQ(expectedType(Handler::EXPECT_CF), "consecutive frame (CF)");
    EXPECT_EQ(expectedType(Handler::EXPECT_FC), "flow control frame (FC)");
    EXPECT_EQ(expectedType(Handler::EXPECT_NONE), "no frame");
    EXPECT_EQ(expectedType(4), "invalid expected frame type");
}

TEST_F(CanIsoTpHandlerTextTest, ErrorCodesHaveTheirTexts)
{
    EXPECT_EQ(error(0), "no error");
    EXPECT_EQ(error(1), "type of received frame != expected frame type");
    EXPECT_EQ(error(2), "RX timeout error");
    EXPECT_EQ(error(3), "other side report overflow error");
    EXPECT_EQ(error(4), "frame with invalid format was processed");
    EXPECT_EQ(error(5), "DLC of received message is wrong");
    EXPECT_EQ(error(6), "error while processing received data");
    EXPECT_EQ(error(7), "error while processing data to send");
    EXPECT_EQ(error(8), "data bytes of CAN TP message > 4095");
    EXPECT_EQ(error(9), "CF sequence number is wrong");
    EXPECT_EQ(error(10), "push thread to send failed");
    EXPECT_EQ(error(11), "some error in thread loop occurred");
    EXPECT_EQ(error(12), "this error should never happen, probably caused by a bug");
    EXPECT_EQ(error(13), "invalid error code");
    EXPECT_EQ(error(0xFFFFFFFF), "invalid error code");
}

TEST_F(CanIsoTpHandlerTextTest, EnumeratorsKeepTheirValues)
{
    EXPECT_EQ(Handler::FRAME_SF, 0U);
    EXPECT_EQ(Handler::FRAME_FF, 1U);
    EXPECT_EQ(Handler::FRAME_CF, 2U);
    EXPECT_EQ(Handler::FRAME_FC, 3U);
    EXPECT_EQ(Handler::FRAME_UNKNOWN, 255U);
    EXPECT_EQ(Handler::EXPECT_SF_OR_FF, 0U);
    EXPECT_EQ(Handler::EXPECT_CF, 1U);
    EXPECT_EQ(Handler::EXPECT_FC, 2U);
    EXPECT_EQ(Handler::EXPECT_NONE, 3U);
    EXPECT_EQ(Handler::FS_CTS, 0U);
    EXPECT_EQ(Handler::FS_WAIT, 1U);
    EXPECT_EQ(Handler::FS_OVERFLOW, 2U);
    EXPECT_EQ(Handler::FS_INVALID, 255U);
    EXPECT_EQ(Handler::ERR_NONE, 0U);
    EXPECT_EQ(Handler::ERR_UNEXPECTED_FRAME, 1U);
    EXPECT_EQ(Handler::ERR_RX_TIMEOUT, 2U);
    EXPECT_EQ(Handler::ERR_OVERFLOW, 3U);
    EXPECT_EQ(Handler::ERR_INVALID_FORMAT, 4U);
    EXPECT_EQ(Handler::ERR_WRONG_DLC, 5U);
    EXPECT_EQ(Handler::ERR_PROCESSING_RX, 6U);
    EXPECT_EQ(Handler::ERR_PROCESSING_TX, 7U);
    EXPECT_EQ(Handler::ERR_TOO_LONG, 8U);
    EXPECT_EQ(Handler::ERR_WRONG_SN, 9U);
    EXPECT_EQ(Handler::ERR_PUSH_FAILED, 10U);
    EXPECT_EQ(Handler::ERR_THREAD_LOOP, 11U);
    EXPECT_EQ(Handler::ERR_BUG, 12U);
    EXPECT_EQ(CanIsoTpHandlerCallback::STATUS_INFO, 0U);
    EXPECT_EQ(CanIsoTpHandlerCallback::STATUS_WARNING, 1U);
    EXPECT_EQ(CanIsoTpHandlerCallback::STATUS_ERROR, 2U);
    EXPECT_EQ(Handler::MAX_DATA_BYTES, 4095);
    EXPECT_EQ(Handler::MSGPART_INVALID, 0U);
}

TEST_F(CanIsoTpHandlerTextTest, FrameIsPrintedWithDecimalBytesBehind0x)
{
    EXPECT_EQ(print(rawFrame({0x02, 0x10, 0x03}, 0x7E0)), " 0x000007e0 3  0x02 0x16 0x03");
}

TEST_F(CanIsoTpHandlerTextTest, FrameWithoutDataIsPrintedWithoutList)
{
    EXPECT_EQ(print(rawFrame({}, 0x18DA00F1)), " 0x18da00f1 0");
}

TEST_F(CanIsoTpHandlerTextTest, FrameWithLargeBytesIsPrintedInDecimal)
{
    EXPECT_EQ(print(rawFrame({0xFF, 0x64, 0x09}, 1)), " 0x00000001 3  0x255 0x100 0x09");
}

TEST_F(CanIsoTpHandlerTextTest, PrinterStopsAtEightBytes)
{
    Handler::rawCANMsg_t frame = rawFrame({1, 2, 3, 4, 5, 6, 7, 8}, 1);
    frame.dlc = 255;
    EXPECT_EQ(print(frame), " 0x00000001 255  0x01 0x02 0x03 0x04 0x05 0x06 0x07 0x08");
}

TEST_F(CanIsoTpHandlerTextTest, PrinterLeavesTheStreamAsItWas)
{
    std::ostringstream stream;
    stream << std::hex << std::uppercase << std::setfill('*');
    const auto flags = stream.flags();
    stream << rawFrame({0xAB}, 0xABC);
    EXPECT_EQ(stream.str(), " 0x00000abc 1  0x171");
    EXPECT_EQ(stream.flags(), flags);
    EXPECT_EQ(stream.fill(), '*');
}

TEST_F(CanIsoTpHandlerTextTest, PrinterWritesTheSameInEveryLocale)
{
    const GroupedDigits locale;
    EXPECT_EQ(print(rawFrame({0x02}, 0x18DA00F1)), " 0x18da00f1 1  0x02");
}

TEST_F(CanIsoTpHandlerTextTest, LinesAreTheSameInEveryLocale)
{
    const GroupedDigits locale;
    sut.debugLevel = 1;
    CapturedOutput output;
    Handler::rawCANMsg_t frame{};
    EXPECT_FALSE(sut.setFirstFrameHeader(frame, 1234567));
    sut.showExpectedError(rawFrame({0x30}, 0x18DA00F1));
    sut.sleepSeparationTime();
    EXPECT_EQ(
        output.err(),
        "[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = 1234567\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received flow control but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x18da00f1 1  0x48\n");
    EXPECT_EQ(output.out(), "[DEBUG] CanIsoTpHandler::sleepSeparationTime: sleep for 127000 usec\n");
}

TEST_F(CanIsoTpHandlerTextTest, UnexpectedFrameIsNamedWhileIdle)
{
    CapturedOutput output;
    sut.showExpectedError(rawFrame({0x30}, 1));
    sut.showExpectedError(rawFrame({0x21}, 1));
    sut.showExpectedError(rawFrame({0x10}, 1));
    sut.showExpectedError(rawFrame({0x01}, 1));
    sut.showExpectedError(rawFrame({0x40}, 1));
    EXPECT_EQ(
        output.err(),
        "[ERROR] CanIsoTpHandler::showExpectedError: received flow control but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x48\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received consecutive frame but expected first or single "
        "frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x33\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received first frame but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x16\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received single frame but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x01\n"
        "[ERROR] CanIsoTpHandler::showExpectedError: received unknown frame but expected first or single frame\n"
        "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x64\n");
    EXPECT_EQ(output.out(), "");
}

TEST_F(CanIsoTpHandlerTextTest, UnexpectedFrameIsNamedWhileReceiving)
{
    peerSends({0x10, 20, 1, 2, 3, 4, 5, 6});
    CapturedOutput output;
    sut.showExpectedError(rawFrame({0x30}, 1));
    EXPECT_EQ(output.err(),
              "[ERROR] CanIsoTpHandler::showExpectedError: received flow control but expected consecutive frame\n"
              "[DEBUG] CanIsoTpHandler::showExpectedError: raw message:  0x00000001 1  0x48\n");
}

} // namespace
