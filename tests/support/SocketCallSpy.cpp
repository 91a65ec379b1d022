#include <support/RealSocketCalls.h>
#include <support/SocketCallSpy.h>

#include <atomic>
#include <cstring>
#include <string>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

namespace socketcalls {

Recorder<std::string> made;
Recorder<std::string> waits;

namespace {

std::atomic<int> latest{-1};

void note(int fd, const std::string& text)
{
    made.add(fd == latest ? text : text + " on another descriptor");
}

std::string addressText(const sockaddr* address, socklen_t length)
{
    sockaddr_in ip = {};
    std::memcpy(&ip, address, sizeof ip);
    return std::string(inet_ntoa(ip.sin_addr)) + ":" + std::to_string(ntohs(ip.sin_port)) + " " +
           std::to_string(length);
}

std::string transferText(const char* call, size_t size, int flags)
{
    return std::string(call) + " " + std::to_string(size) + " bytes, flags " + std::to_string(flags);
}

/// A number in relation to the latest descriptor.
std::string descriptorText(int number)
{
    const int fd = latest;
    if (fd >= 0 && number == fd) {
        return "fd";
    }
    return fd >= 0 && number == fd + 1 ? "fd+1" : std::to_string(number);
}

} // namespace

} // namespace socketcalls

using namespace socketcalls;

extern "C" {

int __wrap_socket(int domain, int type, int protocol)
{
    const int fd = __real_socket(domain, type, protocol);
    latest = fd;
    made.add("socket " + std::string(domain == AF_INET ? "" : "of another domain ") +
             (type == SOCK_STREAM  ? "stream "
              : type == SOCK_DGRAM ? "datagram "
                                   : "other ") +
             std::to_string(protocol));
    return fd;
}

int __wrap_connect(int fd, const sockaddr* address, socklen_t length)
{
    note(fd, "connect " + addressText(address, length));
    return __real_connect(fd, address, length);
}

int __wrap_setsockopt(int fd, int level, int option, const void* value, socklen_t length)
{
    int number = 0;
    std::memcpy(&number, value, sizeof number);
    note(fd, "setsockopt " +
                 std::string(level == IPPROTO_TCP && option == TCP_NODELAY ? "TCP_NODELAY " : "another option ") +
                 std::to_string(number) + " " + std::to_string(length));
    return __real_setsockopt(fd, level, option, value, length);
}

int __wrap_bind(int fd, const sockaddr* address, socklen_t length)
{
    note(fd, "bind " + addressText(address, length));
    return __real_bind(fd, address, length);
}

int __wrap_close(int fd)
{
    note(fd, "close");
    return __real_close(fd);
}

int __wrap_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask)
{
    std::string text = "pselect " + descriptorText(count) + " {";
    for (int fd = 0; readable != nullptr && fd < static_cast<int>(FD_SETSIZE); ++fd) {
        text += FD_ISSET(fd, readable) ? descriptorText(fd) : "";
    }
    text += "}";
    text += writable != nullptr ? " writable" : "";
    text += exceptional != nullptr ? " exceptional" : "";
    text += timeout != nullptr
                ? " " + std::to_string(timeout->tv_sec) + " s " + std::to_string(timeout->tv_nsec) + " ns"
                : "";
    text += mask != nullptr ? " mask" : "";
    waits.add(text);
    return __real_pselect(count, readable, writable, exceptional, timeout, mask);
}

ssize_t __wrap_recv(int fd, void* buffer, size_t size, int flags)
{
    note(fd, transferText("recv", size, flags));
    return __real_recv(fd, buffer, size, flags);
}

ssize_t __wrap_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address, socklen_t* length)
{
    note(fd, transferText("recvfrom", size, flags) + (address != nullptr ? ", source " : ", no source ") +
                 std::to_string(length != nullptr ? *length : 0));
    return __real_recvfrom(fd, buffer, size, flags, address, length);
}

ssize_t __wrap_send(int fd, const void* buffer, size_t size, int flags)
{
    note(fd, transferText("send", size, flags));
    return __real_send(fd, buffer, size, flags);
}

ssize_t __wrap_sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address, socklen_t length)
{
    note(fd, transferText("sendto", size, flags) + ", " + addressText(address, length));
    return __real_sendto(fd, buffer, size, flags, address, length);
}

} // extern "C"
