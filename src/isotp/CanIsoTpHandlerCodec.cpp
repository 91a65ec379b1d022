#include <CanIsoTpHandler.h>

#include <isotp/DirectLine.h>

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <limits>
#include <locale>
#include <ostream>
#include <sstream>

using directline::toError;

namespace {

constexpr uint8_t SINGLE_FRAME = 0x00;
constexpr uint8_t FIRST_FRAME = 0x10;
constexpr uint8_t CONSECUTIVE_FRAME = 0x20;
constexpr uint8_t FLOW_CONTROL_FRAME = 0x30;

constexpr uint8_t kindOf(uint8_t controlByte)
{
    return controlByte & 0xF0;
}

constexpr int lowNibbleOf(uint8_t controlByte)
{
    return controlByte & 0x0F;
}

} // namespace

uint32_t CanIsoTpHandler::getFirstDataByte(frameType_t type) const
{
    switch (type) {
    case FRAME_SF:
    case FRAME_CF:
        return addressBytes() + 1U;
    case FRAME_FF:
        return addressBytes() + 2U;
    case FRAME_FC:
    case FRAME_UNKNOWN:
        break;
    }
    return std::numeric_limits<uint32_t>::max();
}

bool CanIsoTpHandler::isSingleFrame(const rawCANMsg_t& frame) const
{
    return kindOf(frame.data[addressBytes()]) == SINGLE_FRAME;
}

bool CanIsoTpHandler::isFirstFrame(const rawCANMsg_t& frame) const
{
    return kindOf(frame.data[addressBytes()]) == FIRST_FRAME;
}

bool CanIsoTpHandler::isConsecutiveFrame(const rawCANMsg_t& frame) const
{
    return kindOf(frame.data[addressBytes()]) == CONSECUTIVE_FRAME;
}

bool CanIsoTpHandler::isFlowControlFrame(const rawCANMsg_t& frame) const
{
    return kindOf(frame.data[addressBytes()]) == FLOW_CONTROL_FRAME;
}

void CanIsoTpHandler::startFrame(rawCANMsg_t& frame, int usedBytes) const
{
    frame.dlc = useMinimalDlc != 0 ? static_cast<uint8_t>(usedBytes) : uint8_t{8};
    std::memset(frame.data, 0, sizeof frame.data);
    if (extAddressLength != 0) {
        frame.data[0] = extAddress;
    }
}

bool CanIsoTpHandler::setSingleFrameHeader(rawCANMsg_t& frame, int len) const
{
    const int address = addressBytes();
    if (len < 1 || len > 7 - address) {
        toError("[ERROR] CanIsoTpHandler::setSingleFrameHeader: invalid length = ", len);
        return false;
    }
    startFrame(frame, address + 1 + len);
    frame.data[address] = static_cast<uint8_t>(SINGLE_FRAME | (len & 0x0F));
    return true;
}

bool CanIsoTpHandler::setFirstFrameHeader(rawCANMsg_t& frame, int len) const
{
    const int address = addressBytes();
    if (len > MAX_DATA_BYTES || len < 8 - address) {
        toError("[ERROR] CanIsoTpHandler::setFirstFrameHeader: invalid length = ", len);
        return false;
    }
    startFrame(frame, 8);
    frame.data[address] = static_cast<uint8_t>(FIRST_FRAME | ((len >> 8) & 0x0F));
    frame.data[address + 1] = static_cast<uint8_t>(len & 0xFF);
    return true;
}

void CanIsoTpHandler::setConsecutiveFrameHeader(rawCANMsg_t& frame, int len, int sequence) const
{
    const int address = addressBytes();
    startFrame(frame, address + 1 + len);
    frame.data[address] = static_cast<uint8_t>(CONSECUTIVE_FRAME | ((sequence % 16) & 0x0F));
}

void CanIsoTpHandler::setFlowControlFrame(rawCANMsg_t& frame, flowStatus_t fs, unsigned char blockSizeByte,
                                          unsigned char separationTimeByte) const
{
    const int address = addressBytes();
    startFrame(frame, address + 3);
    frame.data[address] = static_cast<uint8_t>(FLOW_CONTROL_FRAME | (fs & 0x0F));
    frame.data[address + 1] = blockSizeByte;
    frame.data[address + 2] = separationTimeByte;
}

CanIsoTpHandler::flowStatus_t CanIsoTpHandler::getFrameFlowStatus(const rawCANMsg_t& frame) const
{
    if (!isFlowControlFrame(frame)) {
        toError("[ERROR] CanIsoTpHandler::getFrameFlowStatus: invalid frame");
        return FS_INVALID;
    }
    const int status = lowNibbleOf(frame.data[addressBytes()]);
    switch (status) {
    case FS_CTS:
    case FS_WAIT:
    case FS_OVERFLOW:
        return static_cast<flowStatus_t>(status);
    default:
        toError("[ERROR] CanIsoTpHandler::getFrameFlowStatus: unknown flow status = 0x", std::hex, status);
        return FS_INVALID;
    }
}

