#include "vqproc/OwnershipMark.h"

#include "vqproc/Ipv4Text.h"

#include <net/if.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <utility>

namespace vqhost {

namespace {

constexpr const char* LABEL_END = ":vq";
constexpr size_t LABEL_END_LENGTH = 3;
constexpr size_t LONGEST_LABEL = IFNAMSIZ - 1;

} // namespace

OwnershipMark::OwnershipMark(unsigned interfaceIndex, in_addr address)
    : fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0))
{
    if (fd < 0) {
        failure = errno;
        return;
    }
    // A leading zero makes the name abstract: it stands in no file system and belongs to the network namespace.
    const std::string name =
        std::string(1, '\0') + "vq-address/" + std::to_string(interfaceIndex) + "/" + ipv4Text(address);
    sockaddr_un mark = {};
    mark.sun_family = AF_UNIX;
    name.copy(mark.sun_path, sizeof mark.sun_path);
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    if (bind(fd, reinterpret_cast<const sockaddr*>(&mark), length) < 0) {
        failure = errno;
        close(fd);
        fd = -1;
    }
}

OwnershipMark::~OwnershipMark()
{
    if (fd >= 0) {
        close(fd);
    }
}

OwnershipMark::OwnershipMark(OwnershipMark&& other) noexcept
    : fd(std::exchange(other.fd, -1)), failure(other.failure)
{
}

OwnershipMark& OwnershipMark::operator=(OwnershipMark&& other) noexcept
{
    std::swap(fd, other.fd);
    std::swap(failure, other.failure);
    return *this;
}

std::string addressLabel(const std::string& interfaceName)
{
    return interfaceName.substr(0, LONGEST_LABEL - LABEL_END_LENGTH) + LABEL_END;
}

bool isAddressLabel(const std::string& label)
{
    return label.size() > LABEL_END_LENGTH &&
           label.compare(label.size() - LABEL_END_LENGTH, LABEL_END_LENGTH, LABEL_END) == 0;
}

} // namespace vqhost
