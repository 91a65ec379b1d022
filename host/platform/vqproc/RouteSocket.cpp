#include "vqproc/RouteSocket.h"

#include <libmnl/libmnl.h>
#include <linux/if_addr.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace vqhost {

namespace {

/// Larger than any message the kernel builds, dumps included.
constexpr size_t ANSWER_BYTES = 32768;
constexpr size_t REQUEST_BYTES = 512;

struct attributes_t
{
    const nlattr* local = nullptr;
    const nlattr* label = nullptr;
};

int noteAttribute(const nlattr* attribute, void* data)
{
    auto* const found = static_cast<attributes_t*>(data);
    if (mnl_attr_get_type(attribute) == IFA_LOCAL && mnl_attr_validate(attribute, MNL_TYPE_U32) >= 0) {
        found->local = attribute;
    }
    if (mnl_attr_get_type(attribute) == IFA_LABEL && mnl_attr_validate(attribute, MNL_TYPE_NUL_STRING) >= 0) {
        found->label = attribute;
    }
    return MNL_CB_OK;
}

int noteAddress(const nlmsghdr* header, void* data)
{
    auto* const listed = static_cast<std::vector<interfaceAddress_t>*>(data);
    const auto* const message = static_cast<const ifaddrmsg*>(mnl_nlmsg_get_payload(header));
    if (listed == nullptr || header->nlmsg_type != RTM_NEWADDR || message->ifa_family != AF_INET) {
        return MNL_CB_OK;
    }
    attributes_t attributes;
    mnl_attr_parse(header, sizeof *message, noteAttribute, &attributes);
    if (attributes.local == nullptr) {
        return MNL_CB_OK;
    }
    const auto* const bytes = reinterpret_cast<const uint8_t*>(header);
    listed->push_back({message->ifa_index,
                       in_addr{mnl_attr_get_u32(attributes.local)},
                       message->ifa_prefixlen,
                       attributes.label != nullptr ? mnl_attr_get_str(attributes.label) : "",
                       {bytes, bytes + header->nlmsg_len}});
    return MNL_CB_OK;
}

nlmsghdr* beginAddressRequest(void* buffer, uint16_t type, uint16_t flags, unsigned interfaceIndex,
                              uint8_t prefixLength)
{
    nlmsghdr* const header = mnl_nlmsg_put_header(buffer);
    header->nlmsg_type = type;
    header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
    auto* const message = static_cast<ifaddrmsg*>(mnl_nlmsg_put_extra_header(header, sizeof(ifaddrmsg)));
    message->ifa_family = AF_INET;
    message->ifa_prefixlen = prefixLength;
    message->ifa_index = interfaceIndex;
    message->ifa_scope = RT_SCOPE_UNIVERSE;
    return header;
}

bool sameSubnet(in_addr one, in_addr other, uint8_t prefixLength)
{
    const uint32_t mask = prefixLength == 0 ? 0 : ~uint32_t{0} << (32 - prefixLength);
    return ((ntohl(one.s_addr) ^ ntohl(other.s_addr)) & mask) == 0;
}

bool isSame(const interfaceAddress_t& one, const interfaceAddress_t& other)
{
    return one.interfaceIndex == other.interfaceIndex && one.address.s_addr == other.address.s_addr &&
           one.prefixLength == other.prefixLength;
}

} // namespace

RouteSocket::RouteSocket()
{
    open();
}

RouteSocket::~RouteSocket()
{
    mnl_socket_close(socket);
}

/// Puts a new socket in the place of the present one, if there is any.
void RouteSocket::open()
{
    mnl_socket* const opened = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
    if (opened == nullptr) {
        throw std::system_error(errno, std::generic_category(), "netlink socket");
    }
    if (mnl_socket_bind(opened, 0, MNL_SOCKET_AUTOPID) < 0) {
        const int error = errno;
        mnl_socket_close(opened);
        throw std::system_error(error, std::generic_category(), "netlink bind");
    }
    if (socket != nullptr) {
        mnl_socket_close(socket);
    }
    socket = opened;
}

std::vector<interfaceAddress_t> RouteSocket::addresses()
{
    std::vector<interfaceAddress_t> listed;
    int error = tryToList(listed);
    while (error == EINTR) {
        // The list changed while it was handed out. Its rest is still on the way on this socket.
        open();
        error = tryToList(listed);
    }
    if (error != 0) {
        throw std::system_error(error, std::generic_category(), "list of addresses");
    }
    return listed;
}

