#include <capture/CandumpFields.h>

#include <capture/NumberText.h>

#include <algorithm>
#include <limits>

namespace capture {

namespace {

constexpr size_t STANDARD_ID_DIGITS = 3;
constexpr size_t EXTENDED_ID_DIGITS = 8;
constexpr uint32_t STANDARD_ID_MASK = 0x7FF;
constexpr uint32_t EXTENDED_ID_MASK = 0x1FFFFFFF;
constexpr size_t CLASSIC_PAYLOAD_MAX_BYTES = 8;
constexpr uint64_t US_PER_SECOND = 1000000;
constexpr uint64_t NS_PER_US = 1000;
constexpr size_t DECIMALS_MAX = 9;
constexpr size_t DATE_YEAR_END = 5; ///< "(2024-"
constexpr std::string_view BLANKS = " \t\r\n";

} // namespace

void refuseLine(const std::string& reason)
{
    throw CandumpError(0, reason);
}

std::string_view takeField(std::string_view& line)
{
    const size_t begin = std::min(line.find_first_not_of(BLANKS), line.size());
    line.remove_prefix(begin);
    const std::string_view field = line.substr(0, line.find_first_of(BLANKS));
    line.remove_prefix(field.size());
    return field;
}

void parseTimestamp(std::string_view field, CandumpFrame& frame, LineDetails& details)
{
    if (field.starts_with('(') && field.find('-') == DATE_YEAR_END) {
        refuseLine("the time stamp is a date; candump shows one that can be read with -t a");
    }
    if (field.size() < 2 || field.front() != '(' || field.back() != ')') {
        refuseLine("the line does not begin with a time stamp in parentheses");
    }
    field = field.substr(1, field.size() - 2);
    const size_t dot = field.find('.');
    const auto seconds = wholeNumberOf<uint64_t>(field.substr(0, dot));
    const std::string_view decimals = dot == std::string_view::npos ? "" : field.substr(dot + 1);
    auto nanoseconds = wholeNumberOf<uint64_t>(decimals);
    if (!seconds || !nanoseconds || decimals.size() > DECIMALS_MAX) {
        refuseLine("the time stamp is not seconds, a dot and decimals");
    }
    if (*seconds > std::numeric_limits<uint64_t>::max() / US_PER_SECOND - 1) {
        refuseLine("the time stamp is out of range");
    }
    for (size_t digits = decimals.size(); digits < DECIMALS_MAX; ++digits) {
        *nanoseconds *= 10;
    }
    frame.timestampUs = *seconds * US_PER_SECOND + *nanoseconds / NS_PER_US;
    details.nanoseconds = static_cast<uint16_t>(*nanoseconds % NS_PER_US);
}

void parseIdentifier(std::string_view digits, CandumpFrame& frame)
{
    const auto id = wholeNumberOf<uint32_t>(digits, 16);
    if (!id || (digits.size() != STANDARD_ID_DIGITS && digits.size() != EXTENDED_ID_DIGITS)) {
        refuseLine("the identifier has neither three nor eight hex digits");
    }
    frame.id = *id;
    frame.kind = FrameKind::DATA;
    frame.isExtended = digits.size() == EXTENDED_ID_DIGITS;
    if (!frame.isExtended) {
        if (frame.id > STANDARD_ID_MASK) {
            refuseLine("an identifier of three digits goes up to 7FF");
        }
        return;
    }
    if ((frame.id & ~EXTENDED_ID_MASK) == ERROR_FRAME_FLAG) {
        frame.kind = FrameKind::ERROR;
        frame.id &= EXTENDED_ID_MASK;
    }
    if (frame.id > EXTENDED_ID_MASK) {
        refuseLine("an identifier of eight digits goes up to 1FFFFFFF, an error frame's up to 3FFFFFFF");
    }
}

void becomeFd(CandumpFrame& frame)
{
    if (frame.kind == FrameKind::ERROR) {
        refuseLine("an error frame is no CAN FD frame");
    }
    frame.isFd = true;
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
            refuseLine("the payload is not pairs of hex digits");
        }
        if (length == limit) {
            refuseLine("the payload has more than " + std::to_string(limit) + " bytes");
        }
        frame.payload[length] = *byte;
        ++length;
        digits.remove_prefix(2);
    }
    frame.lengthBytes = static_cast<uint8_t>(length);
}

} // namespace capture