uint8_t CanIsoTpHandler::getFrameBlockSize(const rawCANMsg_t& frame) const
{
    if (!isFlowControlFrame(frame)) {
        toError("[ERROR] CanIsoTpHandler::getFrameBlockSize: invalid frame");
        return 0;
    }
    return frame.data[addressBytes() + 1];
}

uint8_t CanIsoTpHandler::getFrameSeparationTime(const rawCANMsg_t& frame) const
{
    if (!isFlowControlFrame(frame)) {
        toError("[ERROR] CanIsoTpHandler::getFrameSeparationTime: invalid frame");
        return 0xFF;
    }
    return frame.data[addressBytes() + 2];
}

int CanIsoTpHandler::getFrameDataLength(const rawCANMsg_t& frame) const
{
    const uint8_t* const control = &frame.data[addressBytes()];
    switch (kindOf(control[0])) {
    case SINGLE_FRAME:
        return lowNibbleOf(control[0]);
    case FIRST_FRAME:
        return (lowNibbleOf(control[0]) << 8) | control[1];
    default:
        // The line names another operation than this one; it is read by tools and stays so.
        toError("[ERROR] CanIsoTpHandler::getFrameLength: invalid frame");
        return -1;
    }
}

int CanIsoTpHandler::getFrameSequenceNo(const rawCANMsg_t& frame) const
{
    if (!isConsecutiveFrame(frame)) {
        toError("[ERROR] CanIsoTpHandler::getFrameSequenceNo: invalid frame");
        return -1;
    }
    return lowNibbleOf(frame.data[addressBytes()]);
}

std::string CanIsoTpHandler::toString(frameType_t& type) const
{
    switch (type) {
    case FRAME_SF:
        return "single frame (SF)";
    case FRAME_FF:
        return "first frame (FF)";
    case FRAME_CF:
        return "consecutive frame (CF)";
    case FRAME_FC:
        return "flow control frame (FC)";
    case FRAME_UNKNOWN:
        return "unknown frame";
    }
    return "invalid frame type";
}

std::string CanIsoTpHandler::toString(expFrameType_t& type) const
{
    switch (type) {
    case EXPECT_SF_OR_FF:
        return "single (SF) or first frame (FF)";
    case EXPECT_CF:
        return "consecutive frame (CF)";
    case EXPECT_FC:
        return "flow control frame (FC)";
    case EXPECT_NONE:
        return "no frame";
    }
    return "invalid expected frame type";
}

std::string CanIsoTpHandler::toString(errorCode_t code) const
{
    switch (code) {
    case ERR_NONE:
        return "no error";
    case ERR_UNEXPECTED_FRAME:
        return "type of received frame != expected frame type";
    case ERR_RX_TIMEOUT:
        return "RX timeout error";
    case ERR_OVERFLOW:
        return "other side report overflow error";
    case ERR_INVALID_FORMAT:
        return "frame with invalid format was processed";
    case ERR_WRONG_DLC:
        return "DLC of received message is wrong";
    case ERR_PROCESSING_RX:
        return "error while processing received data";
    case ERR_PROCESSING_TX:
        return "error while processing data to send";
    case ERR_TOO_LONG:
        return "data bytes of CAN TP message > 4095";
    case ERR_WRONG_SN:
        return "CF sequence number is wrong";
    case ERR_PUSH_FAILED:
        return "push thread to send failed";
    case ERR_THREAD_LOOP:
        return "some error in thread loop occurred";
    case ERR_BUG:
        return "this error should never happen, probably caused by a bug";
    }
    return "invalid error code";
}

void CanIsoTpHandler::showExpectedError(const rawCANMsg_t& frame)
{
    logUnexpected(frame, currentExpectation());
}

void CanIsoTpHandler::logUnexpected(const rawCANMsg_t& frame, expFrameType_t expected) const
{
    const char* received = "unknown frame";
    if (isFlowControlFrame(frame)) {
        received = "flow control";
    } else if (isConsecutiveFrame(frame)) {
        received = "consecutive frame";
    } else if (isFirstFrame(frame)) {
        received = "first frame";
    } else if (isSingleFrame(frame)) {
        received = "single frame";
    }
    toError("[ERROR] CanIsoTpHandler::showExpectedError: received ", received, " but expected ",
            expected == EXPECT_CF ? "consecutive frame" : "first or single frame");
    toError("[DEBUG] CanIsoTpHandler::showExpectedError: raw message: ", frame);
}

std::ostream& operator<<(std::ostream& stream, const CanIsoTpHandler::rawCANMsg_t& frame)
{
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << " 0x" << std::hex << std::setfill('0') << std::setw(8) << frame.id << std::dec << ' ' << +frame.dlc;
    if (frame.dlc != 0) {
        text << ' ';
        const size_t shown = std::min<size_t>(frame.dlc, sizeof frame.data);
        for (size_t i = 0; i < shown; ++i) {
            // Decimal behind "0x": tools read the lines in this form.
            text << " 0x" << std::setw(2) << +frame.data[i];
        }
    }
    stream.width(0);
    return stream << text.str();
}
