#include <bench/FaultPlan.h>

#include <config/ErrorName.h>
#include <logger/EpollLoop.h>

#include <cerrno>
#include <random>

namespace vlogger {

std::vector<std::chrono::milliseconds> faultTimes(const config::Faults& faults)
{
    std::mt19937 random(faults.seed);
    std::vector<std::chrono::milliseconds> times;
    for (const config::FaultEvent& event : faults.events) {
        // Not a distribution of the library: those differ from one to the next.
        const uint64_t spread = uint64_t{random()} * (uint64_t{event.spreadMs} + 1) >> 32;
        times.emplace_back(uint64_t{event.atMs} + spread);
    }
    return times;
}

FaultPlan::FaultPlan(EpollLoop& eventLoop, VirtualLogger& virtualLogger, const config::Faults& configured,
                     std::vector<std::unique_ptr<EthernetPeer>>& ethernetPeers)
    : logger(virtualLogger), peers(ethernetPeers)
{
    const Clock::Instant start = eventLoop.now();
    const std::vector<std::chrono::milliseconds> times = faultTimes(configured);
    events.reserve(times.size()); // the timers keep their addresses
    for (size_t i = 0; i < times.size(); ++i) {
        Event& event = events.emplace_back(Event{configured.events[i], start + times[i], nullptr});
        event.timer = std::make_unique<Timer>(eventLoop, [this, &event] { happen(event); });
        event.timer->start(event.due);
    }
}

void FaultPlan::happen(Event& event)
{
    apply(event.what);
    if (event.what.everyMs != 0) {
        event.due += std::chrono::milliseconds(event.what.everyMs);
        event.timer->start(event.due);
    }
}

void FaultPlan::apply(const config::FaultEvent& event)
{
    switch (event.kind) {
    case config::FaultKind::DEVICE_MISSING:
        logger.setDeviceMissing(event.target, true);
        return;
    case config::FaultKind::DEVICE_RETURNS:
        logger.setDeviceMissing(event.target, false);
        return;
    case config::FaultKind::DEVICE_VANISHES:
        logger.vanish(event.target);
        return;
    case config::FaultKind::WRITE_FAILS:
        logger.failWrites(event.target, config::errorNumberOf(event.error).value_or(EIO), event.count);
        return;
    case config::FaultKind::STREAM_CUT:
        logger.cutNextRecord(event.target);
        return;
    case config::FaultKind::RECORD_MALFORMED:
        logger.malformNextRecord(event.target);
        return;
    case config::FaultKind::CLOCK_LOST:
        logger.setSynchronised(event.target, false);
        return;
    case config::FaultKind::CLOCK_FOUND:
        logger.setSynchronised(event.target, true);
        return;
    case config::FaultKind::PEER_SILENT:
        setPeerSilent(event.target, true);
        return;
    case config::FaultKind::PEER_TALKS:
        setPeerSilent(event.target, false);
        return;
    }
}

void FaultPlan::setPeerSilent(const std::string& name, bool silent)
{
    for (const std::unique_ptr<EthernetPeer>& peer : peers) {
        if (peer->name() == name) {
            peer->setSilent(silent);
        }
    }
}

} // namespace vlogger
