#include <support/FakeIpConfig.h>

#include <vqutil/LogUtil.h>

#include <iostream>
#include <mutex>
#include <string>

namespace fakeIpConfig {

namespace {

std::mutex mutex;
bool grants = true;
std::vector<request_t> configuredRecords;
std::vector<ethernetConfig_t> removedRecords;

void show(const std::string& call)
{
    const MutexLock lock(LogUtil::logMutex);
    std::cout << "{" + call + "}\n" << std::flush;
}

} // namespace

void grantAddresses(bool granted)
{
    const std::lock_guard lock(mutex);
    grants = granted;
}

std::vector<request_t> configured()
{
    const std::lock_guard lock(mutex);
    return configuredRecords;
}

std::vector<ethernetConfig_t> removed()
{
    const std::lock_guard lock(mutex);
    return removedRecords;
}

} // namespace fakeIpConfig

IPConfig* IPConfig::getInstance()
{
    struct Fake : IPConfig
    {
    };
    static Fake fake;
    return &fake;
}

bool IPConfig::configureIP(const ethernetConfig_t& config, bool udp)
{
    fakeIpConfig::show("configureIP " + config.interfaceName + " udp=" + (udp ? "1" : "0"));
    const std::lock_guard lock(fakeIpConfig::mutex);
    fakeIpConfig::configuredRecords.push_back({config, udp});
    return fakeIpConfig::grants;
}

void IPConfig::removeIP(const ethernetConfig_t& config)
{
    fakeIpConfig::show("removeIP " + config.interfaceName);
    const std::lock_guard lock(fakeIpConfig::mutex);
    fakeIpConfig::removedRecords.push_back(config);
}
