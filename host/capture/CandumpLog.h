#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

/// The text format in which CAN traffic is commonly logged, one frame per line:
///
///     (1700000000.000250) can0 1A4#0102030405060708      classic frame, 11-bit identifier: three hex digits
///     (1700000000.000300) can1 18FEF100#FFFF             classic frame, 29-bit identifier: eight hex digits
///     (1700000000.000350) can2 2B0##1AABBCC              CAN FD frame: ##, one hex digit of flags, payload
///     (1700000000.000400) can0 1A4#R                     remote frame; a digit behind R is the requested length
///     (1700000000.000450) can0 20000004#0000000000000000 error frame: identifier bit 29 set
///
/// What the same tools show on a terminal is read as well:
///
///     (1700000000.000250)  can0  RX - -  1A4   [8]  01 02 03 04 05 06 07 08   '........'
///       can2  2B0  [03]  AA BB CC                    CAN FD frame: two digits of length
///       can0  1A4   [4]  remote request
namespace capture {

/// Bit of the identifier field that marks an error frame.
constexpr uint32_t ERROR_FRAME_FLAG = 0x20000000;

enum class FrameKind : uint8_t
{
    DATA,
    REMOTE, ///< requests data, carries none
    ERROR,  ///< a report of the controller, not a frame of the bus
};

/// One line of a log.
struct CandumpFrame
{
    uint64_t timestampUs = 0;  ///< time in microseconds since the epoch, or since the start of the log
    std::string interfaceName; ///< without blanks
    FrameKind kind = FrameKind::DATA;
    bool isExtended = false; ///< 29-bit identifier; also set for error frames, whose class fills it
    bool isFd = false;
    uint8_t fdFlags = 0;     ///< 0 to 15; bit 0: bit-rate switch, bit 1: error state of the sender, bit 2: CAN FD
    uint8_t lengthCode = 0;  ///< 9 to 15: length code of a classic frame of 8 bytes on the wire; 0: it was 8
    uint32_t id = 0;         ///< identifier without flags; for an error frame its class
    uint8_t lengthBytes = 0; ///< payload; of a remote frame the requested length
    std::array<uint8_t, 64> payload{};

    std::span<const uint8_t> data() const
    {
        return std::span(payload).first(kind == FrameKind::REMOTE ? 0 : lengthBytes);
    }

    bool operator==(const CandumpFrame&) const = default;
};

/// Which way a frame went, seen from the logger.
enum class Direction : uint8_t
{
    UNKNOWN, ///< the capture does not say
    RECEIVED,
    SENT,
};

/// What a line may say besides its frame.
struct LineDetails
{
    uint16_t nanoseconds = 0; ///< 0 to 999, to be added to the frame's time
    Direction direction = Direction::UNKNOWN;
    bool hasTime = true; ///< only a line of a terminal may have none; the frame's time is then 0
};

/// A line that is none of this format; names line and reason.
class CandumpError : public std::runtime_error
{
public:
    /// @param lineNumber  counted from 1; 0: not known, the text then is the reason alone
    CandumpError(size_t lineNumber, const std::string& reason);

    size_t lineNumber() const { return line; }

private:
    size_t line;
};

/// Reads one line, without or with its line end ("\n", "\r\n"). Blanks around and between the fields and a
/// direction letter (R or T) at the end are accepted, likewise dots between payload bytes, fractions of one to
/// nine digits, lower-case digits, and a length code (_9 to _F) behind 8 bytes.
///
/// @param frame    set if the line holds one; unspecified after an exception
/// @param details  set likewise; null: not wanted
/// @return true if the line holds a frame; false if it is blank
/// @throws CandumpError with line number 0 and the reason
bool parseCandumpLine(std::string_view line, CandumpFrame& frame, LineDetails* details = nullptr);

/// Reads a frame alone, as it stands in a line of a log: "1A4#0102". Time and interface name stay as they are.
/// @throws CandumpError with line number 0 and the reason
void parseCandumpFrame(std::string_view text, CandumpFrame& frame);

/// Writes one line without a line end: exactly six decimals, upper-case digits, no direction letter. What
/// parseCandumpLine() makes of it equals `frame`, provided that the interface name has no blanks and the payload of
/// a classic frame has at most 8 bytes.
std::string formatCandumpLine(const CandumpFrame& frame);

/// Reads a log from a stream, line by line and in constant memory.
///
/// Threads: one at a time.
class CandumpReader
{
public:
    /// @param input  outlives the reader
    explicit CandumpReader(std::istream& input) : stream(input) {}

    /// Reads the next frame, over blank lines.
    /// @param details  as for parseCandumpLine()
    /// @return true if there was one; false at the end of the log
    /// @throws CandumpError with the number of the line that is malformed or cannot be read; the next call goes on
    ///         behind a malformed line
    bool next(CandumpFrame& frame, LineDetails* details = nullptr);

    /// Number of the line last read, counted from 1; 0 before the first.
    size_t lineNumber() const { return line; }

private:
    /// Longer than any line of the format, so that a file of another kind is refused, not collected in memory.
    static constexpr size_t LINE_MAX_BYTES = 512;

    std::istream& stream;
    size_t line = 0;
    std::array<char, LINE_MAX_BYTES> buffer{};
};

} // namespace capture
