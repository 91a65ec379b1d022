#pragma once

#include <netinet/in.h>
#include <string>

namespace vqhost {

/// Says to the other processes of this network namespace that one address on one interface belongs to a process
/// that is alive: the name of an abstract Unix socket, which the kernel frees when the process ends, however it
/// ends.
class OwnershipMark
{
public:
    /// Tries to become the owner.
    OwnershipMark(unsigned interfaceIndex, in_addr address);
    ~OwnershipMark();
    OwnershipMark(OwnershipMark&& other) noexcept;
    OwnershipMark& operator=(OwnershipMark&& other) noexcept;

    /// False if a living process is the owner, this one included, or the mark cannot be made; see error().
    bool isOwned() const { return fd >= 0; }

    /// Why it is not owned: EADDRINUSE if a living process is the owner. 0 if it is.
    int error() const { return failure; }

private:
    int fd;
    int failure = 0;
};

/// The label that marks an address as added by this service: the interface's name, cut to leave room, and ":vq".
std::string addressLabel(const std::string& interfaceName);

/// True for a label that addressLabel() makes.
bool isAddressLabel(const std::string& label);

} // namespace vqhost
