#include <EthernetInterface.h>

#include <LogLine.h>

#include "ethernet/OpenSocket.h"

#include <vqproc/IPConfig.h>

#include <ostream>

using logline::Level;

namespace {

ethernetConfig_t addressRecord(const EthernetInterface::Configuration& configuration)
{
    ethernetConfig_t record;
    record.interfaceName = configuration.interfaceName;
    record.serverIp = configuration.serverIp;
    record.loggerIp = configuration.loggerIp;
    record.subnet = configuration.subnet;
    record.gatewayIp = configuration.gatewayIp;
    return record;
}

} // namespace

std::ostream& operator<<(std::ostream& stream, const EthernetInterface::Configuration& configuration)
{
    return stream << "interfaceName=" << configuration.interfaceName << "; serverIp=" << configuration.serverIp
                  << "; loggerIp=" << configuration.loggerIp << "; subnet=" << configuration.subnet
                  << "; gatewayIp=" << configuration.gatewayIp << "; port=" << std::to_string(configuration.port)
                  << "; useTcp=" << configuration.useTcp;
}

EthernetInterface::EthernetInterface()
{
    FD_ZERO(&readSet);
}

EthernetInterface::~EthernetInterface()
{
    {
        const MutexLock lock(stateMutex);
        destroying = true;
        rxThreadRunning = false;
    }
    // A callback that reconnects from now on would open a socket that nobody closes.
    configured = false;
    if (logLevel >= 1) {
        logline::write(Level::DEBUG, origin(), "~EthernetInterface", "join");
    }
    joinAllThreads();
    disconnect();
    // Also without a configuration: the platform leaves alone what it did not add.
    IPConfig::getInstance()->removeIP(addressRecord(currentConfiguration()));
}

int EthernetInterface::configure(const Configuration& configuration)
{
    if (socketFd >= 0) {
        logline::write(Level::ERROR, origin(), "configure",
                       "Configuration failed, interface is already connected.");
        return -1;
    }
    {
        const MutexLock lock(stateMutex);
        config = configuration;
    }
    logline::write(Level::INFO, origin(), "configure", configuration);

    // An address of an earlier configuration stays where it is.
    ipConflict = !IPConfig::getInstance()->configureIP(addressRecord(configuration), !configuration.useTcp);
    if (ipConflict) {
        logline::write(Level::ERROR, origin(), "configure", "Configuration failed, IP conflict.");
        configured = false;
        return -2;
    }
    logline::write(Level::INFO, origin(), "configure", "Configuration successful, try to connect to server.");
    configured = true;
    if (!connect()) {
        logline::write(Level::WARNING, origin(), "configure", "Connect failed. Try later at send() again.");
        return 0;
    }
    logline::write(Level::INFO, origin(), "configure", "Connect successful.");
    return 1;
}

EthernetInterface::Configuration EthernetInterface::currentConfiguration() const
{
    const MutexLock lock(stateMutex);
    return config;
}

std::string EthernetInterface::origin() const
{
    const MutexLock lock(stateMutex);
    return "ETH[" + config.serverIp + ":" + std::to_string(config.port) + "]";
}

void EthernetInterface::reportState(int status)
{
    // The next callback is looked up after each call, so that a callback may remove itself.
    for (auto next = callbacks.begin(); next != callbacks.end();) {
        InterfaceBaseCb* const callback = *next;
        callback->onInterfaceState(status);
        next = callbacks.upper_bound(callback);
    }
}
