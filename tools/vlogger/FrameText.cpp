#include "FrameText.h"

#include "Usage.h"

#include <capture/NumberText.h>
#include <wire/FdLength.h>

#include <algorithm>
#include <array>
#include <cstdio>

namespace tool {

namespace {

constexpr uint8_t EXTENDED_BIT = 1;
constexpr uint8_t FD_BIT = 2;
constexpr uint8_t REMOTE_FRAME = 1;
constexpr std::string_view CHANNEL_PREFIX = "can";

bool isExtended(uint8_t type)
{
    return type == 1 || type == 3;
}

} // namespace

capture::CandumpFrame parseFrame(const std::string& text)
{
    capture::CandumpFrame frame;
    frame.interfaceName = nameOfChannel(0);
    if (text.empty()) {
        throw WrongUsage("a frame is empty; it is, for example, 123#DEADBEEF");
    }
    if (text.find_first_of(" \t\r\n") != std::string::npos) {
        throw WrongUsage("frame \"" + text + "\": it contains blanks");
    }
    try {
        capture::parseCandumpFrame(text, frame);
    } catch (const capture::CandumpError& error) {
        throw WrongUsage("frame \"" + text + "\": " + error.what());
    }
    if (frame.isFd && !wire::isFdLength(frame.lengthBytes)) {
        throw WrongUsage("frame \"" + text + "\": " + wire::noFdLength(frame.lengthBytes));
    }
    return frame;
}

std::optional<uint8_t> parseChannel(std::string_view text)
{
    if (text.starts_with(CHANNEL_PREFIX)) {
        text.remove_prefix(CHANNEL_PREFIX.size());
    }
    return capture::wholeNumberOf<uint8_t>(text);
}

std::string nameOfChannel(uint8_t channel)
{
    return std::string(CHANNEL_PREFIX) + std::to_string(channel);
}

std::optional<wire::CanRecord> recordOf(const capture::CandumpFrame& frame, uint8_t channel)
{
    if (frame.kind == capture::FrameKind::ERROR) {
        return std::nullopt;
    }
    wire::CanRecord record;
    record.channel = channel;
    record.frameKind = frame.kind == capture::FrameKind::REMOTE ? REMOTE_FRAME : uint8_t{0};
    record.type = static_cast<uint8_t>((frame.isExtended ? EXTENDED_BIT : 0) | (frame.isFd ? FD_BIT : 0));
    record.id = frame.id;
    record.lengthBytes = static_cast<uint8_t>(frame.data().size());
    record.payload = frame.payload;
    return record;
}

capture::CandumpFrame frameOf(const wire::CanRecord& record)
{
    capture::CandumpFrame frame;
    frame.timestampUs = record.timestampUs;
    frame.interfaceName = nameOfChannel(record.channel);
    frame.kind = record.frameKind == REMOTE_FRAME ? capture::FrameKind::REMOTE : capture::FrameKind::DATA;
    frame.isExtended = isExtended(record.type);
    // Types that no application should send are shown as what their payload asks for.
    frame.isFd = frame.kind == capture::FrameKind::DATA &&
                 (record.type == FD_BIT || record.type == (FD_BIT | EXTENDED_BIT) || record.lengthBytes > 8);
    frame.id = record.id & (frame.isExtended ? 0x1FFFFFFFU : 0x7FFU);
    frame.lengthBytes = frame.kind == capture::FrameKind::REMOTE ? uint8_t{0} : record.lengthBytes;
    std::copy_n(record.payload.begin(), frame.lengthBytes, frame.payload.begin());
    return frame;
}

std::string formatShown(const capture::CandumpFrame& frame)
{
    std::array<char, 64> head;
    const bool isLong = frame.isExtended || frame.kind == capture::FrameKind::ERROR;
    const uint32_t flag = frame.kind == capture::FrameKind::ERROR ? 0x20000000U : 0U;
    const int size = std::snprintf(head.data(), head.size(), isLong ? "%08X  " : "%03X  ", frame.id | flag);
    std::string text(head.data(), static_cast<size_t>(size));
    std::snprintf(head.data(), head.size(), frame.isFd ? "[%02d]" : " [%d]", int{frame.lengthBytes});
    text += head.data();
    text += frame.kind == capture::FrameKind::REMOTE ? "  remote request" : " ";
    for (const uint8_t byte : frame.data()) {
        std::snprintf(head.data(), head.size(), " %02X", int{byte});
        text += head.data();
    }
    if (frame.lengthBytes == 0 && frame.kind != capture::FrameKind::REMOTE) {
        text.pop_back();
    }
    return text;
}

} // namespace tool
