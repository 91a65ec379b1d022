#pragma once

#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

/// The system's own calls, for sources that are linked with WRAP.
extern "C" {

int __real_socket(int domain, int type, int protocol);
int __real_connect(int fd, const sockaddr* address, socklen_t length);
int __real_setsockopt(int fd, int level, int option, const void* value, socklen_t length);
int __real_bind(int fd, const sockaddr* address, socklen_t length);
int __real_close(int fd);
int __real_pselect(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, const timespec* timeout,
                   const sigset_t* mask);
ssize_t __real_recv(int fd, void* buffer, size_t size, int flags);
ssize_t __real_recvfrom(int fd, void* buffer, size_t size, int flags, sockaddr* address, socklen_t* length);
ssize_t __real_send(int fd, const void* buffer, size_t size, int flags);
ssize_t __real_sendto(int fd, const void* buffer, size_t size, int flags, const sockaddr* address,
                      socklen_t length);
}
