#include <capture/CandumpLog.h>

#include <capture/CandumpFields.h>
#include <capture/CandumpScreenFrame.h>
#include <capture/NumberText.h>

#include <limits>

namespace capture {

namespace {

constexpr size_t STANDARD_ID_DIGITS = 3;
constexpr size_t EXTENDED_ID_DIGITS = 8;
constexpr size_t CLASSIC_PAYLOAD_MAX_BYTES = 8;
constexpr uint64_t US_PER_SECOND = 1000000;
constexpr size_t DECIMALS = 6;
constexpr std::string_view HEX_DIGITS = "0123456789ABCDEF";

/// Cuts off what some tools append to a classic frame: an underscore and the length code of the wire, 9 to F.
uint8_t takeLengthCode(std::string_view& digits)
{
    if (digits.size() > 2 && digits[digits.size() - 2] == '_') {
        const auto code = wholeNumberOf<uint8_t>(digits.substr(digits.size() - 1), 16);
        if (code && *code > CLASSIC_PAYLOAD_MAX_BYTES) {
            digits.remove_suffix(2);
            return *code;
        }
    }
    return 0;
}

void parseRemoteLength(std::string_view digits, CandumpFrame& frame)
{
    const auto length = digits.empty() ? 0 : wholeNumberOf<uint8_t>(digits, 16);
    if (!length || *length > CLASSIC_PAYLOAD_MAX_BYTES) {
        refuseLine("the length of a remote frame is not 0 to 8");
    }
    frame.lengthBytes = *length;
}

/// What stands behind ## in a CAN FD frame.
void parseFdPart(std::string_view part, CandumpFrame& frame)
{
    const auto flags = wholeNumberOf<uint8_t>(part.substr(0, 1), 16);
    if (!flags) {
        refuseLine("a CAN FD frame has no digit of flags behind ##");
    }
    becomeFd(frame);
    frame.fdFlags = *flags;
    parsePayload(part.substr(1), frame);
}

/// What stands behind # in every other frame.
void parseClassicPart(std::string_view part, CandumpFrame& frame)
{
    frame.lengthCode = takeLengthCode(part);
    if (frame.kind == FrameKind::DATA && (part.starts_with('R') || part.starts_with('r'))) {
        frame.kind = FrameKind::REMOTE;
        parseRemoteLength(part.substr(1), frame);
    } else {
        parsePayload(part, frame);
    }
    if (frame.lengthCode != 0 && frame.lengthBytes != CLASSIC_PAYLOAD_MAX_BYTES) {
        refuseLine("a length code stands behind 8 bytes only");
    }
}

/// True for a line as a terminal shows it: behind time and interface stands no frame with a #, and somewhere a length in
/// brackets.
bool isScreenLine(std::string_view line)
{
    if (line.find('[') == std::string_view::npos) {
        return false;
    }
    if (takeField(line).starts_with('(')) {
        takeField(line);
    }
    return takeField(line).find('#') == std::string_view::npos;
}

Direction directionOf(std::string_view letter)
{
    if (letter.empty()) {
        return Direction::UNKNOWN;
    }
    if (letter != "R" && letter != "T") {
        refuseLine("something other than a direction letter follows the frame");
    }
    return letter == "R" ? Direction::RECEIVED : Direction::SENT;
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

void parseCandumpFrame(std::string_view text, CandumpFrame& frame)
{
    const size_t mark = text.find('#');
    if (mark == std::string_view::npos) {
        refuseLine("the frame has no # between identifier and payload");
    }
    parseIdentifier(text.substr(0, mark), frame);
    frame.isFd = false;
    frame.fdFlags = 0;
    frame.lengthCode = 0;
    frame.lengthBytes = 0;
    frame.payload.fill(0);
    const std::string_view rest = text.substr(mark + 1);
    if (rest.starts_with('#')) {
        parseFdPart(rest.substr(1), frame);
    } else {
        parseClassicPart(rest, frame);
    }
}

bool parseCandumpLine(std::string_view line, CandumpFrame& frame, LineDetails* details)
{
    LineDetails found;
    std::string_view rest = line;
    const std::string_view first = takeField(rest);
    if (first.empty()) {
        return false;
    }
    const bool isScreen = isScreenLine(line);
    found.hasTime = !isScreen || first.starts_with('(');
    if (found.hasTime) {
        parseTimestamp(first, frame, found);
        frame.interfaceName = takeField(rest);
    } else {
        frame.timestampUs = 0;
        frame.interfaceName = first;
    }
    if (frame.interfaceName.empty()) {
        refuseLine("the line ends behind the time stamp");
    }
    const std::string_view behindInterface = rest;
    const std::string_view frameText = takeField(rest);
    if (frameText.empty()) {
        refuseLine("the line ends behind the interface");
    }
    if (isScreen) {
        parseScreenFrame(behindInterface, frame, found);
    } else {
        parseCandumpFrame(frameText, frame);
        found.direction = directionOf(takeField(rest));
        if (!takeField(rest).empty()) {
            refuseLine("something follows the direction letter");
        }
    }
    if (details != nullptr) {
        *details = found;
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
    }
    if (frame.isFd) {
        text += '#';
        appendHex(text, frame.fdFlags, 1);
    }
    for (const uint8_t byte : frame.data()) {
        appendHex(text, byte, 2);
    }
    if (frame.lengthCode != 0) {
        text += '_';
        appendHex(text, frame.lengthCode, 1);
    }
    return text;
}

bool CandumpReader::next(CandumpFrame& frame, LineDetails* details)
{
    while (stream.getline(buffer.data(), static_cast<std::streamsize>(buffer.size()))) {
        ++line;
        // The count includes the line end, which the last line may lack.
        const auto count = static_cast<size_t>(stream.gcount());
        try {
            if (parseCandumpLine({buffer.data(), stream.eof() ? count : count - 1}, frame, details)) {
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
