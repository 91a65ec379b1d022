#include "MonitorReader.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace tool {

namespace {

constexpr size_t BUFFER_BYTES = 65536;

/// The monitor itself takes any channel: for one that cannot be nothing would ever come.
wire::FileDescriptor openMonitor(const LoggerClient& client, const FilterSet& filters)
{
    client.requireChannels(filters.namedChannels());
    return client.openMonitor(filters.channels());
}

} // namespace

MonitorReader::MonitorReader(const LoggerClient& client, const FilterSet& filters)
    : MonitorReader(openMonitor(client, filters), client.offsetUs())
{
}

MonitorReader::MonitorReader(wire::FileDescriptor monitorStream, uint64_t timeOffsetUs)
    : stream(std::move(monitorStream)), offsetUs(timeOffsetUs), buffer(BUFFER_BYTES)
{
}

MonitorReader::Result MonitorReader::next(wire::MonitorEvent& event, StopSignal& stop, int limitMs)
{
    while (!decoder.next(event)) {
        if (std::exchange(hasBrought, false)) {
            return Result::QUIET;
        }
        if (!isFinishing && stop.wait(stream.get(), limitMs)) {
            finish();
        }
        const ssize_t count = ::recv(stream.get(), buffer.data(), buffer.size(), isFinishing ? 0 : MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            return Result::QUIET;
        }
        if (count <= 0) {
            return isFinishing ? Result::STOPPED : Result::ENDED;
        }
        decoder.feed(std::span(buffer).first(static_cast<size_t>(count)));
        hasBrought = true;
    }
    event.frame.timestampUs += offsetUs;
    return Result::EVENT;
}

void MonitorReader::finish()
{
    if (!isFinishing) {
        // What has crossed the buses by now may still be on its way; this asks for it and for the end.
        ::shutdown(stream.get(), SHUT_WR);
        isFinishing = true;
    }
}

} // namespace tool