/// @return 0, or an error number: EINTR if the list changed meanwhile
int RouteSocket::tryToList(std::vector<interfaceAddress_t>& listed)
{
    alignas(nlmsghdr) std::array<char, REQUEST_BYTES> buffer = {};
    nlmsghdr* const header = beginAddressRequest(buffer.data(), RTM_GETADDR, NLM_F_DUMP, 0, 0);
    header->nlmsg_seq = ++lastSequence;
    listed.clear();
    if (mnl_socket_sendto(socket, header, header->nlmsg_len) < 0) {
        return errno;
    }
    return receiveAnswer(header->nlmsg_seq, &listed);
}

int RouteSocket::add(unsigned interfaceIndex, in_addr address, uint8_t prefixLength, const std::string& label)
{
    alignas(nlmsghdr) std::array<char, REQUEST_BYTES> buffer = {};
    nlmsghdr* const header = beginAddressRequest(buffer.data(), RTM_NEWADDR, NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL,
                                                 interfaceIndex, prefixLength);
    mnl_attr_put_u32(header, IFA_LOCAL, address.s_addr);
    mnl_attr_put_u32(header, IFA_ADDRESS, address.s_addr);
    constexpr uint8_t LONGEST_PREFIX_WITH_BROADCAST = 30;
    if (prefixLength <= LONGEST_PREFIX_WITH_BROADCAST) {
        mnl_attr_put_u32(header, IFA_BROADCAST, address.s_addr | htonl(~uint32_t{0} >> prefixLength));
    }
    mnl_attr_put_strz(header, IFA_LABEL, label.c_str());
    return request(header);
}

int RouteSocket::remove(unsigned interfaceIndex, in_addr address, uint8_t prefixLength, const std::string& label)
{
    const std::vector<interfaceAddress_t> before = addresses();
    alignas(nlmsghdr) std::array<char, REQUEST_BYTES> buffer = {};
    nlmsghdr* const header =
        beginAddressRequest(buffer.data(), RTM_DELADDR, NLM_F_ACK, interfaceIndex, prefixLength);
    mnl_attr_put_u32(header, IFA_LOCAL, address.s_addr);
    // The kernel compares the prefix length only beside this attribute.
    mnl_attr_put_u32(header, IFA_ADDRESS, address.s_addr);
    mnl_attr_put_strz(header, IFA_LABEL, label.c_str());
    const int error = request(header);
    if (error != 0) {
        return error;
    }
    // With the first address of a subnet the kernel removes the later ones, which are not ours.
    const std::vector<interfaceAddress_t> after = addresses();
    for (const interfaceAddress_t& other : before) {
        const bool isGone = std::none_of(after.begin(), after.end(), [&other](const interfaceAddress_t& candidate) {
            return isSame(candidate, other);
        });
        if (isGone && other.interfaceIndex == interfaceIndex && other.address.s_addr != address.s_addr &&
            sameSubnet(other.address, address, prefixLength)) {
            restore(other);
        }
    }
    return 0;
}

int RouteSocket::restore(const interfaceAddress_t& lost)
{
    // The records of a dump and of a request differ in their heads only.
    alignas(nlmsghdr) std::array<char, REQUEST_BYTES> buffer = {};
    if (lost.record.size() > buffer.size()) {
        return EMSGSIZE;
    }
    std::memcpy(buffer.data(), lost.record.data(), lost.record.size());
    auto* const header = reinterpret_cast<nlmsghdr*>(buffer.data());
    header->nlmsg_type = RTM_NEWADDR;
    header->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;
    header->nlmsg_pid = 0;
    return request(header);
}

int RouteSocket::request(nlmsghdr* header)
{
    header->nlmsg_seq = ++lastSequence;
    if (mnl_socket_sendto(socket, header, header->nlmsg_len) < 0) {
        return errno;
    }
    return receiveAnswer(header->nlmsg_seq, nullptr);
}

/// Reads until the end of a list or the kernel's verdict.
int RouteSocket::receiveAnswer(uint32_t sequence, std::vector<interfaceAddress_t>* listed)
{
    alignas(nlmsghdr) std::array<char, ANSWER_BYTES> buffer;
    for (;;) {
        const ssize_t size = mnl_socket_recvfrom(socket, buffer.data(), buffer.size());
        if (size < 0 && errno == EINTR) {
            continue; // a signal handler ran; the answer is still to come
        }
        if (size < 0) {
            return errno;
        }
        const int verdict = mnl_cb_run(buffer.data(), static_cast<size_t>(size), sequence,
                                       mnl_socket_get_portid(socket), noteAddress, listed);
        if (verdict <= MNL_CB_STOP) {
            return verdict == MNL_CB_STOP ? 0 : errno;
        }
    }
}

} // namespace vqhost
