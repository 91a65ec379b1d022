#pragma once

#include <wire/FileDescriptor.h>

#include <chrono>
#include <string>

namespace vqhost {

/// How long a virtual logger may take to accept a connection or to answer a request.
constexpr std::chrono::seconds ANSWER_LIMIT{5};

/// Connects to the virtual logger that listens at `path` and makes sure that it belongs to this user.
///
/// @return SOCK_SEQPACKET connection, close-on-exec
/// @throws std::system_error: EACCES if the process behind the socket is another user's, ETIMEDOUT if it does not
///         take the connection within ANSWER_LIMIT, ENAMETOOLONG, or what socket(2) and connect(2) say
wire::FileDescriptor connectToLogger(const std::string& path);

/// Bounds how long connect(2) and send(2) wait for the other side; zero: no bound. They fail with EAGAIN then.
/// @throws std::system_error if the system refuses
void limitSending(int fd, std::chrono::seconds limit);

/// Makes sure that nobody but this user could have put a socket into the directory of `path`.
/// @throws std::system_error: EACCES if the directory is a link, another user's or writable for others; what
///         lstat(2) says if it cannot be looked at
void checkSocketDirectory(const std::string& path);

} // namespace vqhost
