#pragma once

#include <cstdint>
#include <netinet/in.h>
#include <string>
#include <vector>

struct mnl_socket;
struct nlmsghdr;

namespace vqhost {

/// One IPv4 address on one network interface, as the kernel lists it.
struct interfaceAddress_t
{
    unsigned interfaceIndex;
    in_addr address;
    uint8_t prefixLength;
    std::string label;
    std::vector<uint8_t> record; ///< the kernel's message about it, from which it can be put back
};

/// Lists, adds and removes the IPv4 addresses of this machine's network interfaces through rtnetlink. What counts
/// is the network namespace of the thread that builds the object.
///
/// Threads: one at a time.
class RouteSocket
{
public:
    /// @throws std::system_error if the kernel refuses the socket
    RouteSocket();
    ~RouteSocket();
    RouteSocket(const RouteSocket&) = delete;
    RouteSocket& operator=(const RouteSocket&) = delete;

    /// All IPv4 addresses. A list that changes while the kernel hands it out is read again.
    /// @throws std::system_error
    std::vector<interfaceAddress_t> addresses();

    /// Puts an address on an interface; the kernel adds the route to its subnet.
    /// @return 0, or an error number: EPERM without the privilege, EEXIST if it is there already
    int add(unsigned interfaceIndex, in_addr address, uint8_t prefixLength, const std::string& label);

    /// Takes an address off an interface, if it is there with this very prefix and label: the same address of
    /// another prefix or label is somebody else's. Others of the same subnet, which the kernel would take along,
    /// stay.
    /// @return 0, or an error number: EADDRNOTAVAIL if it is not there
    int remove(unsigned interfaceIndex, in_addr address, uint8_t prefixLength, const std::string& label);

private:
    void open();
    int tryToList(std::vector<interfaceAddress_t>& listed);
    int request(nlmsghdr* header);
    int receiveAnswer(uint32_t sequence, std::vector<interfaceAddress_t>* listed);
    int restore(const interfaceAddress_t& lost);

    mnl_socket* socket = nullptr;
    uint32_t lastSequence = 0;
};

} // namespace vqhost
