#include "ChannelMap.h"

#include "FrameText.h"
#include "Usage.h"

namespace tool {

ChannelMap::ChannelMap(const std::vector<std::string>& rules)
{
    for (const std::string& rule : rules) {
        const size_t middle = rule.find('=');
        const auto channel = middle == std::string::npos ? std::nullopt : parseChannel(rule.substr(middle + 1));
        if (!channel || middle == 0) {
            throw WrongUsage("map \"" + rule + "\": it is not interface=channel, for example can0=3");
        }
        channels[rule.substr(0, middle)] = {.channel = *channel};
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
        throw WrongUsage("the capture's interface \"" + interfaceName +
                         "\" stands for no channel; say which: --map " + interfaceName + "=0");
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
