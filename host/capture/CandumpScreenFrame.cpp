#include <capture/CandumpScreenFrame.h>

#include <capture/CandumpFields.h>
#include <capture/NumberText.h>

#include <string>

namespace capture {

namespace {

constexpr uint8_t BIT_RATE_SWITCH = 1;
constexpr uint8_t ERROR_STATE = 2;
constexpr size_t CLASSIC_MAX_BYTES = 8;
constexpr std::string_view NOT_SET = "-";

/// Cuts off a letter of a flag, or the dash that stands in its place.
uint8_t takeFlag(std::string_view& field, std::string_view& rest, std::string_view letter, uint8_t flag)
{
    if (field != letter && field != NOT_SET) {
        return 0;
    }
    const bool isSet = field == letter;
    field = takeField(rest);
    return isSet ? flag : uint8_t{0};
}

/// "[8]"; two digits belong to a CAN FD frame.
void parseLength(std::string_view field, CandumpFrame& frame)
{
    const bool isBracketed = field.size() > 2 && field.front() == '[' && field.back() == ']';
    const std::string_view digits = isBracketed ? field.substr(1, field.size() - 2) : "";
    const auto length = wholeNumberOf<uint8_t>(digits);
    frame.isFd = false;
    if (digits.size() > 1) {
        becomeFd(frame);
    }
    if (!length || *length > (frame.isFd ? frame.payload.size() : CLASSIC_MAX_BYTES)) {
        refuseLine("the length in brackets is neither 0 to 8 nor, of a CAN FD frame, 00 to 64");
    }
    frame.lengthBytes = *length;
}

void parseBytes(std::string_view& rest, CandumpFrame& frame)
{
    for (size_t i = 0; i < frame.lengthBytes; ++i) {
        const std::string_view pair = takeField(rest);
        const auto byte = wholeNumberOf<uint8_t>(pair, 16);
        if (!byte || pair.size() != 2) {
            refuseLine("the payload is not " + std::to_string(frame.lengthBytes) + " pairs of hex digits");
        }
        frame.payload[i] = *byte;
    }
}

} // namespace

void parseScreenFrame(std::string_view rest, CandumpFrame& frame, LineDetails& details)
{
    std::string_view field = takeField(rest);
    frame.fdFlags = 0;
    frame.lengthCode = 0;
    frame.payload.fill(0);
    if (field == "RX" || field == "TX") {
        details.direction = field == "RX" ? Direction::RECEIVED : Direction::SENT;
        field = takeField(rest);
        frame.fdFlags = takeFlag(field, rest, "B", BIT_RATE_SWITCH);
        frame.fdFlags |= takeFlag(field, rest, "E", ERROR_STATE);
    }
    parseIdentifier(field, frame);
    parseLength(takeField(rest), frame);
    std::string_view behindLength = rest;
    if (takeField(behindLength) == "remote" && takeField(behindLength) == "request") {
        if (frame.isFd || frame.kind == FrameKind::ERROR) {
            refuseLine("only a classic frame is a remote request");
        }
        frame.kind = FrameKind::REMOTE;
        rest = behindLength;
    } else {
        parseBytes(rest, frame);
    }
    frame.fdFlags = frame.isFd ? frame.fdFlags : uint8_t{0};
    const std::string_view behind = takeField(rest);
    if (!behind.empty() && behind.front() != '\'' && behind != "ERRORFRAME") {
        refuseLine("something other than text in quotes follows the payload");
    }
}

} // namespace capture
