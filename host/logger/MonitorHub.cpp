#include <logger/MonitorHub.h>

#include <utility>

namespace vlogger {

MonitorStream& MonitorHub::open(wire::FileDescriptor connection, const wire::ChannelSet& channels)
{
    const auto forget = [this](const TraceStream& ended) {
        std::erase_if(streams,
                      [&](const std::unique_ptr<MonitorStream>& stream) { return stream.get() == &ended; });
    };
    streams.push_back(
        std::make_unique<MonitorStream>(loop, std::move(connection), channels, settings, statistics, forget));
    return *streams.back();
}

bool MonitorHub::mayReport(Sender& sender)
{
    for (const std::unique_ptr<MonitorStream>& stream : streams) {
        if (stream->admit() == Admission::HOLD) {
            stream->wait(sender);
            return false;
        }
    }
    return true;
}

void MonitorHub::report(const wire::CanRecord& frame, std::optional<uint8_t> origin, const Bus& bus)
{
    wire::CanRecord seen = frame;
    for (const std::unique_ptr<MonitorStream>& stream : streams) {
        if (origin && stream->watches(*origin)) {
            seen.channel = *origin;
            stream->report(seen, true);
        }
        for (const Bus::Port& port : bus.members()) {
            if (port.channel != origin && stream->watches(port.channel)) {
                seen.channel = port.channel;
                stream->report(seen, false);
            }
        }
    }
}

} // namespace vlogger
