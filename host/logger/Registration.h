#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vlogger {

/// What a registration asks for: the frames with one identifier that one channel receives, for the process of a
/// name.
struct Registration
{
    uint8_t channel = 0;
    uint32_t idWord = 0; ///< identifier with bit 31 set for a 29-bit one, as in a record
    std::string name = {};

    bool operator==(const Registration&) const = default;
};

/// The outcome of reading a registration's text.
struct ParsedRegistration
{
    Registration registration = {};
    std::string_view problem = {}; ///< empty: the registration is good
};

/// Reads the text of a registration: "1 <channel> 1 <identifier word> <name>", the numbers in decimal, single
/// blanks between. The name is the rest and may hold blanks; NUL characters at the end do not count.
ParsedRegistration parseRegistration(std::string_view text);

} // namespace vlogger
