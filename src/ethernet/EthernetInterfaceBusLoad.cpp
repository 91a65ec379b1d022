#include <EthernetInterface.h>

#include <vqutil/TimeOfDay.h>

namespace {

constexpr uint64_t LONGEST_OPEN_INTERVAL_US = 999'999;

} // namespace

void EthernetInterface::calcBitRate()
{
    ++busLoadCount;
    const uint64_t now = getMicroSecondsOfDay();
    // The time of day starts anew at midnight; the unsigned difference is huge then and closes the interval.
    if (now - busLoadIntervalStart <= LONGEST_OPEN_INTERVAL_US) {
        return;
    }
    {
        const MutexLock lock(busLoadMutex);
        lastBusLoad = busLoadCount;
    }
    reportState(5);
    busLoadIntervalStart = now;
    busLoadCount = 0;
}

uint64_t EthernetInterface::getLastBusLoad()
{
    const MutexLock lock(busLoadMutex);
    return lastBusLoad;
}
