#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

/// Two network namespaces with a cable between them: the calling thread, and every thread and process that it
/// starts later, moves into one with the interface "vqa", another host is the other with the interface "vqb". Both
/// ends are up and carry no address.
///
/// Needs the privilege to make namespaces and the programs ip and nsenter; where it cannot be made, failure() says
/// why, and the test skips.
class LinkedNamespaces
{
public:
    LinkedNamespaces();
    ~LinkedNamespaces();
    LinkedNamespaces(const LinkedNamespaces&) = delete;
    LinkedNamespaces& operator=(const LinkedNamespaces&) = delete;

    /// Empty if the namespaces are there.
    const std::string& failure() const { return reason; }

    /// Runs "ip" with these arguments on our side.
    /// @return what it wrote
    std::string ip(const std::string& arguments) const;
    /// The same for the other host.
    std::string otherHostIp(const std::string& arguments) const;

    /// The IPv4 addresses of our end as "address/prefix label", in the kernel's order.
    std::vector<std::string> addresses() const;

    /// Hardware address of the other host's end.
    std::string otherHostHardware() const;

private:
    bool awaitRunning() const;

    std::string reason;
    pid_t otherHost = -1;
};
