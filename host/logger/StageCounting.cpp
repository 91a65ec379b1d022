#include <logger/StageCounting.h>

#include <algorithm>

namespace vlogger {

std::vector<wire::StageCounts> busCounts(const Router& router)
{
    std::vector<wire::StageCounts> stages;
    for (const Bus& bus : router.allBuses()) {
        if (bus.framesIn() == 0) {
            continue;
        }
        wire::StageCounts& stage = stages.emplace_back();
        for (const Bus::Port& port : bus.members()) {
            stage.name.append(stage.name.empty() ? "can" : " can").append(std::to_string(port.channel));
        }
        stage.in = bus.framesIn();
        stage.out = bus.framesOut();
    }
    return stages;
}

void addCounts(const std::string& path, const TraceDevice& device, std::vector<wire::StageCounts>& stages)
{
    if (device.framesReceived() == 0 && device.openStreams().empty()) {
        return;
    }
    const size_t queue = stages.size();
    stages.push_back({.stage = wire::Stage::DEVICE_QUEUE,
                      .name = path,
                      .in = device.framesReceived(),
                      .out = device.framesReceived() - device.framesUnread(),
                      .dropped = device.framesUnread()});
    size_t number = 0;
    for (const auto& stream : device.openStreams()) {
        const ReaderStatistics counted = stream->statistics();
        const uint64_t waiting = stream->recordsWaiting();
        const uint64_t taken = counted.framesQueued - waiting;
        const uint64_t unread = std::min(stream->recordsInSystem(), taken);
        const std::string name = path + " #" + std::to_string(++number);
        stages.push_back({.stage = wire::Stage::STREAM,
                          .name = name,
                          .in = counted.framesQueued + counted.framesDropped,
                          .out = taken,
                          .waiting = waiting,
                          .dropped = counted.framesDropped});
        stages.push_back(
            {.stage = wire::Stage::READER, .name = name, .in = taken, .out = taken - unread, .waiting = unread});
        // What waits for the slowest reader waits in the device's queue.
        stages[queue].waiting = std::max(stages[queue].waiting, waiting);
    }
}

std::vector<ChannelStatistics> channelCounts(const Router& router)
{
    std::vector<ChannelStatistics> channels;
    for (const Bus& bus : router.allBuses()) {
        for (const Bus::Port& port : bus.members()) {
            if (port.sent != 0 || port.received != 0) {
                channels.push_back({.channel = port.channel, .sent = port.sent, .received = port.received});
            }
        }
    }
    std::ranges::sort(channels, {}, &ChannelStatistics::channel);
    return channels;
}

} // namespace vlogger
