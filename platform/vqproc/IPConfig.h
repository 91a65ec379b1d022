#pragma once

#include <vqutil/Export.h>

#include <cstdint>
#include <string>

/// One address of the logger on one network interface. The service reads the named texts; the reserved fields
/// belong to other users of the record and are zero or empty here.
struct ethernetConfig_t
{
    uint8_t reserved0 = 0;
    std::string interfaceName; ///< network interface, for example eth1
    uint32_t reserved1 = 0;
    std::string serverIp; ///< dotted IPv4 address of the server
    uint16_t port = 0;    ///< not used by the address service
    std::string reserved2;
    uint8_t reserved3 = 0;
    uint32_t reserved4 = 0;
    std::string loggerIp;  ///< dotted IPv4 address that the logger takes
    std::string subnet;    ///< dotted subnet mask
    std::string gatewayIp; ///< dotted IPv4 address of the gateway
    std::string reserved5;
    uint8_t reserved6 = 0;
    uint32_t reserved7 = 0;
    uint64_t reserved8 = 0;
    uint32_t reserved9 = 0;
    uint8_t reserved10 = 0;
    uint32_t reserved11 = 0;
    uint8_t reserved12 = 0;
};

/// The logger's address service: puts addresses on network interfaces and takes them away.
///
/// Outside the logger, what it does to this machine is chosen by the environment variable VQIPCONFIG, read at each
/// configureIP():
///
/// - `check`, the default: changes nothing and grants an address that this machine can bind.
/// - `apply`: puts the address on the interface, unless another host on the link answers for it; removeIP() takes
///   it off. Needs the capability CAP_NET_ADMIN, and CAP_NET_RAW to ask the link.
/// - `accept`: changes nothing, asks nobody and grants everything.
///
/// In `check` and `apply` an address that the virtual logger is configured to play as taken is refused. Each
/// refusal is told on standard error with its reason. At process exit the addresses that were added are taken off;
/// what a process that died has left is taken off by the next one that adds an address.
///
/// Threads: any; requests are served one after the other.
class VQ_API IPConfig
{
public:
    IPConfig(const IPConfig&) = delete;
    IPConfig& operator=(const IPConfig&) = delete;

    /// The one object of the process, built on first use and never destroyed. Never null.
    static IPConfig* getInstance();

    /// Puts `loggerIp` on `interfaceName`. If the interface has the address already, that keeps its mask; another one
    /// in the record is told on standard error.
    ///
    /// @param config  the address; invalid texts are refused
    /// @param udp     true if the address is for datagrams, false for a stream
    /// @return true if the interface carries the address now (also if it did before); false if it cannot, for
    ///         instance because another host on the link answers for the address
    bool configureIP(const ethernetConfig_t& config, bool udp);

    /// Takes an address away that configureIP() of this process has added for an equal record. Any other address, an
    /// empty one included, is left alone.
    ///
    /// An address that several records hold goes with the last of them. Whoever calls is known by the record alone:
    /// equal ones count once however often they are granted. So of two objects with equal records the first removal
    /// would take the address away from the other: until there was a removal for each grant, the address stays while
    /// a socket of this process is bound to it, at the latest until the process exits. An object that is not connected
    /// at that moment does lose it. After a refusal the next removal of an equal record is taken for that of the
    /// refused one, and leaves the address on the interface until the process exits or it is given up once more.
    ///
    /// @param config  as in configureIP(); the named texts are compared, the port and the reserved fields are not
    void removeIP(const ethernetConfig_t& config);

protected:
    IPConfig() = default;
    ~IPConfig() = default;
};
