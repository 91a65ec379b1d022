#include <bench/CyclicSender.h>

#include <logger/EpollLoop.h>

#include <algorithm>

namespace vlogger {

CyclicSender::CyclicSender(EpollLoop& eventLoop, VirtualLogger& virtualLogger, uint8_t channel,
                           const config::CyclicFrame& frame)
    : loop(eventLoop), logger(virtualLogger), period(std::chrono::milliseconds(frame.periodMs)),
      due(eventLoop.now() + period), timer(eventLoop, [this] { send(); })
{
    record.channel = channel;
    record.type = static_cast<uint8_t>((frame.extended ? 1 : 0) | (frame.fd ? 2 : 0));
    record.id = frame.id;
    record.lengthBytes = static_cast<uint8_t>(frame.payload.size());
    std::copy(frame.payload.begin(), frame.payload.end(), record.payload.begin());
    timer.start(due);
}

void CyclicSender::send()
{
    logger.sendFromNode(record);
    // Frames that a busy bus has delayed beyond their period are not made up for.
    due = std::max(due + period, loop.now());
    timer.start(due);
}

} // namespace vlogger
