#pragma once

#include <logger/Router.h>
#include <logger/TraceDevice.h>
#include <wire/StageStatistics.h>

#include <string>
#include <vector>

/// Puts what the parts of the virtual logger have counted into the stages of a frame's way.
namespace vlogger {

/// The buses that have carried anything, by their channels.
std::vector<wire::StageCounts> busCounts(const Router& router);

/// Adds a device that has received anything or is open: its queue, and stream and reader of each opener.
void addCounts(const std::string& path, const TraceDevice& device, std::vector<wire::StageCounts>& stages);

/// The channels that have sent or received anything, in ascending order.
std::vector<ChannelStatistics> channelCounts(const Router& router);

} // namespace vlogger
