#include <logger/Router.h>

#include <logger/node/NodeMember.h>

#include <stdexcept>
#include <string>

namespace vlogger {

namespace {

constexpr uint8_t DATA_FRAME = 0;
constexpr uint8_t SENT_DATA_FRAME = 2;

} // namespace

Router::Router(const Options& options, DeviceTable& devices, const DeviceClock& deviceClock, MonitorHub& watchers,
               ProcessBus& registeredProcesses, Statistics& counters)
    : clock(deviceClock), monitors(watchers), processBus(registeredProcesses), statistics(counters)
{
    const auto attach = [&](Bus& bus, uint8_t channel) {
        if (busOf[channel] != nullptr) {
            throw std::invalid_argument("channel " + std::to_string(channel) + " is on two buses");
        }
        Device* const device = devices.traceOf(channel);
        bus.attach(channel, device == nullptr ? nullptr : &device->trace);
        busOf[channel] = &bus;
    };
    for (const std::vector<uint8_t>& channels : options.buses) {
        Bus& bus = buses.emplace_back();
        for (const uint8_t channel : channels) {
            attach(bus, channel);
        }
    }
    const bool pairwise = options.buses.empty();
    for (size_t channel = 0; channel < CHANNELS; ++channel) {
        if (busOf[channel] == nullptr) {
            const bool joinsPrevious = pairwise && channel % 2 == 1;
            attach(joinsPrevious ? buses.back() : buses.emplace_back(), static_cast<uint8_t>(channel));
        }
    }
}

void Router::attach(NodeMember& node)
{
    busOf[node.channel()]->attach(node);
}

bool Router::route(const wire::CanRecord& frame, std::optional<uint8_t> origin, Sender& sender)
{
    wire::CanRecord received = frame;
    received.timestampUs = clock.nowUs();
    if (received.frameKind == SENT_DATA_FRAME) {
        received.frameKind = DATA_FRAME;
    }
    Bus& bus = *busOf[frame.channel];
    if (!monitors.mayReport(sender) || !processBus.mayForward(received, origin, bus, sender) ||
        !bus.transmit(received, origin, sender)) {
        return false;
    }
    monitors.report(received, origin, bus);
    processBus.forward(received);
    ++statistics.framesIn;
    return true;
}

} // namespace vlogger
