#include <logger/TraceDevice.h>

#include <utility>

namespace vlogger {

TraceStream& TraceDevice::open(wire::FileDescriptor connection)
{
    const auto forget = [this](const TraceStream& ended) {
        std::erase_if(streams, [&](const std::unique_ptr<TraceStream>& stream) { return stream.get() == &ended; });
    };
    streams.push_back(
        std::make_unique<TraceStream>(loop, std::move(connection), path, settings, statistics, forget));
    return *streams.back();
}

void TraceDevice::vanish()
{
    for (const std::unique_ptr<TraceStream>& stream : streams) {
        stream->close();
    }
}

} // namespace vlogger
