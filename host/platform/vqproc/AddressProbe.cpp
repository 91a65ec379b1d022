#include "vqproc/AddressProbe.h"

#include <linux/if_packet.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/if_ether.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>

namespace vqhost {

namespace {

constexpr int PROBES = 3;
constexpr std::chrono::milliseconds WAIT_PER_PROBE{100};

class Descriptor
{
public:
    explicit Descriptor(int opened) : fd(opened) {}
    ~Descriptor()
    {
        if (fd >= 0) {
            close(fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    const int fd;
};

probe_t notAsked(const std::string& step, int error)
{
    return {ProbeResult::NOT_ASKED, step + ": " + std::generic_category().message(error)};
}

std::string hardwareText(const uint8_t (&bytes)[ETH_ALEN])
{
    std::string text;
    for (const uint8_t byte : bytes) {
        constexpr const char* DIGITS = "0123456789abcdef";
        text += text.empty() ? "" : ":";
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

ether_arp probePacket(const uint8_t (&ownHardware)[ETH_ALEN], in_addr address)
{
    ether_arp packet = {}; // sender address 0.0.0.0: asks without claiming
    packet.arp_hrd = htons(ARPHRD_ETHER);
    packet.arp_pro = htons(ETHERTYPE_IP);
    packet.arp_hln = ETH_ALEN;
    packet.arp_pln = sizeof address;
    packet.arp_op = htons(ARPOP_REQUEST);
    std::copy(std::begin(ownHardware), std::end(ownHardware), std::begin(packet.arp_sha));
    std::memcpy(packet.arp_tpa, &address, sizeof address);
    return packet;
}

/// A packet of another host that uses the address, or is about to.
bool claims(const ether_arp& packet, const uint8_t (&ownHardware)[ETH_ALEN], in_addr address)
{
    if (std::equal(std::begin(packet.arp_sha), std::end(packet.arp_sha), std::begin(ownHardware))) {
        return false;
    }
    in_addr sender = {};
    in_addr target = {};
    std::memcpy(&sender, packet.arp_spa, sizeof sender);
    std::memcpy(&target, packet.arp_tpa, sizeof target);
    return sender.s_addr == address.s_addr ||
           (sender.s_addr == 0 && target.s_addr == address.s_addr && packet.arp_op == htons(ARPOP_REQUEST));
}

/// Reads what the link says until the wait for one probe is over.
/// @return the claiming packet's sender, or an empty text
std::string awaitClaim(int fd, const uint8_t (&ownHardware)[ETH_ALEN], in_addr address)
{
    using std::chrono::steady_clock;
    const steady_clock::time_point end = steady_clock::now() + WAIT_PER_PROBE;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - steady_clock::now()).count();
        pollfd entry = {fd, POLLIN, 0};
        if (left <= 0 || poll(&entry, 1, static_cast<int>(left)) == 0) {
            return {};
        }
        ether_arp packet = {};
        const ssize_t size = recv(fd, &packet, sizeof packet, MSG_DONTWAIT);
        if (size == static_cast<ssize_t>(sizeof packet) && claims(packet, ownHardware, address)) {
            return hardwareText(packet.arp_sha);
        }
    }
}

} // namespace

probe_t probeAddress(const std::string& interfaceName, in_addr address)
{
    // Without a protocol it hears nothing yet: until it is bound it would hear every interface.
    const Descriptor socket(::socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (socket.fd < 0) {
        return notAsked("packet socket", errno);
    }
    ifreq question = {};
    interfaceName.copy(question.ifr_name, IFNAMSIZ - 1);
    if (ioctl(socket.fd, SIOCGIFFLAGS, &question) < 0) {
        return notAsked("flags of the interface", errno);
    }
    const int flags = question.ifr_flags;
    if ((flags & IFF_LOOPBACK) != 0) {
        return {ProbeResult::FREE, {}}; // no other host can be there
    }
    if ((flags & IFF_NOARP) != 0) {
        return {ProbeResult::NOT_ASKED, "the interface has no ARP"};
    }
    if ((flags & IFF_UP) == 0 || (flags & IFF_RUNNING) == 0) {
        return {ProbeResult::NOT_ASKED, "the interface is down"};
    }
    if (ioctl(socket.fd, SIOCGIFHWADDR, &question) < 0) {
        return notAsked("hardware address of the interface", errno);
    }
    if (question.ifr_hwaddr.sa_family != ARPHRD_ETHER) {
        return {ProbeResult::NOT_ASKED, "the interface is no Ethernet"};
    }
    uint8_t ownHardware[ETH_ALEN];
    std::memcpy(ownHardware, question.ifr_hwaddr.sa_data, sizeof ownHardware);

    sockaddr_ll everybody = {};
    everybody.sll_family = AF_PACKET;
    everybody.sll_protocol = htons(ETH_P_ARP);
    everybody.sll_ifindex = static_cast<int>(if_nametoindex(interfaceName.c_str()));
    everybody.sll_halen = ETH_ALEN;
    std::fill_n(everybody.sll_addr, ETH_ALEN, uint8_t{0xff});
    const auto* const target = reinterpret_cast<const sockaddr*>(&everybody);
    if (bind(socket.fd, target, sizeof everybody) < 0) {
        return notAsked("packet socket on the interface", errno);
    }
    const ether_arp packet = probePacket(ownHardware, address);
    for (int probe = 0; probe < PROBES; ++probe) {
        if (sendto(socket.fd, &packet, sizeof packet, 0, target, sizeof everybody) < 0) {
            return notAsked("ARP probe", errno);
        }
        const std::string owner = awaitClaim(socket.fd, ownHardware, address);
        if (!owner.empty()) {
            return {ProbeResult::TAKEN, owner};
        }
    }
    return {ProbeResult::FREE, {}};
}

} // namespace vqhost
