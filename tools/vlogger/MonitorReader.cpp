#include "MonitorReader.h"

#include <sys/socket.h>

#include <cerrno>

namespace tool {

namespace {

constexpr size_t BUFFER_BYTES = 65536;

} // namespace

MonitorReader::MonitorReader(const LoggerClient& client, const wire::ChannelSet& channels)
    : stream(client.openMonitor(channels)), offsetUs(client.offsetUs()), buffer(BUFFER_BYTES)
{
}

MonitorReader::Result MonitorReader::next(wire::MonitorEvent& event, StopSignal& stop, int limitMs)
{
    while (!decoder.next(event)) {
        ssize_t count = ::recv(stream.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
        if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
            if (limitMs == 0) {
                return Result::QUIET;
            }
            if (stop.wait(stream.get(), limitMs)) {
                return Result::STOPPED;
            }
            count = ::recv(stream.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
            if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
                return Result::QUIET;
            }
        } else if (stop.hasCome()) {
            return Result::STOPPED;
        }
        if (count <= 0) {
            return Result::ENDED;
        }
        decoder.feed(std::span(buffer).first(static_cast<size_t>(count)));
    }
    event.frame.timestampUs += offsetUs;
    return Result::EVENT;
}

} // namespace tool
