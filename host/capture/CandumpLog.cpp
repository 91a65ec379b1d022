#include <capture/CandumpLog.h>

#include <capture/NumberText.h>

#include <algorithm>
#include <limits>
#include <optional>

namespace capture {

namespace {

constexpr size_t STANDARD_ID_DIGITS = 3;
constexpr size_t EXTENDED_ID_DIGITS = 8;
constexpr uint32_t STANDARD_ID_MASK = 0x7FF;
constexpr uint32_t EXTENDED_ID_MASK = 0x1FFFFFFF;
constexpr uint32_t ERROR_FRAME_FLAG = 0x20000000;
constexpr size_t CLASSIC_PAYLOAD_MAX_BYTES = 8;
constexpr uint64_t US_PER_SECOND = 1000000;
constexpr size_t DECIMALS = 6;
constexpr size_t DECIMALS_MAX = 9;
constexpr std::string_view BLANKS = " \t\r\n";
constexpr std::string_view HEX_DIGITS = "0123456789ABCDEF";

[[noreturn]] void refuse(const std::string& reason)
{
    throw CandumpError(0, reason);
}

/// Cuts the next blank-separated field off the line; empty at its end.
std::string_view takeField(std::string_view& line)
{
    const size_t begin = std::min(line.find_first_not_of(BLANKS), line.size());
    line.remove_prefix(begin);
    const std::string_view field = line.substr(0, line.find_first_of(BLANKS));
    line.remove_prefix(field.size());
    return field;
}

uint64_t parseTimestamp(std::string_view field)
{
    if (field.size() < 2 || field.front() != '(' || field.back() != ')') {
        refuse("the line does not begin with a time stamp in parentheses");
    }
    field = field.substr(1, field.size() - 2);
    const size_t dot = field.find('.');
    const auto seconds = wholeNumberOf<uint64_t>(field.substr(0, dot), 10);
    const std::string_view decimals = dot == std::string_view::npos ? "" : field.substr(dot + 1);
    const auto fraction = wholeNumberOf<uint64_t>(decimals.substr(0, DECIMALS), 10);
    if (!seconds || !fraction || decimals.size() > DECIMALS_MAX ||
        !std::ranges::all_of(decimals, [](char c) { return c >= '0' && c <= '9'; })) {
        refuse("the time stamp is not seconds, a dot and decimals");
    }
    if (*seconds > std::numeric_limits<uint64_t>::max() / US_PER_SECOND - 1) {
        refuse("the time stamp is out of range");
    }
    uint64_t microseconds = *fraction;
    for (size_t digits = decimals.size(); digits < DECIMALS; ++digits) {
        microseconds *= 10;
    }
    return *seconds * US_PER_SECOND + microseconds;
}

void parseIdentifier(std::string_view digits, CandumpFrame& frame)
{
    const auto id = wholeNumberOf<uint32_t>(digits, 16);
    if (!id || (digits.size() != STANDARD_ID_DIGITS && digits.size() != EXTENDED_ID_DIGITS)) {
        refuse("the identifier has neither three nor eight hex digits");
    }
    frame.id = *id;
    frame.kind = FrameKind::DATA;
    frame.isExtended = digits.size() == EXTENDED_ID_DIGITS;
    if (!frame.isExtended) {
        if (frame.id > STANDARD_ID_MASK) {
            refuse("an identifier of three digits goes up to 7FF");
        }
        return;
    }
    if ((frame.id & ~EXTENDED_ID_MASK) == ERROR_FRAME_FLAG) {
        frame.kind = FrameKind::ERROR;
        frame.id &= EXTENDED_ID_MASK;
    }
    if (frame.id > EXTENDED_ID_MASK) {
        refuse("an identifier of eight digits goes up to 1FFFFFFF, an error frame's up to 3FFFFFFF");
    }
}

void parsePayload(std::string_view digits, CandumpFrame& frame)
{
    const size_t limit = frame.isFd ? frame.payload.size() : CLASSIC_PAYLOAD_MAX_BYTES;
    size_t length = 0;
    while (!digits.empty()) {
        if (digits.front() == '.' && length != 0 && digits.size() > 1) {
            digits.remove_prefix(1);
        }
        const auto byte = wholeNumberOf<uint8_t>(digits.substr(0, 2), 16);
        if (!byte || digits.size() < 2) {
            refuse("the payload is not pairs of hex digits");
        }
        if (length == limit) {
            refuse("the payload has more than " + std::to_string(limit) + " bytes");
        }
        frame.payload[length] = *byte;
        ++length;
        digits.remove_prefix(2);
    }
    frame.lengthBytes = static_cast<uint8_t>(length);
}

/// Cuts off what some tools append to a full classic frame: an underscore and the length code of the wire, 9 to F.
void dropLengthCode(std::string_view& digits)
{
    if (digits.size() > 2 && digits[digits.size() - 2] == '_') {
        const auto code = wholeNumberOf<uint8_t>(digits.substr(digits.size() - 1), 16);
        if (code && *code > CLASSIC_PAYLOAD_MAX_BYTES) {
            digits.remove_suffix(2);
        }
    }
}

void parseRemoteLength(std::string_view digits, CandumpFrame& frame)
{
    const auto length = digits.empty() ? 0 : wholeNumberOf<uint8_t>(digits, 16);
    if (!length || *length > CLASSIC_PAYLOAD_MAX_BYTES) {
        refuse("the length of a remote frame is not 0 to 8");
    }
    frame.lengthBytes = *length;
}

void parseFrame(std::string_view field, CandumpFrame& frame)
{
    const size_t mark = field.find('#');
    if (mark == std::string_view::npos) {
        refuse("the frame has no # between identifier and payload");
    }
    parseIdentifier(field.substr(0, mark), frame);
    std::string_view rest = field.substr(mark + 1);
    frame.lengthBytes = 0;
    frame.payload.fill(0);
    frame.fdFlags = 0;
    dropLengthCode(rest);
    frame.isFd = rest.starts_with('#');
    if (frame.isFd) {
        const auto flags = wholeNumberOf<uint8_t>(rest.substr(1, 1), 16);
        if (!flags) {
            refuse("a CAN FD frame has no digit of flags behind ##");
        }
        if (frame.kind == FrameKind::ERROR) {
            refuse("an error frame is no CAN FD frame");
        }
        frame.fdFlags = *flags;
        rest.remove_prefix(2);
    } else if (frame.kind == FrameKind::DATA && rest.starts_with('R')) {
        frame.kind = FrameKind::REMOTE;
        parseRemoteLength(rest.substr(1), frame);
        return;
    }
    parsePayload(rest, frame);
}

void appendHex(std::string& text, uint32_t value, size_t digits)
{
    for (size_t digit = digits; digit-- > 0;) {
        text += HEX_DIGITS[(value >> (4 * digit)) & 0xF];
    }
}

} // namespace

CandumpError::CandumpError(size_t lineNumber, const std::string& reason)
    : std::runtime_error(lineNumber == 0 ? reason : "line " + std::to_string(lineNumber) + ": " + reason),
      line(lineNumber)
{
}

bool parseCandumpLine(std::string_view line, CandumpFrame& frame)
{
    const std::string_view timestamp = takeField(line);
    if (timestamp.empty()) {
        return false;
    }
    frame.timestampUs = parseTimestamp(timestamp);
    frame.interfaceName = takeField(line);
    if (frame.interfaceName.empty()) {
        refuse("the line ends behind the time stamp");
    }
    const std::string_view frameText = takeField(line);
    if (frameText.empty()) {
        refuse("the line ends behind the interface");
    }
    parseFrame(frameText, frame);
    const std::string_view direction = takeField(line);
    if (!direction.empty() && direction != "R" && direction != "T") {
        refuse("something other than a direction letter follows the frame");
    }
    if (!takeField(line).empty()) {
        refuse("something follows the direction letter");
    }
    return true;
}

std::string formatCandumpLine(const CandumpFrame& frame)
{
    const std::string decimals = std::to_string(frame.timestampUs % US_PER_SECOND);
    std::string text;
    text.reserve(64 + 2 * frame.payload.size());
    text.append("(").append(std::to_string(frame.timestampUs / US_PER_SECOND)).append(".");
    text.append(DECIMALS - decimals.size(), '0').append(decimals).append(") ");
    text.append(frame.interfaceName).append(" ");
    if (frame.kind == FrameKind::ERROR) {
        appendHex(text, frame.id | ERROR_FRAME_FLAG, EXTENDED_ID_DIGITS);
    } else {
        appendHex(text, frame.id, frame.isExtended ? EXTENDED_ID_DIGITS : STANDARD_ID_DIGITS);
    }
    text += '#';
    if (frame.kind == FrameKind::REMOTE) {
        text += 'R';
        if (frame.lengthBytes != 0) {
            appendHex(text, frame.lengthBytes, 1);
        }
        return text;
    }
    if (frame.isFd) {
        text += '#';
        appendHex(text, frame.fdFlags, 1);
    }
    for (const uint8_t byte : frame.data()) {
        appendHex(text, byte, 2);
    }
    return text;
}

bool CandumpReader::next(CandumpFrame& frame)
{
    while (stream.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()))) {
        ++line;
        // The count includes the line end, which the last line may lack.
        const auto count = static_cast<size_t>(stream.gcount());
        try {
            if (parseCandumpLine({buffer.data(), stream.eof() ? count : count - 1}, frame)) {
                return true;
            }
        } catch (const CandumpError& error) {
            throw CandumpError(line, error.what());
        }
    }
    if (stream.bad()) {
        throw CandumpError(line + 1, "the log cannot be read");
    }
    if (stream.eof()) {
        return false;
    }
    // Only a line that does not fit leaves the stream failed without its end being reached.
    ++line;
    stream.clear();
    stream.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    throw CandumpError(line, "the line is too long for this format");
}

} // namespace capture
