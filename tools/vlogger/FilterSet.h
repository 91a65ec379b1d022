#pragma once

#include <capture/CandumpLog.h>
#include <wire/MonitorProtocol.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

/// What a user wants to see: `can0`, `can0,123:7FF`, `can0,123:7FF,400:700`, `can0,123~7FF` (all but), `any,…`.
/// `can0,123~7FF,456~7FF,j`: all parts have to match; otherwise one does. `can0,#FFFFFFFF`: error frames of these
/// classes besides; without it none, unless there is no filter at all.
/// Identifiers of eight digits are 29-bit ones; their mask then tells them from the others, as 80000000 would.
class FilterSet
{
public:
    /// No filter shows everything.
    /// @throws WrongUsage with the text of a filter that cannot be
    explicit FilterSet(const std::vector<std::string>& texts);

    /// The channels that have to be watched.
    const wire::ChannelSet& channels() const { return watched; }
    /// Those that a filter names; `any` names none.
    const wire::ChannelSet& namedChannels() const { return named; }

    bool shows(uint8_t channel, const capture::CandumpFrame& frame) const;

private:
    struct Rule
    {
        uint32_t value;
        uint32_t mask;
        bool isInverted;
    };
    struct Entry
    {
        wire::ChannelSet channels;
        std::vector<Rule> rules; ///< one of them has to match, or all; none: everything does
        bool isJoined = false;   ///< all of them have to match
        uint32_t errorMask = 0;  ///< classes of error frames that match; the rules do not concern these
    };

    static Rule parseRule(const std::string& text);
    static uint32_t parseErrorMask(const std::string& text);

    std::vector<Entry> entries;
    wire::ChannelSet watched;
    wire::ChannelSet named;
};

} // namespace tool
