#include <logger/Registration.h>

#include <wire/BusProtocol.h>

#include <charconv>
#include <optional>

namespace vlogger {

namespace {

/// Takes what stands before the next blank off the front; nothing if there is no blank.
std::optional<std::string_view> takeField(std::string_view& rest)
{
    const size_t blank = rest.find(' ');
    if (blank == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view field = rest.substr(0, blank);
    rest.remove_prefix(blank + 1);
    return field;
}

template <typename Number>
bool readNumber(std::string_view field, Number& number)
{
    const char* const end = field.data() + field.size();
    const auto [stopped, error] = std::from_chars(field.data(), end, number);
    return error == std::errc() && stopped == end;
}

} // namespace

ParsedRegistration parseRegistration(std::string_view text)
{
    while (text.ends_with('\0')) {
        text.remove_suffix(1);
    }
    const auto kind = takeField(text);
    const auto channel = takeField(text);
    const auto count = takeField(text);
    const auto idWord = takeField(text);
    ParsedRegistration parsed;
    if (!idWord) {
        parsed.problem = "it has not five fields with single blanks between";
    } else if (kind != "1") {
        parsed.problem = "the first field is not 1";
    } else if (!readNumber(*channel, parsed.registration.channel)) {
        parsed.problem = "the channel is no number from 0 to 255";
    } else if (count != "1") {
        parsed.problem = "the third field is not 1";
    } else if (!readNumber(*idWord, parsed.registration.idWord)) {
        parsed.problem = "the identifier is no number of 32 bits";
    } else if (!wire::isBusName(text)) {
        parsed.problem = "the name is no bus name";
    } else {
        parsed.registration.name = text;
    }
    return parsed;
}

} // namespace vlogger
