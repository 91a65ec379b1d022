#include "ChannelMap.h"

#include "FrameText.h"
#include "Usage.h"

#include <config/MissingChannel.h>

namespace tool {

ChannelMap::ChannelMap(const std::vector<std::string>& rules, const wire::Board& presentBoard) : board(presentBoard)
{
    for (const std::string& rule : rules) {
        const size_t middle = rule.find('=');
        const auto channel = middle == std::string::npos ? std::nullopt : parseChannel(rule.substr(middle + 1));
        if (!channel || middle == 0) {
            throw WrongUsage("map \"" + rule + "\": it is not interface=channel, for example can0=3");
        }
        if (const auto missing = config::missingChannel(board, *channel)) {
            throw WrongUsage("map \"" + rule + "\": " + *missing);
        }
        if (!channels.try_emplace(rule.substr(0, middle), Target{.channel = *channel}).second) {
            throw WrongUsage("map \"" + rule + "\": its interface has a channel already");
        }
    }
}

uint8_t ChannelMap::channelOf(const std::string& interfaceName)
{
    const auto known = channels.find(interfaceName);
    if (known != channels.end()) {
        known->second.isUsed = true;
        return known->second.channel;
    }
    const size_t digits = interfaceName.find_last_not_of("0123456789") + 1;
    const auto channel = parseChannel(interfaceName.substr(digits));
    if (!channel) {
        throw NoChannel("the capture's interface \"" + interfaceName +
                        "\" stands for no channel; say which: --map " + interfaceName + "=0");
    }
    if (const auto missing = config::missingChannel(board, *channel)) {
        throw NoChannel("the capture's interface \"" + interfaceName + "\": " + *missing);
    }
    channels[interfaceName] = {.channel = *channel, .isUsed = true};
    return *channel;
}

std::vector<std::string> ChannelMap::unusedNames() const
{
    std::vector<std::string> names;
    for (const auto& [name, target] : channels) {
        if (!target.isUsed) {
            names.push_back(name);
        }
    }
    return names;
}

} // namespace tool
