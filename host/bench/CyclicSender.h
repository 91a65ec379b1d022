#pragma once

#include <config/Configuration.h>
#include <logger/Timer.h>
#include <logger/VirtualLogger.h>

namespace vlogger {

/// A node's frame that comes again and again, on a schedule that does not drift.
class CyclicSender
{
public:
    CyclicSender(EpollLoop& eventLoop, VirtualLogger& virtualLogger, uint8_t channel,
                 const config::CyclicFrame& frame);

private:
    void send();

    EpollLoop& loop;
    VirtualLogger& logger;
    const Clock::Duration period;
    wire::CanRecord record;
    Clock::Instant due;
    Timer timer;
};

} // namespace vlogger
