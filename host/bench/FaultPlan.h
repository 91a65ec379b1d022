#pragma once

#include <bench/EthernetPeer.h>
#include <config/Configuration.h>
#include <logger/Timer.h>
#include <logger/VirtualLogger.h>

#include <chrono>
#include <memory>
#include <vector>

namespace vlogger {

/// When a fault happens, after the start. Drawn from the seed alone, so that a run can be repeated.
std::vector<std::chrono::milliseconds> faultTimes(const config::Faults& faults);

/// Lets the faults of a configuration happen at their times.
class FaultPlan
{
public:
    FaultPlan(EpollLoop& eventLoop, VirtualLogger& virtualLogger, const config::Faults& configured,
              std::vector<std::unique_ptr<EthernetPeer>>& ethernetPeers);

private:
    struct Event
    {
        config::FaultEvent what;
        Clock::Instant due;
        std::unique_ptr<Timer> timer;
    };

    void happen(Event& event);
    void apply(const config::FaultEvent& event);
    void setPeerSilent(const std::string& name, bool silent);

    VirtualLogger& logger;
    std::vector<std::unique_ptr<EthernetPeer>>& peers;
    std::vector<Event> events;
};

} // namespace vlogger
