#pragma once

#include "NoChannel.h"

#include <wire/Protocol.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace tool {

/// Which channel the frames of an interface in a capture are sent on: what --map says, else the number at the end
/// of the interface's name.
class ChannelMap
{
public:
    /// @param rules         "can0=3", "vcan1=can7"; one per interface
    /// @param presentBoard  tells which channels there are
    /// @throws WrongUsage with the text of a rule that cannot be
    ChannelMap(const std::vector<std::string>& rules, const wire::Board& presentBoard);

    /// @throws NoChannel if the interface has neither a rule nor a number, or the board lacks the channel of this number
    uint8_t channelOf(const std::string& interfaceName);

    /// Interfaces of rules that nobody has asked for: most likely misspelt.
    std::vector<std::string> unusedNames() const;

private:
    struct Target
    {
        uint8_t channel = 0;
        bool isUsed = false;
    };

    const wire::Board board;
    std::map<std::string, Target> channels;
};

} // namespace tool
