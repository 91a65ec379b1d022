#pragma once

#include <vqutil/Export.h>

#include <iosfwd>
#include <string>

/// What stands at the start of each line of a hexdump().
enum hexdumpPrefix_t : unsigned int
{
    HEXDUMP_PREFIX_TEXT = 0, ///< the text alone
    HEXDUMP_PREFIX_TEXT_OFFSET =
        1, ///< the text, then the offset of the line's first byte, eight hex digits and ": "
};

/// Prints bytes as lines of two-digit lower-case hexadecimal numbers, each behind a blank. The lines reach the
/// stream in one piece.
///
/// @param stream        receives the lines; format flags and fill are left as they were
/// @param begin, end    the bytes; an empty range prints nothing
/// @param prefix        text at the start of each line
/// @param bytesPerLine  bytes of a full line, at least 1 (0 counts as 1)
/// @param prefixKind    what follows the text
/// @param showText      true: two blanks and the bytes as characters at the end of the line, "." for those outside
///                      0x20 to 0x7e; a short last line is filled up with blanks, so that its characters stand
///                      below those of the other lines
VQ_API void hexdump(std::ostream& stream, const unsigned char* begin, const unsigned char* end,
                    const std::string& prefix, unsigned long bytesPerLine, hexdumpPrefix_t prefixKind,
                    bool showText);
