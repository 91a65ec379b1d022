#include "FilterSet.h"

#include "FrameText.h"
#include "Usage.h"

#include <capture/NumberText.h>

#include <algorithm>
#include <optional>
#include <string_view>

namespace tool {

namespace {

constexpr uint32_t EXTENDED_FLAG = 0x80000000;
constexpr uint32_t REMOTE_FLAG = 0x40000000;
constexpr size_t EXTENDED_DIGITS = 8;

/// Cuts the text at commas.
std::vector<std::string> partsOf(const std::string& text)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    for (size_t end = text.find(','); end != std::string::npos; end = text.find(',', begin)) {
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

} // namespace

FilterSet::FilterSet(const std::vector<std::string>& texts)
{
    for (const std::string& text : texts) {
        const std::vector<std::string> parts = partsOf(text);
        Entry& entry = entries.emplace_back();
        if (parts.front() == "any") {
            entry.channels.set();
        } else if (const auto channel = parseChannel(parts.front())) {
            entry.channels.set(*channel);
            named.set(*channel);
        } else {
            throw WrongUsage("filter \"" + text + "\": \"" + parts.front() +
                             "\" is no channel (can0 to can255, any)");
        }
        for (size_t i = 1; i < parts.size(); ++i) {
            if (parts[i] == "j" || parts[i] == "J") {
                entry.isJoined = true;
            } else if (parts[i].starts_with('#')) {
                entry.errorMask = parseErrorMask(parts[i]);
            } else {
                entry.rules.push_back(parseRule(parts[i]));
            }
        }
        watched |= entry.channels;
    }
    if (entries.empty()) {
        watched.set();
    }
}

uint32_t FilterSet::parseErrorMask(const std::string& text)
{
    const auto mask = capture::wholeNumberOf<uint32_t>(std::string_view(text).substr(1), 16);
    if (!mask) {
        throw WrongUsage("filter \"" + text + "\": behind # stands a mask of error classes in hex digits");
    }
    return *mask;
}

FilterSet::Rule FilterSet::parseRule(const std::string& text)
{
    const size_t middle = text.find_first_of(":~");
    const std::string_view digits = std::string_view(text).substr(0, middle);
    const auto value = capture::wholeNumberOf<uint32_t>(digits, 16);
    const auto mask = middle == std::string::npos
                          ? std::nullopt
                          : capture::wholeNumberOf<uint32_t>(std::string_view(text).substr(middle + 1), 16);
    if (!value || !mask) {
        throw WrongUsage("filter \"" + text +
                         "\": it is not identifier:mask, identifier~mask or #errormask in hex digits");
    }
    const bool isLong = digits.size() == EXTENDED_DIGITS;
    return {.value = *value | (isLong ? EXTENDED_FLAG : 0),
            .mask = *mask | (isLong ? EXTENDED_FLAG : 0),
            .isInverted = text[middle] == '~'};
}

bool FilterSet::shows(uint8_t channel, const capture::CandumpFrame& frame) const
{
    if (entries.empty()) {
        return true;
    }
    const uint32_t word = frame.id | (frame.isExtended ? EXTENDED_FLAG : 0) |
                          (frame.kind == capture::FrameKind::REMOTE ? REMOTE_FLAG : 0);
    const bool isError = frame.kind == capture::FrameKind::ERROR;
    return std::ranges::any_of(entries, [&](const Entry& entry) {
        const auto matches = [word](const Rule& rule) {
            return ((word & rule.mask) == (rule.value & rule.mask)) != rule.isInverted;
        };
        if (!entry.channels.test(channel)) {
            return false;
        }
        if (isError) {
            return (frame.id & entry.errorMask) != 0;
        }
        return entry.rules.empty() || (entry.isJoined ? std::ranges::all_of(entry.rules, matches)
                                                      : std::ranges::any_of(entry.rules, matches));
    });
}

} // namespace tool
