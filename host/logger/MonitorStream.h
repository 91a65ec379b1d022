#pragma once

#include <logger/TraceStream.h>
#include <wire/MonitorProtocol.h>
#include <wire/StageStatistics.h>

namespace vlogger {

/// The stream of one monitor: like that of a device, but it tells its reader how much it has missed.
class MonitorStream : public TraceStream
{
public:
    MonitorStream(EpollLoop& eventLoop, wire::FileDescriptor connection, const wire::ChannelSet& watched,
                  const Options& options, Statistics& counters, OnEnded onEnded);

    bool watches(uint8_t channel) const { return channels.test(channel); }

    /// Appends a frame that a channel has sent or received. `frame.channel` is that channel.
    void report(const wire::CanRecord& frame, bool isSent);

    /// What has passed so far.
    wire::StageCounts counts() const;

private:
    void onStalled() override;
    void onRoom() override;
    void reportMissed();

    const wire::ChannelSet channels;
    uint64_t missed = 0; ///< since the last record
    uint64_t frames = 0;
    uint64_t missedInAll = 0;
};

} // namespace vlogger
